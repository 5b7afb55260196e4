# Resources of the test program itself, and a shared object with resources of its own.
include(${PROJECT_SOURCE_DIR}/cmake/QelBaseResources.cmake)
qelbase_add_resources(test_text text/app.rc)
add_library(resource_module MODULE text/module.cpp)
target_link_libraries(resource_module PRIVATE qelbase_compile)
qelbase_add_resources(resource_module text/module.rc)
target_compile_definitions(test_text PRIVATE RESOURCE_MODULE="$<TARGET_FILE:resource_module>")
add_dependencies(test_text resource_module)
