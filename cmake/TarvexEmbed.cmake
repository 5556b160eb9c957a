# tarvex_embed(TARGET FILE…): each text file as a constant of the same name, in the header `embedded/<FILE>.h`. A file of
# another place, named by its whole path, goes by its name alone.
function(tarvex_embed target)
    foreach(file ${ARGN})
        set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${file}")
        file(READ "${file}" TARVEX_EMBEDDED_TEXT)
        cmake_path(IS_ABSOLUTE file isElsewhere)
        if(isElsewhere)
            cmake_path(GET file FILENAME file)
        endif()
        string(MAKE_C_IDENTIFIER "${file}" TARVEX_EMBEDDED_NAME)
        file(CONFIGURE OUTPUT "embedded/${file}.h" @ONLY CONTENT
[[#pragma once

#include <string_view>

namespace tarvex::collector::embedded {

inline constexpr std::string_view @TARVEX_EMBEDDED_NAME@ = R"~embedded~(@TARVEX_EMBEDDED_TEXT@)~embedded~";

}  // namespace tarvex::collector::embedded
]])
    endforeach()
    target_include_directories(${target} PRIVATE "${CMAKE_CURRENT_BINARY_DIR}")
endfunction()
