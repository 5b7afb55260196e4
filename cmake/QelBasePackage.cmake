# Debian packages of the three components, made by cpack (`./dev package`).
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qelbase)
set(CPACK_PACKAGE_CONTACT "QelBase maintainers <maintainers@qelbase.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package/documents.cmake)

set(CPACK_COMPONENTS_ALL library dev tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Programs of this build find this build's library.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/qelbase)

set(runtime libqelbase${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${runtime})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(control ${PROJECT_BINARY_DIR}/package)
file(WRITE ${control}/shlibs
     "libqelbase ${PROJECT_VERSION_MAJOR} ${runtime} (>= ${PROJECT_VERSION})\n")
file(WRITE ${control}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${control}/shlibs ${control}/triggers)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "${PROJECT_DESCRIPTION}
Tagged container files, file names, progress, settings, units, checksums and
platform services, told in Windows terms. This package runs programs that use
the library.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libqelbase-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${runtime} (= ${PROJECT_VERSION}), libboost-dev (>= 1.74)")
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS llvm) # qelbase_add_resources
set(CPACK_COMPONENT_DEV_DESCRIPTION "${PROJECT_DESCRIPTION} (headers)
Headers, the CMake package and the pkg-config file for building programs that
use the library.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME qelbase-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${runtime} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "Look at and change what QelBase keeps on the disk
The command line tool qel for tagged files, ini files, the registry,
checksums, version resources and temporary folders.")
include(CPack)
