# Installs headers, library and the package that find_package(korv-navmesh) finds; programs install themselves.
include(CMakePackageConfigHelpers)

install(DIRECTORY modules/common/include/ modules/navmesh/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS korv_navmesh EXPORT korv-navmesh-targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(EXPORT korv-navmesh-targets NAMESPACE korv:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/korv-navmesh)
configure_package_config_file(cmake/korv-navmesh-config.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/korv-navmesh-config.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/korv-navmesh)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/korv-navmesh-config-version.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/korv-navmesh-config.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/korv-navmesh-config-version.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/korv-navmesh)
