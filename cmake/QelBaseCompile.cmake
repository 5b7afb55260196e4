# The compile rules of every target of this project, as one interface target.
add_library(qelbase_compile INTERFACE)
target_compile_features(qelbase_compile INTERFACE cxx_std_20)
target_include_directories(qelbase_compile INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_definitions(qelbase_compile INTERFACE _FILE_OFFSET_BITS=64)
target_compile_options(
  qelbase_compile
  INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion -Wnon-virtual-dtor
            -Woverloaded-virtual $<$<BOOL:${PROJECT_IS_TOP_LEVEL}>:-Werror>
            # A call inside the library is a plain call, which may be inlined.
            -fno-semantic-interposition
            # The same bits from floating-point code at every optimisation level.
            -ffp-contract=off)

set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_program(QELBASE_CCACHE ccache)
if(QELBASE_CCACHE AND PROJECT_IS_TOP_LEVEL)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${QELBASE_CCACHE})
endif()

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()
