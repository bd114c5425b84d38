# What `cmake --install` puts where: the library, its headers below include/KXPublisher, the files by which CMake and
# pkg-config find them; with `--component Programs`, kx-host, kx-collector and kx-fleet; with `--component GObject`, what
# bindings/gobject has. The target `uninstall` takes it away again.
include(CMakePackageConfigHelpers)

set(headers ${CMAKE_INSTALL_INCLUDEDIR}/KXPublisher)
set(package ${CMAKE_INSTALL_LIBDIR}/cmake/KXPublisher)
set(pkgconfig ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# ---- The library, and the simulated device

install(TARGETS KXPublisher EXPORT KXPublisherTargets
  FRAMEWORK DESTINATION ${CMAKE_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT KXPublisherTargets NAMESPACE KXPublisher:: DESTINATION ${package})
if(NOT KX_BUILD_SHARED AND KX_PLATFORM STREQUAL linux)
  # A shared library knows where it is; what an archive is linked into does not.
  install(CODE "if(NOT CMAKE_INSTALL_PREFIX STREQUAL \"${CMAKE_INSTALL_PREFIX}\")
    message(NOTICE \"KXPublisher: the archive will look for its table of places below ${CMAKE_INSTALL_PREFIX}; \"
      \"configure with -DCMAKE_INSTALL_PREFIX=\${CMAKE_INSTALL_PREFIX} to have it found here\")
  endif()")
endif()
set(test_kits)
foreach(test_kit KXPublisherSimulated KXPublisherTestKit)
  if(TARGET ${test_kit})
    list(APPEND test_kits ${test_kit})
  endif()
endforeach()
if(test_kits)
  install(TARGETS ${test_kits} EXPORT KXPublisherSimulatedTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(EXPORT KXPublisherSimulatedTargets NAMESPACE KXPublisher:: DESTINATION ${package})
endif()

# Not those for Objective-C elsewhere, and not those that the framework brings.
set(others_headers gobject)  # bindings/gobject installs its own
if(NOT KX_PLATFORM STREQUAL apple)
  list(APPEND others_headers KXPublisher.h KXPublisherClasses.h KXPublisherConstants.h testkit)
elseif(KX_BUILD_SHARED)
  list(APPEND others_headers KXPublisher.h KXPublisherClasses.h KXPublisherConstants.h)
else()
  install(FILES include/module.modulemap DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(FILES packaging/ios/PrivacyInfo.xcprivacy DESTINATION ${CMAKE_INSTALL_DATADIR}/KXPublisher)
endif()
if(NOT KX_PLATFORM STREQUAL linux)
  list(APPEND others_headers linux)
endif()
list(TRANSFORM others_headers REPLACE "(.+)" "PATTERN;\\1;EXCLUDE")
install(DIRECTORY include/KXPublisher/ DESTINATION ${headers} ${others_headers})

# ---- For CMake

configure_package_config_file(cmake/KXPublisherConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/KXPublisherConfig.cmake
  INSTALL_DESTINATION ${package})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/KXPublisherConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/KXPublisherConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/KXPublisherConfigVersion.cmake
  DESTINATION ${package})

# ---- For pkg-config

file(RELATIVE_PATH KX_PREFIX_FROM_PKGCONFIG /${pkgconfig} /)  # an installed tree may be moved
set(KX_PKGCONFIG_PACKAGES zlib)
if(KX_PLATFORM STREQUAL linux)
  set(KX_PKGCONFIG_PACKAGES "gio-2.0 zlib")
  if(NOT KX_BUILD_SHARED)
    string(APPEND KX_PKGCONFIG_PACKAGES " libcurl")  # which a shared library opens by itself
  endif()
endif()
# An archive's host links what the archive needs, and the C++ library if the host itself is in C.
set(KX_PKGCONFIG_REQUIRES Requires)
set(KX_PKGCONFIG_LIBS " -lstdc++ -lm -pthread")
if(KX_BUILD_SHARED)
  set(KX_PKGCONFIG_REQUIRES Requires.private)
  set(KX_PKGCONFIG_LIBS "\nLibs.private: -lstdc++ -lm -pthread")
endif()
if(NOT KX_PLATFORM STREQUAL apple)  # where libraries are frameworks, which pkg-config knows nothing of
  foreach(name KXPublisher KXPublisherSimulated)
    configure_file(cmake/${name}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc DESTINATION ${pkgconfig})
  endforeach()
endif()

# ---- The programs, and the way back

foreach(program kx-host kx-collector kx-fleet)
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Programs EXCLUDE_FROM_ALL)
  endif()
endforeach()
if(TARGET kx-fleet)
  install(DIRECTORY tools/fleet/scenarios DESTINATION ${CMAKE_INSTALL_DATADIR}/kx-fleet
    COMPONENT Programs EXCLUDE_FROM_ALL)
endif()
if(PROJECT_IS_TOP_LEVEL)
  add_custom_target(uninstall
    COMMAND ${CMAKE_COMMAND} -D KX_BINARY_DIR=${PROJECT_BINARY_DIR} -P ${PROJECT_SOURCE_DIR}/cmake/KXUninstalling.cmake
    VERBATIM)
endif()
