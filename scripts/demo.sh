#!/usr/bin/env bash
# The main job: builds the library and the runner, then calls steps through
# the runner in a fresh Wine prefix and prints the result codes and the log.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/bootstrap.sh
cmake --preset mingw >/dev/null
cmake --build --preset mingw --target zKCoreInst zkrun

export ZK_WINEPREFIX=$PWD/build/mingw/wine-demo
rm -rf "$ZK_WINEPREFIX" "$ZK_WINEPREFIX.lock"
trap 'WINEPREFIX=$ZK_WINEPREFIX wineserver -k 2>/dev/null || true' EXIT
run() {
  echo
  echo "== zkrun $*"
  scripts/wine-run.sh build/mingw/zkrun.exe --log "$@"
}

echo "Fresh Wine prefix: $ZK_WINEPREFIX"
# The pre-install checks and the flag round trip of a check step.
run CoreCheckSessions 0 out
run CoreCheckRollback 0
echo
echo "== flag Rollback=1 set, as an interrupted installation leaves it"
WINEPREFIX=$ZK_WINEPREFIX WINEDEBUG=-all wine reg add 'HKLM\Software\Brevant\Zenkey\MIDDLEWARE\Install' \
  /v Rollback /t REG_DWORD /d 1 /f /reg:64 >/dev/null
run CoreCheckRollback 0
