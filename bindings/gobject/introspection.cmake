# What interpreters and Vala need of a library: the GIR from its headers, and the typelib and the vapi from that.

find_program(G_IR_SCANNER g-ir-scanner REQUIRED)
find_program(G_IR_COMPILER g-ir-compiler REQUIRED)
find_program(VAPIGEN vapigen REQUIRED)

set(TARVEX_GIR_DIR "${PROJECT_BINARY_DIR}/share/gir-1.0")
set(TARVEX_VAPI_DIR "${PROJECT_BINARY_DIR}/share/vala/vapi")
set(TARVEX_BUILT_TYPELIB_DIR "${PROJECT_BINARY_DIR}/lib/girepository-1.0")
file(MAKE_DIRECTORY "${TARVEX_GIR_DIR}" "${TARVEX_VAPI_DIR}" "${TARVEX_BUILT_TYPELIB_DIR}")

# tarvex_introspect(TARGET FOLDER NAMESPACE PREFIX SYSTEM name… PACKAGES name…): describes the headers in FOLDER. SYSTEM:
# the system's namespaces in them; PACKAGES: their pkg-config names, which are Vala's as well. All but the first
# description include that.
function(tarvex_introspect target folder namespace prefix)
    cmake_parse_arguments(PARSE_ARGV 4 arg "" "" "SYSTEM;PACKAGES")
    get_target_property(package ${target} OUTPUT_NAME)
    set(gir "${TARVEX_GIR_DIR}/${namespace}-${TARVEX_GLIB_API}.gir")
    set(typelib "${TARVEX_BUILT_TYPELIB_DIR}/${namespace}-${TARVEX_GLIB_API}.typelib")
    set(vapi "${TARVEX_VAPI_DIR}/${package}.vapi")
    file(GLOB headers CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/${folder}/tarvex-*.h")
    string(REGEX REPLACE "-${TARVEX_GLIB_API}$" ".h" header "${package}")

    set(scanned ${arg_SYSTEM})
    list(TRANSFORM scanned PREPEND "--include=")
    set(packages ${arg_PACKAGES})
    list(TRANSFORM packages PREPEND "--pkg=")
    set(vapis ${packages})
    set(core "")
    if(NOT folder STREQUAL "core")
        set(core "${TARVEX_GIR_DIR}/Tarvex-${TARVEX_GLIB_API}.gir"
            "${TARVEX_VAPI_DIR}/tarvex-glib-${TARVEX_GLIB_API}.vapi")
        list(APPEND scanned "--include-uninstalled=${TARVEX_GIR_DIR}/Tarvex-${TARVEX_GLIB_API}.gir"
            "-I${CMAKE_CURRENT_SOURCE_DIR}/core")
        list(APPEND vapis "--pkg=tarvex-glib-${TARVEX_GLIB_API}")
    endif()

    add_custom_command(OUTPUT "${gir}"
        COMMAND "${CMAKE_COMMAND}" -E env "LD_LIBRARY_PATH=${CMAKE_LIBRARY_OUTPUT_DIRECTORY}"
            "${G_IR_SCANNER}" --quiet --warn-all --warn-error --no-libtool
            --namespace=${namespace} --nsversion=${TARVEX_GLIB_API}
            --identifier-prefix=${namespace} --symbol-prefix=${prefix}
            ${scanned} ${packages} --pkg-export=${package} --c-include=${header}
            "-I${CMAKE_CURRENT_SOURCE_DIR}/${folder}"
            "-L${CMAKE_LIBRARY_OUTPUT_DIRECTORY}" --library=${package} "--output=${gir}" ${headers}
        DEPENDS ${target} ${core} ${headers}
        COMMENT "Describing ${namespace}" VERBATIM)
    add_custom_command(OUTPUT "${typelib}"
        COMMAND "${G_IR_COMPILER}" "--includedir=${TARVEX_GIR_DIR}" "--output=${typelib}" "${gir}"
        DEPENDS "${gir}" VERBATIM)
    add_custom_command(OUTPUT "${vapi}"
        COMMAND "${VAPIGEN}" --quiet "--vapidir=${TARVEX_VAPI_DIR}" "--girdir=${TARVEX_GIR_DIR}" ${vapis}
            --library=${package} "--directory=${TARVEX_VAPI_DIR}" "${gir}"
        DEPENDS "${gir}" ${core} VERBATIM)
    add_custom_target(${target}_description ALL DEPENDS "${typelib}" "${vapi}")
    string(REPLACE ";" "\n" dependencies "${arg_PACKAGES}")
    if(core)
        string(APPEND dependencies "\ntarvex-glib-${TARVEX_GLIB_API}")
    endif()
    file(WRITE "${TARVEX_VAPI_DIR}/${package}.deps" "${dependencies}\n")
endfunction()
