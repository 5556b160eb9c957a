# tarvex_shared_library(TARGET NAME): a library that hosts link, as Tarvex::NAME.
set(TARVEX_VERSION_SCRIPT "${PROJECT_SOURCE_DIR}/cmake/tarvex.map")

function(tarvex_shared_library target name)
    add_library(Tarvex::${name} ALIAS ${target})
    set_target_properties(${target} PROPERTIES
        EXPORT_NAME ${name} VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
        LINKER_LANGUAGE CXX LINK_DEPENDS "${TARVEX_VERSION_SCRIPT}")
    # A host that defines a symbol of the same name must not receive the library's own calls.
    target_link_options(${target} PRIVATE
        -Wl,-Bsymbolic -Wl,--no-undefined "-Wl,--version-script=${TARVEX_VERSION_SCRIPT}")
endfunction()
