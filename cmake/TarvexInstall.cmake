# What a host gets: headers, shared libraries, the store's object model, CMake targets and pkg-config files.

include(CMakePackageConfigHelpers)

set(TARVEX_CMAKE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/Tarvex")
# pkg-config files find the prefix from where they lie, so that an installation can be moved.
file(RELATIVE_PATH TARVEX_PC_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" TARVEX_PC_PREFIX "${TARVEX_PC_PREFIX}")

# A fifth argument names the headers' own directory below the one of all headers.
function(tarvex_install_pkg_config name library requires description)
    set(TARVEX_PC_NAME "${name}")
    set(TARVEX_PC_LIBRARY "${library}")
    set(TARVEX_PC_REQUIRES "${requires}")
    set(TARVEX_PC_DESCRIPTION "${description}")
    set(TARVEX_PC_HEADERS "${ARGN}")
    configure_file("${PROJECT_SOURCE_DIR}/cmake/tarvex.pc.in" "${PROJECT_BINARY_DIR}/${name}.pc" @ONLY)
    install(FILES "${PROJECT_BINARY_DIR}/${name}.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
endfunction()

install(DIRECTORY include/tarvex TYPE INCLUDE FILES_MATCHING PATTERN "*.h")
install(FILES "${PROJECT_BINARY_DIR}/include/tarvex/version.h" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/tarvex")
install(FILES src/storage/TrackingDataContainer.momd DESTINATION "${CMAKE_INSTALL_DATADIR}/tarvex")

install(TARGETS tarvex EXPORT TarvexTargets)
install(EXPORT TarvexTargets NAMESPACE Tarvex:: DESTINATION "${TARVEX_CMAKE_DIR}")
tarvex_install_pkg_config(tarvex tarvex "" "${PROJECT_DESCRIPTION}")

install(TARGETS tarvex_testing EXPORT TarvexTestingTargets)
install(EXPORT TarvexTestingTargets NAMESPACE Tarvex:: FILE Tarvex-testing-targets.cmake DESTINATION "${TARVEX_CMAKE_DIR}")
tarvex_install_pkg_config(tarvex-testing tarvex_testing tarvex "Doubles of the platform's services for the tests of Tarvex hosts")

if(TARVEX_BUILD_CAMERA)
    install(TARGETS tarvex_camera EXPORT TarvexCameraTargets)
    install(EXPORT TarvexCameraTargets NAMESPACE Tarvex:: FILE Tarvex-camera-targets.cmake DESTINATION "${TARVEX_CMAKE_DIR}")
    tarvex_install_pkg_config(tarvex-camera tarvex_camera tarvex "Face tracking from a camera for Tarvex hosts")
    install(DIRECTORY "${TARVEX_FACE_MODELS}/" DESTINATION "${CMAKE_INSTALL_DATADIR}/tarvex/face_models" OPTIONAL)
endif()

if(TARVEX_BUILD_GTK)
    install(TARGETS tarvex_gtk EXPORT TarvexGtkTargets)
    install(EXPORT TarvexGtkTargets NAMESPACE Tarvex:: FILE Tarvex-gtk-targets.cmake DESTINATION "${TARVEX_CMAKE_DIR}")
    tarvex_install_pkg_config(tarvex-gtk tarvex_gtk "tarvex, gtk4 >= 4.8" "The consent screen of Tarvex for GTK 4 hosts")
endif()

if(TARVEX_BUILD_GOBJECT)
    include(TarvexInstallGobject)
endif()

configure_package_config_file(cmake/TarvexConfig.cmake.in "${PROJECT_BINARY_DIR}/TarvexConfig.cmake"
    INSTALL_DESTINATION "${TARVEX_CMAKE_DIR}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/TarvexConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/TarvexConfig.cmake" "${PROJECT_BINARY_DIR}/TarvexConfigVersion.cmake"
    DESTINATION "${TARVEX_CMAKE_DIR}")
