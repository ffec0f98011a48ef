#!/bin/sh
# Compares what the shared library shows with the list of what it means to show.
# usage: exports.sh NM LIBRARY LIST
set -eu
nm=$1 library=$2 list=$3

# Names of classes and functions, without the "vtable for" and the like that stands before them.
shown=$("$nm" -D --defined-only -C "$library" | cut -d' ' -f3- |
  sed -E 's/^(vtable|VTT|typeinfo( name)?|guard variable|(non-)?virtual thunk) (for|to) //' | sort -u)
status=0

patterns=$(sed -nE 's/^[+?] //p' "$list")
strays=$(printf '%s\n' "$shown" | grep -vE "$(printf '%s' "$patterns" | paste -sd'|')" || true)
if [ -n "$strays" ]; then
  printf 'shown, but not on the list:\n%s\n' "$strays"
  status=1
fi

sed -n 's/^+ //p' "$list" | while read -r pattern; do
  printf '%s\n' "$shown" | grep -qE "$pattern" || echo "on the list, but not shown: $pattern"
done | { ! grep . ; } || status=1
exit $status
