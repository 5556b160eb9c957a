#!/bin/sh
# Installs the library into an empty prefix, then builds and runs a host against it: with CMake, and with pkg-config.
# usage: consumer_test.sh BUILD-TREE CONSUMER-PROJECT
set -eu

build=$1
project=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
libdir=$(dirname "$(find "$work/prefix" -name 'libtarvex.so')")

# An installation may be moved: nothing in it may lead back to where it was made.
mv "$work/prefix" "$work/moved"
libdir="$work/moved${libdir#"$work/prefix"}"

cmake -S "$project" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$work/moved" >/dev/null
cmake --build "$work/cmake" >/dev/null
mkdir "$work/first"
"$work/cmake/consumer" "$work/first"

mkdir "$work/make" "$work/second"
cp "$project"/* "$work/make"
PKG_CONFIG_PATH="$libdir/pkgconfig" make -s -C "$work/make"
LD_LIBRARY_PATH="$libdir" "$work/make/consumer" "$work/second"

# A host that links the core library alone pulls in neither a toolkit nor vision code.
if ldd "$libdir/libtarvex.so" | grep -E 'libgtk|libgst|XNNPACK'; then
    echo "The core library links what only its modules may link." >&2
    exit 1
fi
