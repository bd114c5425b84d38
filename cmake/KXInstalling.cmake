# What `cmake --install` puts where: the library, its headers below include/KXPublisher, and the files by which CMake and
# pkg-config find them.
include(CMakePackageConfigHelpers)

set(targets KXPublisher)
if(NOT KX_PLATFORM STREQUAL simulated)
  list(APPEND targets KXPublisherSimulated)
endif()
install(TARGETS ${targets} EXPORT KXPublisher
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})

set(headers ${CMAKE_INSTALL_INCLUDEDIR}/KXPublisher)
set(others_headers KXPublisher.h KXPublisherConstants.h)  # Objective-C's
if(NOT KX_PLATFORM STREQUAL linux)
  list(APPEND others_headers linux)
endif()
list(TRANSFORM others_headers REPLACE "(.+)" "PATTERN;\\1;EXCLUDE")
install(DIRECTORY include/KXPublisher/ DESTINATION ${headers} ${others_headers})

set(package ${CMAKE_INSTALL_LIBDIR}/cmake/KXPublisher)
install(EXPORT KXPublisher NAMESPACE KXPublisher:: DESTINATION ${package})
configure_package_config_file(cmake/KXPublisherConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/KXPublisherConfig.cmake
  INSTALL_DESTINATION ${package})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/KXPublisherConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/KXPublisherConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/KXPublisherConfigVersion.cmake
  DESTINATION ${package})

set(pkgconfig ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH KX_PREFIX_FROM_PKGCONFIG /${pkgconfig} /)  # an installed tree may be moved
set(KX_PKGCONFIG_REQUIRES Requires)  # a static library's host links what it needs
if(BUILD_SHARED_LIBS)
  set(KX_PKGCONFIG_REQUIRES Requires.private)
endif()
configure_file(cmake/KXPublisher.pc.in ${CMAKE_CURRENT_BINARY_DIR}/KXPublisher.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/KXPublisher.pc DESTINATION ${pkgconfig})
