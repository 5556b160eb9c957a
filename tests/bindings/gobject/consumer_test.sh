#!/bin/sh
# Installs the library into an empty prefix, moves it, then builds and runs the example hosts against it as a stranger
# would: with pkg-config, with valac, and from Python.
# usage: consumer_test.sh BUILD-TREE SOURCES PYTHON
set -eu

build=$1
examples=$2/examples
python=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
mv "$work/prefix" "$work/moved"
libdir=$(dirname "$(find "$work/moved" -name 'libtarvex-glib-0.so')")
export PKG_CONFIG_PATH="$libdir/pkgconfig" XDG_DATA_HOME="$work/home" DBUS_SESSION_BUS_ADDRESS=disabled:
unset LD_LIBRARY_PATH

refuses() {
    said=$(echo n | "$@" 2>&1)
    case "$said" in *"The user has to consent to the tracking."*) ;; *) echo "$said" >&2 && exit 1 ;; esac
}
# The library that it links finds the others beside itself.
# shellcheck disable=SC2046  # lists of words
cc -Wall -Wextra -Wno-unused-parameter -Werror "$examples/c_host/main.c" -o "$work/c_host" "-Wl,-rpath,$libdir" \
    $(pkg-config --cflags --libs tarvex-glib-0)
refuses "$work/c_host"
# As C++ and as C99, the headers are whole by themselves.
for header in tarvex-glib-0/tarvex-glib.h tarvex-gtk-glib-0/tarvex-gtk-glib.h tarvex-testing-glib-0/tarvex-testing-glib.h; do
    for language in c++ c; do
        # shellcheck disable=SC2046
        echo "#include <${header#*/}>" | cc -x "$language" -Wall -Wextra -Werror -fsyntax-only \
            $(pkg-config --cflags "${header%/*}") -
    done
done
XDG_DATA_DIRS="$work/moved/share:/usr/local/share:/usr/share" valac --quiet --pkg=tarvex-glib-0 \
    "$examples/vala_host/main.vala" -o "$work/vala_host" -X -w -X "-Wl,-rpath,$libdir"
refuses "$work/vala_host"
mkdir "$work/empty"
said=$(cd "$work/empty" && LD_LIBRARY_PATH="$libdir" GI_TYPELIB_PATH="$libdir/girepository-1.0" "$python" -c '
import gi
gi.require_version("Tarvex", "0")
gi.require_version("TarvexGtk", "0")
gi.require_version("TarvexTesting", "0")
from gi.repository import Tarvex, TarvexGtk, TarvexTesting
print(Tarvex.Client, TarvexGtk.ConsentScreen, TarvexTesting.Backend)')
case "$said" in *ConsentScreen*) ;; *) echo "$said" >&2 && exit 1 ;; esac

# Nothing but the C interface is exported, and the project's own libraries know nothing of it.
for library in "$libdir"/libtarvex-*glib-0.so; do
    nm -D --defined-only "$library" | awk '{print $3}' >"$work/exported"
    test -s "$work/exported"
    if grep -v '^tarvex_' "$work/exported"; then
        echo "$library exports what is no function of the C interface." >&2
        exit 1
    fi
done
for library in libtarvex libtarvex_testing libtarvex_camera libtarvex_gtk; do
    if ldd "$libdir/$library.so" | grep -e '-glib-0'; then
        echo "$library links the layer that is built on it." >&2
        exit 1
    fi
done
