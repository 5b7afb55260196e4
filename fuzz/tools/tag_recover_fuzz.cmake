foreach(part tag_walk tag_check tag_copy tag_recover tag_search disk session)
  target_sources(tag_recover_fuzz PRIVATE ${PROJECT_SOURCE_DIR}/tools/qel/${part}.cpp)
endforeach()
