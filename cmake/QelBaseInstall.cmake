# Library, headers, tools, the CMake package and the pkg-config file, in three components: what runs
# programs (library), what builds them (dev), and the tool (tools).
include(CMakePackageConfigHelpers)

set(QELBASE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/QelBase)
install(TARGETS qelbase EXPORT QelBaseTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        COMPONENT library NAMELINK_COMPONENT dev)
install(TARGETS clipboard_owner RUNTIME DESTINATION ${CMAKE_INSTALL_LIBDIR}/qelbase
        COMPONENT library)
install(TARGETS qelhelp LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/qelbase COMPONENT library)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/qelbase DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        COMPONENT dev FILES_MATCHING PATTERN "*.h" PATTERN "*_internal.h" EXCLUDE)
install(EXPORT QelBaseTargets NAMESPACE QelBase:: DESTINATION ${QELBASE_CMAKE_DIR} COMPONENT dev)
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/QelBaseConfig.cmake.in ${PROJECT_BINARY_DIR}/QelBaseConfig.cmake
  INSTALL_DESTINATION ${QELBASE_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QelBaseConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/QelBaseConfig.cmake
              ${PROJECT_BINARY_DIR}/QelBaseConfigVersion.cmake
              ${PROJECT_SOURCE_DIR}/cmake/QelBaseResources.cmake
        DESTINATION ${QELBASE_CMAKE_DIR} COMPONENT dev)

# The file finds its prefix from its own place, so that the tree can be moved.
file(RELATIVE_PATH QELBASE_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(${PROJECT_SOURCE_DIR}/cmake/qelbase.pc.in ${PROJECT_BINARY_DIR}/qelbase.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/qelbase.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT dev)

if(QELBASE_BUILD_TOOLS)
  install(TARGETS qel RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/tools/qel/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
          COMPONENT tools FILES_MATCHING PATTERN "*.1" PATTERN CMakeFiles EXCLUDE)
  install(FILES ${PROJECT_BINARY_DIR}/tools/qel/qel.bash RENAME qel COMPONENT tools
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES ${PROJECT_BINARY_DIR}/tools/qel/qel.zsh RENAME _qel COMPONENT tools
          DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
endif()
