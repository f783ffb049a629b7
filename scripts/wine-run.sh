#!/usr/bin/env bash
# Runs one Windows program under Wine in the project's throw-away prefix.
# CTest uses it as CMAKE_CROSSCOMPILING_EMULATOR; people can use it by hand:
#   scripts/wine-run.sh build/mingw/tools/zkrun.exe CoreSetWinLog 0
#
# The prefix lives in $ZK_WINEPREFIX (default build/mingw/wine). It is created
# on first use, and a wineserver is kept alive so later programs start warm.
# A program whose name ends in -<version>.exe (nt40, win2k, winxp, winxp64,
# win2003, vista, win7, win10) sees that Windows version.
set -uo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
export WINEPREFIX=${ZK_WINEPREFIX:-$here/../build/mingw/wine}
export WINEDEBUG=${WINEDEBUG:--all}
export WINEARCH=win64
unset DISPLAY WAYLAND_DISPLAY

"$here/wine-prefix.sh" || exit 1

exe=$1; shift
name=$(basename "$exe")
if [[ $name =~ -(nt40|win2k|winxp|winxp64|win2003|vista|win7|win10)\.exe$ ]]; then
  marker="$WINEPREFIX/.zk-version-$name"
  if [ ! -e "$marker" ]; then
    wine reg add "HKCU\\Software\\Wine\\AppDefaults\\$name" /v Version /d "${BASH_REMATCH[1]}" /f >/dev/null 2>&1 &&
      touch "$marker"
  fi
fi

exec wine "$exe" "$@"
