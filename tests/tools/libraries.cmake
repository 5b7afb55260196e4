# The tool's own functions, for the tests that make its system calls fail.
target_link_libraries(test_tools PRIVATE qel_tag)
if(TARGET savepart)
  target_compile_definitions(test_tools PRIVATE SAVEPART_PROGRAM="$<TARGET_FILE:savepart>")
  add_dependencies(test_tools savepart)
endif()
