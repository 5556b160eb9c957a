# What a host gets: headers, shared libraries, the store's object model, CMake targets and pkg-config files.
# Components for `cmake --install --component`: core, camera, gtk and testing are the libraries; each with -development
# what hosts are built with; data, which core needs, and models, which camera needs; tools and collector.

include(CMakePackageConfigHelpers)

set(TARVEX_CMAKE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/Tarvex")
# pkg-config files find the prefix from where they lie, so that an installation can be moved.
file(RELATIVE_PATH TARVEX_PC_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" TARVEX_PC_PREFIX "${TARVEX_PC_PREFIX}")

# A sixth argument names the headers' own directory below the one of all headers.
function(tarvex_install_pkg_config component name library requires description)
    set(TARVEX_PC_NAME "${name}")
    set(TARVEX_PC_LIBRARY "${library}")
    set(TARVEX_PC_REQUIRES "${requires}")
    set(TARVEX_PC_DESCRIPTION "${description}")
    set(TARVEX_PC_HEADERS "${ARGN}")
    configure_file("${PROJECT_SOURCE_DIR}/cmake/tarvex.pc.in" "${PROJECT_BINARY_DIR}/${name}.pc" @ONLY)
    install(FILES "${PROJECT_BINARY_DIR}/${name}.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
        COMPONENT ${component}-development)
endfunction()

# A library, its CMake target and its pkg-config file.
function(tarvex_install component target name requires description)
    install(TARGETS ${target} EXPORT ${target}-targets
        LIBRARY COMPONENT ${component} NAMELINK_COMPONENT ${component}-development)
    set(targets TarvexTargets.cmake)
    if(NOT component STREQUAL core)
        set(targets Tarvex-${component}-targets.cmake)
    endif()
    install(EXPORT ${target}-targets NAMESPACE Tarvex:: FILE ${targets} DESTINATION "${TARVEX_CMAKE_DIR}"
        COMPONENT ${component}-development)
    tarvex_install_pkg_config(${component} ${name} ${target} "${requires}" "${description}")
endfunction()

tarvex_install(core tarvex tarvex "" "${PROJECT_DESCRIPTION}")
install(DIRECTORY include/tarvex TYPE INCLUDE COMPONENT core-development FILES_MATCHING PATTERN "*.h"
    PATTERN testing EXCLUDE PATTERN include/tarvex/camera.h EXCLUDE PATTERN include/tarvex/gtk.h EXCLUDE)
install(FILES "${PROJECT_BINARY_DIR}/include/tarvex/version.h" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/tarvex"
    COMPONENT core-development)
install(FILES src/storage/TrackingDataContainer.momd DESTINATION "${CMAKE_INSTALL_DATADIR}/tarvex" COMPONENT data)

if(TARVEX_BUILD_DOUBLES)
    tarvex_install(testing tarvex_testing tarvex-testing tarvex
        "Doubles of the platform's services for the tests of Tarvex hosts")
    install(DIRECTORY include/tarvex/testing DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/tarvex"
        COMPONENT testing-development)
endif()

if(TARVEX_BUILD_CAMERA)
    tarvex_install(camera tarvex_camera tarvex-camera tarvex "Face tracking from a camera for Tarvex hosts")
    install(FILES include/tarvex/camera.h DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/tarvex"
        COMPONENT camera-development)
    install(DIRECTORY "${TARVEX_FACE_MODELS}/" DESTINATION "${CMAKE_INSTALL_DATADIR}/tarvex/face_models"
        COMPONENT models OPTIONAL)
endif()

if(TARVEX_BUILD_GTK)
    tarvex_install(gtk tarvex_gtk tarvex-gtk "tarvex, gtk4 >= 4.8" "The consent screen of Tarvex for GTK 4 hosts")
    install(FILES include/tarvex/gtk.h DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/tarvex" COMPONENT gtk-development)
endif()

if(TARVEX_BUILD_GOBJECT)
    include(TarvexInstallGobject)
endif()

# Before 1.0, a minor version may break what the one before promised.
if(PROJECT_VERSION_MAJOR EQUAL 0)
    set(compatibility SameMinorVersion)
else()
    set(compatibility SameMajorVersion)
endif()
configure_package_config_file(cmake/TarvexConfig.cmake.in "${PROJECT_BINARY_DIR}/TarvexConfig.cmake"
    INSTALL_DESTINATION "${TARVEX_CMAKE_DIR}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/TarvexConfigVersion.cmake" COMPATIBILITY ${compatibility})
install(FILES "${PROJECT_BINARY_DIR}/TarvexConfig.cmake" "${PROJECT_BINARY_DIR}/TarvexConfigVersion.cmake"
    DESTINATION "${TARVEX_CMAKE_DIR}" COMPONENT core-development)
