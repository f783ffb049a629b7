#!/usr/bin/env bash
# Creates the Wine prefix named by $WINEPREFIX once, and keeps a wineserver
# running for it. Safe to call from several processes at once.
set -uo pipefail
: "${WINEPREFIX:?}"
export WINEDEBUG=${WINEDEBUG:--all}
mkdir -p "$(dirname "$WINEPREFIX")"

exec 9>"$WINEPREFIX.lock"
flock 9
if [ ! -e "$WINEPREFIX/.zk-ready" ]; then
  rm -rf "$WINEPREFIX"
  # No Mono or Gecko: they would be offered for download and are not needed.
  WINEDLLOVERRIDES="mscoree,mshtml=" wineboot -i >/dev/null 2>&1 9>&-
  # Headless: windows exist (tests create them) but nothing is drawn.
  wine reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f >/dev/null 2>&1 9>&-
  wineserver -w 9>&-
  [ -e "$WINEPREFIX/system.reg" ] || { echo "wine-prefix: cannot create $WINEPREFIX" >&2; exit 1; }
  touch "$WINEPREFIX/.zk-ready"
fi
# A persistent server makes every later program start in milliseconds.
# It is stopped by scripts/test.sh (wineserver -k) or after 30 idle seconds.
# When this call starts the server, it also starts Wine's background
# processes (services.exe, winedevice.exe, ...) here, with no inherited
# output: started by a test program they would keep CTest's pipe open.
if wineserver -p 30 </dev/null >/dev/null 2>&1 9>&-; then
  wine cmd.exe /c exit 0 </dev/null >/dev/null 2>&1 9>&-
fi
exit 0
