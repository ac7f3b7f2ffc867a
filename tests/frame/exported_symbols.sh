#!/bin/sh
# Compares the symbols that a library exports with a list, one a line.
# usage: exported_symbols.sh LIBRARY LIST
set -eu
# The version's own name, and what a sanitizer adds to a build, are no part of the interface.
found=$(nm -D --defined-only "$1" | sed -n 's/^[0-9a-f]* [A-Za-z] \([^@]*\).*$/\1/p' | grep -v -e '^ZVRDB_' -e '^__odr_asan' | LC_ALL=C sort -u)
wanted=$(LC_ALL=C sort -u "$2")
if [ "$found" != "$wanted" ]; then
  echo "exported symbols of $1 are not those of $2:"
  printf '%s\n' "$found" >"${TMPDIR:-/tmp}/exported.$$"
  diff "$2" "${TMPDIR:-/tmp}/exported.$$" || true
  rm -f "${TMPDIR:-/tmp}/exported.$$"
  exit 1
fi
