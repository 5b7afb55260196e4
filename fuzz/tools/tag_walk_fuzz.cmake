target_sources(tag_walk_fuzz PRIVATE ${PROJECT_SOURCE_DIR}/tools/qel/tag_walk.cpp
                                     ${PROJECT_SOURCE_DIR}/tools/qel/tag_search.cpp
                                     ${PROJECT_SOURCE_DIR}/tools/qel/session.cpp)
