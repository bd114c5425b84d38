# `cmake --install BUILD --component GObject`: what hosts in other languages need beside the library itself, where GTK's own
# libraries put such files, too.
set(package ${CMAKE_INSTALL_LIBDIR}/cmake/KXPublisher)
set(pkgconfig ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(component COMPONENT GObject EXCLUDE_FROM_ALL)
set(KX_COMPONENTS ${KX_COMPONENTS} GObject PARENT_SCOPE)

install(TARGETS KXPublisherGObject EXPORT KXPublisherGObject LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} ${component})
install(EXPORT KXPublisherGObject FILE KXPublisherGObjectExport.cmake NAMESPACE KXPublisher:: DESTINATION ${package}
  ${component})
install(FILES KXPublisherGObjectTargets.cmake DESTINATION ${package} ${component})
install(DIRECTORY ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/KXPublisher ${component})

file(RELATIVE_PATH KX_PREFIX_FROM_PKGCONFIG /${pkgconfig} /)  # an installed tree may be moved
configure_file(kx-publisher-1.0.pc.in kx-publisher-1.0.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kx-publisher-1.0.pc DESTINATION ${pkgconfig} ${component})

if(NOT KX_SANITIZE)
  install(FILES ${gir} DESTINATION ${CMAKE_INSTALL_DATADIR}/gir-1.0 ${component})
  install(FILES ${typelib} DESTINATION ${CMAKE_INSTALL_LIBDIR}/girepository-1.0 ${component})
  if(KX_VAPIGEN)
    install(FILES ${vapi} DESTINATION ${CMAKE_INSTALL_DATADIR}/vala/vapi ${component})
  endif()
endif()
