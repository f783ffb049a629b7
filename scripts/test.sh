#!/usr/bin/env bash
# The test command: installs what is missing, builds, and runs every test
# program under Wine through CTest. Exits non-zero on any failure.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/bootstrap.sh
cmake --preset mingw >/dev/null
cmake --build --preset mingw

export ZK_WINEPREFIX=${ZK_WINEPREFIX:-$PWD/build/mingw/wine}
stop_wine() {
  for prefix in "$ZK_WINEPREFIX" build/mingw/wine-*; do
    [ -d "$prefix" ] && WINEPREFIX=$(cd "$prefix" && pwd) wineserver -k 2>/dev/null || true
  done
}
trap stop_wine EXIT
ctest --preset mingw "$@"
