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
