# Programs of users: one is built by the library's target alone, the other one loads it.
add_executable(user_program platform/user_program.cpp)
target_link_libraries(user_program PRIVATE QelBase::qelbase)
add_executable(load_program platform/load_program.cpp)
target_link_libraries(load_program PRIVATE ${CMAKE_DL_LIBS} Threads::Threads)
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

# The version of the test program itself, and shared objects with and without one.
include(${PROJECT_SOURCE_DIR}/cmake/QelBaseResources.cmake)
qelbase_add_resources(test_platform platform/app.rc)
add_library(plain_module MODULE text/module.cpp)
target_link_libraries(plain_module PRIVATE qelbase_compile)
qelbase_add_resources(plain_module platform/plain.rc)
if(NOT TARGET loadable_module)
  add_library(loadable_module MODULE outside/loadable.cpp)
  target_link_libraries(loadable_module PRIVATE qelbase_compile)
endif()
target_compile_definitions(test_platform PRIVATE PLAIN_MODULE="$<TARGET_FILE:plain_module>"
                                                 LOADABLE_MODULE="$<TARGET_FILE:loadable_module>")
add_dependencies(test_platform plain_module loadable_module)

# Help: a viewer that records what it is asked for, the real one, and a program that shows help as a
# user's would, through the shared library.
add_library(recording_viewer MODULE platform/recording_viewer.cpp)
target_link_libraries(recording_viewer PRIVATE qelbase_compile)
add_library(crashing_viewer MODULE platform/crashing_viewer.cpp)
target_compile_options(crashing_viewer PRIVATE -fno-sanitize=all)
add_executable(show_help platform/show_help.cpp)
target_link_libraries(show_help PRIVATE qelbase qelbase_compile)
target_compile_definitions(
  test_platform PRIVATE RECORDING_VIEWER="$<TARGET_FILE:recording_viewer>"
                        CRASHING_VIEWER="$<TARGET_FILE:crashing_viewer>"
                        HELP_VIEWER="$<TARGET_FILE:qelhelp>" SHOW_HELP="$<TARGET_FILE:show_help>"
                        HELPERS="$<TARGET_FILE_DIR:clipboard_owner>")
add_dependencies(test_platform recording_viewer crashing_viewer show_help qelhelp clipboard_owner)

# The service that the tests of services install.
add_executable(service_program platform/service_program.cpp)
target_link_libraries(service_program PRIVATE qelbase_internal)
target_compile_definitions(test_platform
                           PRIVATE SERVICE_PROGRAM_W=L"$<TARGET_FILE:service_program>")
add_dependencies(test_platform service_program)
