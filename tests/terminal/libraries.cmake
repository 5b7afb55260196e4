# The terminal's front-end is a library of the tools.
find_package(nlohmann_json REQUIRED)
target_link_libraries(test_terminal PRIVATE qel_terminal qelbase_internal nlohmann_json::nlohmann_json)
