# The service that the tests of services install.
add_executable(service_program platform/service_program.cpp)
target_link_libraries(service_program PRIVATE qelbase_internal)
target_compile_definitions(test_platform
                           PRIVATE SERVICE_PROGRAM_W=L"$<TARGET_FILE:service_program>")
add_dependencies(test_platform service_program)
