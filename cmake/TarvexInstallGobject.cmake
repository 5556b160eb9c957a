# The layer for hosts in other languages: its libraries, C headers, descriptions and pkg-config files. Components: glib,
# gtk-glib and testing-glib; each with -development for C and Vala, and -introspection for Python and JavaScript.

function(tarvex_install_glib component target folder namespace requires description)
    get_target_property(name ${target} OUTPUT_NAME)
    # The project's own libraries lie beside these.
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "\$ORIGIN")
    install(TARGETS ${target} LIBRARY COMPONENT ${component} NAMELINK_COMPONENT ${component}-development)
    install(DIRECTORY bindings/gobject/${folder}/ DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/tarvex-glib-${TARVEX_GLIB_API}"
        COMPONENT ${component}-development FILES_MATCHING PATTERN "tarvex-*.h")
    tarvex_install_pkg_config(${component} ${name} ${name} "${requires}" "${description}" "/tarvex-glib-${TARVEX_GLIB_API}")
    if(NOT TARVEX_SANITIZE)
        set(full "${namespace}-${TARVEX_GLIB_API}")
        install(FILES "${PROJECT_BINARY_DIR}/share/gir-1.0/${full}.gir" DESTINATION "${CMAKE_INSTALL_DATADIR}/gir-1.0"
            COMPONENT ${component}-development)
        install(FILES "${PROJECT_BINARY_DIR}/lib/girepository-1.0/${full}.typelib"
            DESTINATION "${CMAKE_INSTALL_LIBDIR}/girepository-1.0" COMPONENT ${component}-introspection)
        install(FILES "${PROJECT_BINARY_DIR}/share/vala/vapi/${name}.vapi" "${PROJECT_BINARY_DIR}/share/vala/vapi/${name}.deps"
            DESTINATION "${CMAKE_INSTALL_DATADIR}/vala/vapi" COMPONENT ${component}-development)
    endif()
endfunction()

tarvex_install_glib(glib tarvex_glib core Tarvex "gio-2.0 >= 2.74"
    "Tarvex for hosts in C, Vala and introspected languages")
tarvex_install_glib(testing-glib tarvex_testing_glib testing TarvexTesting "tarvex-glib-${TARVEX_GLIB_API}"
    "Doubles for the tests of Tarvex hosts in C, Vala and introspected languages")
if(TARVEX_BUILD_GTK)
    tarvex_install_glib(gtk-glib tarvex_gtk_glib gtk TarvexGtk "tarvex-glib-${TARVEX_GLIB_API}, gtk4 >= 4.8"
        "The consent screen of Tarvex for GTK 4 hosts in C, Vala and introspected languages")
endif()
