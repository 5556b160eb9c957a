#!/bin/sh
# Each command and option that a program's help names stands in its manual page, and each key of the collector's
# configuration in the page of that.
# usage: manual_pages_test.sh MANUAL-PAGES PROGRAM...
set -eu

pages=$1
shift
missing=0
expect() { # PAGE WORD...
    page=$1
    shift
    [ $# -gt 0 ] || { echo "There is nothing to look for in $page." >&2; exit 1; }
    for word in "$@"; do
        if ! grep -qF -e "*$word*" "$page"; then
            echo "$page does not have $word" >&2
            missing=1
        fi
    done
}
for program in "$@"; do
    page=$pages/$(basename "$program").1.scd
    commands=$("$program" --help | sed -n '/^Subcommands:/,$s/^  \([a-z][a-z]*\) .*/\1/p')
    # shellcheck disable=SC2086  # lists of words
    expect "$page" $commands $("$program" --help | grep -oE -e '--[a-z-]+')
    for command in $commands; do
        # shellcheck disable=SC2046
        expect "$page" $("$program" "$command" --help | grep -oE -e '--[a-z-]+')
    done
    case "$program" in
        *collector)
            # shellcheck disable=SC2046
            expect "$pages/tarvex-collector.toml.5.scd" $("$program" --print-config | sed -n 's/^\([a-z_]*\) = .*/\1/p')
            ;;
    esac
done
exit "$missing"
