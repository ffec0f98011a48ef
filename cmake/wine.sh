#!/bin/sh
# Runs a Windows program under wine, in a prefix of the build tree: wine.sh PREFIX PROGRAM WORD...
# Its output goes through a file: what wine leaves running would keep a pipe open for minutes.
WINEPREFIX=$1 WINEDEBUG=-all
export WINEPREFIX WINEDEBUG
shift
output=$(mktemp) || exit 1
wine "$@" >"$output" 2>&1 </dev/null
code=$?
cat "$output"
rm -f "$output"
exit $code
