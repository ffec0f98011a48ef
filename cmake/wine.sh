#!/bin/sh
# Runs a Windows program under wine, in a prefix of the build tree: wine.sh PREFIX PROGRAM WORD...
# PREFIX.dlls, if it is there, has the DLLs for 32-bit programs.
# Its output goes through a file: what wine leaves running would keep a pipe open for minutes.
WINEPREFIX=$1 WINEDEBUG=-all
export WINEPREFIX WINEDEBUG
[ ! -d "$1.dlls" ] || export WINEDLLPATH="$1.dlls"
shift
output=$(mktemp) || exit 1
wine "$@" >"$output" 2>&1 </dev/null
code=$?
cat "$output"
rm -f "$output"
exit $code
