# Headers, libraries and the package file that lets a host write find_package(orvane).
include(CMakePackageConfigHelpers)
install(EXPORT orvaneTargets NAMESPACE orvane::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/orvane)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/orvaneConfig.cmake.in
  ${PROJECT_BINARY_DIR}/orvaneConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/orvane
  PATH_VARS CMAKE_INSTALL_LIBEXECDIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/orvaneConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/orvaneConfig.cmake
  ${PROJECT_BINARY_DIR}/orvaneConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/orvane)
