target_sources(help_book_fuzz PRIVATE ${PROJECT_SOURCE_DIR}/tools/helpviewer/book.cpp)
target_include_directories(help_book_fuzz PRIVATE ${PROJECT_SOURCE_DIR}/tools/helpviewer)
