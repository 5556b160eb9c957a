#!/bin/sh
# Runs a command with a directory of its own in TARVEX_TEST_DIRECTORY.
# usage: in_own_directory.sh COMMAND...
set -eu
TARVEX_TEST_DIRECTORY=$(mktemp -d)
export TARVEX_TEST_DIRECTORY
trap 'rm -rf "$TARVEX_TEST_DIRECTORY"' EXIT
"$@"
