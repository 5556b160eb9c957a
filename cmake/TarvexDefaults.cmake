# What every target of the project is built with.

set(CMAKE_CXX_STANDARD 23)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# The build tree is laid out like an installed one, so that the library finds its resources the same way in both.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")

find_program(TARVEX_CCACHE ccache)
if(TARVEX_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    # What ccache must overlook before it takes a precompiled header.
    set(CMAKE_CXX_COMPILER_LAUNCHER
        "${CMAKE_COMMAND}" -E env CCACHE_SLOPPINESS=pch_defines,time_macros "${TARVEX_CCACHE}")
endif()

# Faster, but a source that forgot an #include builds nevertheless: so the debug build goes without. Optimised builds go
# without as well: g++ 12 then warns of the standard library's own insides.
option(TARVEX_PRECOMPILE_HEADERS "Precompile what most sources of the library include" OFF)
function(tarvex_precompile_headers target)
    if(TARVEX_PRECOMPILE_HEADERS)
        target_precompile_headers(${target} PRIVATE
            <algorithm> <array> <chrono> <condition_variable> <expected> <filesystem> <functional> <map> <memory> <mutex>
            <optional> <ranges> <span> <string> <thread> <variant> <vector> ${ARGN})
    endif()
endfunction()

# For the presets of the project's own development: a later compiler's warnings must stop nobody else's build.
option(TARVEX_WARNINGS_ARE_ERRORS "Treat warnings as errors" OFF)
add_library(tarvex_warnings INTERFACE)
target_compile_options(tarvex_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
    $<$<BOOL:${TARVEX_WARNINGS_ARE_ERRORS}>:-Werror>)

set(TARVEX_SANITIZE "" CACHE STRING "Sanitizers to build with: address,undefined or thread")
if(TARVEX_SANITIZE)
    add_compile_options(-fsanitize=${TARVEX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${TARVEX_SANITIZE})
endif()
