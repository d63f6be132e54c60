# What `cmake --install` brings: header, library, CMake package (orva::driver) and pkg-config file.
include(CMakePackageConfigHelpers)

set(ORVA_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/orva_driver)

install(TARGETS orva_driver EXPORT orva_driver_targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(FILES ${PROJECT_SOURCE_DIR}/include/orva_driver.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(EXPORT orva_driver_targets NAMESPACE orva:: DESTINATION ${ORVA_CMAKE_DIR} COMPONENT development)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/orva_driver-config.cmake.in
  ${PROJECT_BINARY_DIR}/orva_driver-config.cmake INSTALL_DESTINATION ${ORVA_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/orva_driver-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/orva_driver-config.cmake
  ${PROJECT_BINARY_DIR}/orva_driver-config-version.cmake
  DESTINATION ${ORVA_CMAKE_DIR} COMPONENT development)

# The pkg-config file finds its prefix from its own place, so an installed tree can be moved.
file(RELATIVE_PATH ORVA_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(${PROJECT_SOURCE_DIR}/cmake/orva_driver.pc.in ${PROJECT_BINARY_DIR}/orva_driver.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/orva_driver.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
