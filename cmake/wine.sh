#!/bin/sh
# Runs a Windows program under wine, in a prefix of the build tree: wine.sh PREFIX PROGRAM WORD...
WINEPREFIX=$1 WINEDEBUG=-all
export WINEPREFIX WINEDEBUG
shift
exec wine "$@"
