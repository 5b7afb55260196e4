# Programs and a module that use the shared library as its users do.
add_library(whole_module MODULE whole/use_library.cpp)
add_executable(statics_program whole/statics_program.cpp whole/use_library.cpp)
foreach(user whole_module statics_program)
  target_include_directories(${user} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${user} PRIVATE QelBase::qelbase)
endforeach()
# As the library: what it makes of templates must not hold it in the process.
target_link_options(whole_module PRIVATE
                    LINKER:--version-script=${PROJECT_SOURCE_DIR}/qelbase/exports.map)
target_compile_definitions(
  test_whole PRIVATE WHOLE_MODULE="$<TARGET_FILE:whole_module>"
                     STATICS_PROGRAM="$<TARGET_FILE:statics_program>"
                     LOAD_PROGRAM="$<TARGET_FILE:load_program>"
                     QELBASE_LIBRARY="$<TARGET_FILE:qelbase>")
add_dependencies(test_whole whole_module statics_program load_program qelbase)

# It defines some of the library's functions itself, and must see the library's objects, not copies.
add_executable(start_program whole/start_program.cpp)
target_link_libraries(start_program PRIVATE QelBase::qelbase ${CMAKE_DL_LIBS})
set_target_properties(start_program PROPERTIES ENABLE_EXPORTS ON CXX_VISIBILITY_PRESET default)
target_compile_options(start_program PRIVATE -fPIC)
target_compile_definitions(test_whole PRIVATE START_PROGRAM="$<TARGET_FILE:start_program>")
add_dependencies(test_whole start_program)
