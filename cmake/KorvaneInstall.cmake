# What is installed beside the programs: the core as a C++ library, and units for the user's service manager.
include(CMakePackageConfigHelpers)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/Korvane)
configure_package_config_file(cmake/KorvaneConfig.cmake.in KorvaneConfig.cmake INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(KorvaneConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/KorvaneConfig.cmake
    ${PROJECT_BINARY_DIR}/KorvaneConfigVersion.cmake
    cmake/KorvaneCoreDependencies.cmake
  DESTINATION ${package_folder} COMPONENT development)
install(EXPORT Korvane FILE KorvaneTargets.cmake NAMESPACE Korvane:: DESTINATION ${package_folder}
  COMPONENT development)
install(DIRECTORY KRCrypto KorvaneCore DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/korvane COMPONENT development
  FILES_MATCHING PATTERN "*.hpp" PATTERN internal EXCLUDE)

install(FILES cmake/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/korvane COMPONENT runtime)
install(FILES cmake/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/korvane-dev COMPONENT development)

# Units name the program's place, which is known when it is installed. The user's manager looks for them below every
# data folder: ~/.local/share, /usr/local/share, /usr/share.
foreach(unit korvane.service korvane-service.service)
  set(unit_template ${PROJECT_SOURCE_DIR}/cmake/units/${unit}.in)
  install(CODE "
    set(KORVANE_PROGRAM \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/korvane\")
    set(unit \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/systemd/user/${unit}\")
    message(STATUS \"Installing: \${unit}\")
    configure_file(\"${unit_template}\" \"\${unit}\" @ONLY)"
    COMPONENT runtime)
endforeach()
