# Help: a viewer that records what it is asked for, the real one, and a program that shows help as a
# user's would, through the shared library.
add_library(recording_viewer MODULE platform/recording_viewer.cpp)
target_link_libraries(recording_viewer PRIVATE qelbase_compile)
add_executable(show_help platform/show_help.cpp)
target_link_libraries(show_help PRIVATE qelbase qelbase_compile)
target_compile_definitions(
  test_platform PRIVATE RECORDING_VIEWER="$<TARGET_FILE:recording_viewer>"
                        HELP_VIEWER="$<TARGET_FILE:qelhelp>" SHOW_HELP="$<TARGET_FILE:show_help>"
                        HELPERS="$<TARGET_FILE_DIR:clipboard_owner>")
add_dependencies(test_platform recording_viewer show_help qelhelp clipboard_owner)
