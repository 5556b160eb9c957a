#!/bin/sh
# Installs the library into an empty prefix, then builds and runs hosts against it: with CMake, and with pkg-config.
# usage: consumer_test.sh BUILD-TREE CONSUMER-PROJECT CAMERA-CONSUMER-PROJECT
set -eu

build=$1
project=$2
camera_project=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
libdir=$(dirname "$(find "$work/prefix" -name 'libtarvex.so')")

# An installation may be moved: nothing in it may lead back to where it was made.
mv "$work/prefix" "$work/moved"
libdir="$work/moved${libdir#"$work/prefix"}"

cmake -G Ninja -S "$project" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$work/moved" >/dev/null
cmake --build "$work/cmake" >/dev/null
mkdir "$work/first"
"$work/cmake/consumer" "$work/first"
XDG_DATA_HOME="$work/first" "$work/cmake/window_consumer"

mkdir "$work/make" "$work/second"
cp "$project"/* "$work/make"
PKG_CONFIG_PATH="$libdir/pkgconfig" make -s -C "$work/make"
LD_LIBRARY_PATH="$libdir" "$work/make/consumer" "$work/second"
XDG_DATA_HOME="$work/second" LD_LIBRARY_PATH="$libdir" "$work/make/window_consumer"

cmake -G Ninja -S "$camera_project" -B "$work/camera" -DCMAKE_PREFIX_PATH="$work/moved" >/dev/null
cmake --build "$work/camera" >/dev/null
"$work/camera/camera_consumer" "$0"
PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --exists tarvex-camera
test -s "$work/moved/share/tarvex/face_models/LICENSE"

# A host that links the core library alone pulls in neither a toolkit nor vision code.
if LD_LIBRARY_PATH="$libdir" ldd "$work/make/consumer" "$libdir/libtarvex.so" | grep -E 'libgtk|libgst|XNNPACK'; then
    echo "The core library links what only its modules may link." >&2
    exit 1
fi
# The check above can fail: the camera's library links both.
ldd "$libdir/libtarvex_camera.so" | grep -q libgst
ldd "$libdir/libtarvex_camera.so" | grep -q XNNPACK
