# Debian packages: `korvane` with the programs, `korvane-dev` with the core as a C++ library. scripts/package builds them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR Korvane)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "End-to-end-encrypted file storage")
set(CPACK_PACKAGE_CONTACT "Korvane maintainers <maintainers@korvane.invalid>")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_SET_DESTDIR ON) # so that units name the program where it will be
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "The korvane command, the desktop widgets, a helper that moves parts for programs
which are stopped meanwhile, and a storage service for development.")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Headers, static libraries and a CMake package.")

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME korvane)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION net)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "ca-certificates, tzdata")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "adwaita-icon-theme, fonts-cantarell, xdg-utils")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME korvane-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
string(CONCAT CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "cmake, pkg-config, libargon2-dev, libboost1.81-dev, libboost-json1.81-dev, libboost-url1.81-dev, "
  "libcurl4-openssl-dev, libfmt-dev, libgdk-pixbuf-2.0-dev, libglib2.0-dev, libicu-dev, libmagic-dev, libplist-dev, "
  "libsecret-1-dev, libspdlog-dev, libsqlite3-dev, libssl-dev")
include(CPack)
