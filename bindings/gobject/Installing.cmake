# Where GTK's own libraries put these files, too.
install(TARGETS KXPublisherGObject EXPORT KXPublisherGObject
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT KXPublisherGObject NAMESPACE KXPublisher:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/KXPublisher)
install(DIRECTORY ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/KXPublisher)

set(pkgconfig ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH KX_PREFIX_FROM_PKGCONFIG /${pkgconfig} /)  # an installed tree may be moved
configure_file(kx-publisher-1.0.pc.in kx-publisher-1.0.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kx-publisher-1.0.pc DESTINATION ${pkgconfig})

if(NOT KX_SANITIZE)
  install(FILES ${gir} DESTINATION ${CMAKE_INSTALL_DATADIR}/gir-1.0)
  install(FILES ${typelib} DESTINATION ${CMAKE_INSTALL_LIBDIR}/girepository-1.0)
  if(KX_VAPIGEN)
    install(FILES ${vapi} DESTINATION ${CMAKE_INSTALL_DATADIR}/vala/vapi)
  endif()
endif()
