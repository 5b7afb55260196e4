# A shared object that tests load, with its own version, an entry under a number, and one thing that it
# takes from another.
add_library(loadable_module MODULE outside/loadable.cpp)
target_link_libraries(loadable_module PRIVATE qelbase_compile)
target_compile_definitions(test_outside PRIVATE LOADABLE_MODULE="$<TARGET_FILE:loadable_module>")
add_dependencies(test_outside loadable_module)
