# KxPublisher-1.0.gir, made from the headers, the comments and the library; and what is made from it.
set(gir ${CMAKE_CURRENT_BINARY_DIR}/KxPublisher-1.0.gir)
set(typelib ${CMAKE_CURRENT_BINARY_DIR}/KxPublisher-1.0.typelib)

add_custom_command(OUTPUT ${gir}
  COMMAND ${CMAKE_COMMAND} -E env CC=${CMAKE_C_COMPILER} ${KX_G_IR_SCANNER} --quiet --warn-all --warn-error
    --sources-top-dirs=${PROJECT_SOURCE_DIR} --namespace=KxPublisher --nsversion=1.0 --identifier-prefix=Kx --symbol-prefix=kx
    --include=GObject-2.0 --pkg=gobject-2.0 --pkg-export=kx-publisher-1.0
    --c-include=KXPublisher/gobject/kx-publisher.h
    --cflags-begin -I${PROJECT_SOURCE_DIR}/include --cflags-end
    --library=KXPublisherGObject --library-path=$<TARGET_FILE_DIR:KXPublisherGObject>
    --library-path=$<TARGET_FILE_DIR:KXPublisher>
    --output=${gir}
    ${headers}/kx-constants.h ${headers}/kx-options.h ${headers}/kx-publisher.h ${sources}
  DEPENDS KXPublisherGObject ${headers}/kx-constants.h ${headers}/kx-options.h ${headers}/kx-publisher.h ${sources}
  COMMENT "Describing KXPublisherGObject for other languages" VERBATIM)
add_custom_command(OUTPUT ${typelib}
  COMMAND ${KX_G_IR_COMPILER} --output=${typelib} ${gir}
  DEPENDS ${gir} VERBATIM)
set(made ${gir} ${typelib})

if(KX_VAPIGEN)
  set(vapi ${CMAKE_CURRENT_BINARY_DIR}/kx-publisher-1.0.vapi)
  add_custom_command(OUTPUT ${vapi}
    COMMAND ${KX_VAPIGEN} --quiet --library=kx-publisher-1.0 --directory=${CMAKE_CURRENT_BINARY_DIR} ${gir}
    DEPENDS ${gir} VERBATIM)
  list(APPEND made ${vapi})
endif()
add_custom_target(KXPublisherIntrospection ALL DEPENDS ${made})

# The reference, as pages; made when it is asked for.
if(KX_GI_DOCGEN)
  set(reference ${CMAKE_CURRENT_BINARY_DIR}/reference)
  add_custom_command(OUTPUT ${reference}/index.html
    COMMAND ${KX_GI_DOCGEN} generate --quiet --fatal-warnings --no-namespace-dir
      --config=${CMAKE_CURRENT_SOURCE_DIR}/kx-publisher.toml --output-dir=${reference} ${gir}
    DEPENDS ${gir} ${CMAKE_CURRENT_SOURCE_DIR}/kx-publisher.toml VERBATIM)
  add_custom_target(KXPublisherReference DEPENDS ${reference}/index.html)
endif()
