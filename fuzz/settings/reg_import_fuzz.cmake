target_sources(reg_import_fuzz PRIVATE ${PROJECT_SOURCE_DIR}/tools/qel/reg_text.cpp
                                       ${PROJECT_SOURCE_DIR}/tools/qel/session.cpp)
target_include_directories(reg_import_fuzz PRIVATE ${PROJECT_SOURCE_DIR}/tools/qel)
