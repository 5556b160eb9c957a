#!/bin/sh
# Installs the library into an empty prefix, then builds and runs hosts against it: with CMake, and with pkg-config.
# usage: consumer_test.sh BUILD-TREE TESTS
set -eu

build=$1
tests=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
libdir=$(dirname "$(find "$work/prefix" -name 'libtarvex.so')")

# An installation may be moved: nothing in it may lead back to where it was made.
mv "$work/prefix" "$work/moved"
libdir="$work/moved${libdir#"$work/prefix"}"

with_cmake() {
    cmake -G Ninja -S "$tests/$1" -B "$work/cmake/$1" -DCMAKE_PREFIX_PATH="$work/moved" >/dev/null
    cmake --build "$work/cmake/$1" >/dev/null
}
with_cmake consumer
mkdir "$work/first"
"$work/cmake/consumer/consumer" "$work/first"
with_cmake window_consumer
XDG_DATA_HOME="$work/first" "$work/cmake/window_consumer/window_consumer"
with_cmake camera_consumer
"$work/cmake/camera_consumer/camera_consumer" "$0"

# What the documents show compiles, and the terminal's host asks and takes no for an answer.
mkdir "$work/snippets"
cp "$tests"/snippets/* "$work/snippets"
"$work/snippets/extract" "$tests/.." "$work/snippets"
cmake -G Ninja -S "$work/snippets" -B "$work/cmake/snippets" -DCMAKE_PREFIX_PATH="$work/moved" >/dev/null
cmake --build "$work/cmake/snippets" >/dev/null
said=$(echo no | XDG_DATA_HOME="$work/snippets" "$work/cmake/snippets/terminal_host") && exit 1
[ "$(echo "$said" | grep -c -e 'Light Study' -e 'Why we ask.' -e 'Type yes to consent: ')" -eq 3 ]

export PKG_CONFIG_PATH="$libdir/pkgconfig" LD_LIBRARY_PATH="$libdir"
with_pkg_config() {
    mkdir -p "$work/make"
    cp -r "$tests/$1" "$work/make"
    make -s -C "$work/make/$1"
}
with_pkg_config consumer
mkdir "$work/second"
"$work/make/consumer/consumer" "$work/second"
with_pkg_config window_consumer
XDG_DATA_HOME="$work/second" "$work/make/window_consumer/window_consumer"
pkg-config --exists tarvex-camera
test -s "$work/moved/share/tarvex/face_models/LICENSE"
# The networks are looked for before the camera: that it names the camera says that it found them.
said=$(cd "$work" && PATH="$work/moved/bin:$PATH" tarvex calibrate --distance-cm 50 --device "$work/absent" 2>&1) && exit 1
[ "$said" = "Not calibrated: there is no camera $work/absent" ] || { echo "$said" >&2; exit 1; }

# What is missing is named, with the remedy; a core library alone is enough for a host of it.
for component in core core-development data; do
    cmake --install "$build" --prefix "$work/core" --component "$component" >/dev/null
done
mkdir "$work/asking"
printf 'cmake_minimum_required(VERSION 3.25)\nproject(Asking LANGUAGES CXX)\nfind_package(Tarvex ${WANTED} REQUIRED)\n' \
    >"$work/asking/CMakeLists.txt"
asking() {
    rm -rf "$work/cmake/asking"
    cmake -G Ninja -S "$work/asking" -B "$work/cmake/asking" -DCMAKE_PREFIX_PATH="$work/$1" -DWANTED="$2" 2>&1
}
expect_problem() {
    if said=$(asking "$1" "$2") || ! echo "$said" | tr -s ' \n' ' ' | grep -qF "$3"; then
        echo "find_package(Tarvex $2) does not say '$3' but: $said" >&2
        exit 1
    fi
}
version=$(pkg-config --modversion tarvex)
asking core "${version%.*}" >/dev/null
expect_problem core "${version%%.*}.99" "version: $version"
expect_problem core "COMPONENTS;bogus" 'has no component "bogus": it has camera, gtk and testing'
expect_problem core "COMPONENTS;camera" 'libtarvex-camera-dev, or from a build with TARVEX_BUILD_CAMERA=ON'
PKG_CONFIG_LIBDIR=$work expect_problem moved "COMPONENTS;gtk" 'needs pkg-config and GTK 4.8 or later'
core_libdir=$(dirname "$(find "$work/core" -name 'libtarvex.so')")
# shellcheck disable=SC2046  # a list of words
(cd "$work" && PKG_CONFIG_PATH="$core_libdir/pkgconfig" \
    && g++ -std=c++23 snippets/program2.cpp $(pkg-config --cflags --libs tarvex) -o core_host)
said=$(echo no | LD_LIBRARY_PATH=$core_libdir XDG_DATA_HOME="$work/core" "$work/core_host") && exit 1
[ -z "$(find "$work/core" -name '*camera*' -o -name '*gtk*' -o -name '*testing*')" ]

# A host may build the library itself. To configure it shows where the library will lie, and whether its model is there.
cmake -G Ninja -S "$tests/subproject" -B "$work/subproject" -DTARVEX_SOURCE_DIR="$tests/.." -DTARVEX_BUILD_GTK=OFF \
    -DTARVEX_BUILD_CAMERA=OFF >/dev/null
test -f "$(cat "$work/subproject/library_directory")/../share/tarvex/TrackingDataContainer.momd"

# A host that links the core library alone pulls in neither a toolkit nor vision code.
if ldd "$work/make/consumer/consumer" "$libdir/libtarvex.so" | grep -E 'libgtk|libgst|XNNPACK'; then
    echo "The core library links what only its modules may link." >&2
    exit 1
fi
# The check above can fail: the camera's library links both.
ldd "$libdir/libtarvex_camera.so" | grep -q libgst
ldd "$libdir/libtarvex_camera.so" | grep -q XNNPACK
