# Library, headers, tools, the CMake package and the pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS qelbase EXPORT QelBaseTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/qelbase DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h" PATTERN "*_internal.h" EXCLUDE)
install(EXPORT QelBaseTargets NAMESPACE QelBase:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/QelBase)

configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/QelBaseConfig.cmake.in ${PROJECT_BINARY_DIR}/QelBaseConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/QelBase)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QelBaseConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/QelBaseConfig.cmake
              ${PROJECT_BINARY_DIR}/QelBaseConfigVersion.cmake
              ${PROJECT_SOURCE_DIR}/cmake/QelBaseResources.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/QelBase)

# The file finds its prefix from its own place, so that the tree can be moved.
file(RELATIVE_PATH QELBASE_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(${PROJECT_SOURCE_DIR}/cmake/qelbase.pc.in ${PROJECT_BINARY_DIR}/qelbase.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/qelbase.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
