# Programs of users: one is built by the library's target alone, the other one loads it.
add_executable(user_program platform/user_program.cpp)
target_link_libraries(user_program PRIVATE QelBase::qelbase)
add_executable(load_program platform/load_program.cpp)
target_link_libraries(load_program PRIVATE ${CMAKE_DL_LIBS})
target_compile_features(load_program PRIVATE cxx_std_20)
target_compile_options(load_program PRIVATE -fnon-call-exceptions)
# Their faults are meant; the undefined-behaviour sanitizer would come before the processor.
foreach(program user_program load_program)
  target_compile_options(${program} PRIVATE -fno-sanitize=undefined)
endforeach()
target_compile_definitions(test_platform PRIVATE
                           USER_PROGRAM="$<TARGET_FILE:user_program>"
                           LOAD_PROGRAM="$<TARGET_FILE:load_program>"
                           QELBASE_LIBRARY="$<TARGET_FILE:qelbase>")
add_dependencies(test_platform user_program load_program qelbase)
