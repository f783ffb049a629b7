#!/usr/bin/env bash
# The main job: builds the library, the runner, the host custom actions and
# the sample package, then in one fresh Wine prefix
#   1. runs the library's own road through the runner: the fixture driver
#      packages are staged, CoreInstall asks for three readers, CoreUninstall
#      and CoreRegCleanup remove them again;
#   2. runs the sample package's lifecycle through msiexec: install (three
#      readers), repair, major upgrade 4.50 -> 4.51, removal, and an
#      installation that fails after the drivers are in and rolls back.
# After each stage it prints the result code and what of the product the
# machine holds; decoys of another vendor are planted first and must stay.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/bootstrap.sh
cmake --preset mingw >/dev/null
cmake --build --preset mingw --target zKCoreInst zkrun zkdriverfixtures zkscardsvr zksample

export ZK_WINEPREFIX=$PWD/build/mingw/wine-demo
rm -rf "$ZK_WINEPREFIX" "$ZK_WINEPREFIX.lock"
trap 'WINEPREFIX=$ZK_WINEPREFIX wineserver -k 2>/dev/null || true' EXIT
win() { WINEPREFIX=$ZK_WINEPREFIX WINEDEBUG=-all wine "$@" 2>/dev/null | tr -d '\r'; }
reg() { win reg "$@" /reg:64 || true; }
winpath() { echo "Z:$(realpath "$1" | tr / '\\')"; }
class='HKLM\SYSTEM\CurrentControlSet\Control\Class\{50DD5230-BA8A-11D1-BF5D-0000F805F530}'

# What of the product (and of the decoys) the machine holds, a line each.
state() {
  local enum ids
  enum=$(reg query 'HKLM\SYSTEM\CurrentControlSet\Enum\ROOT\SMARTCARDREADER' /s)
  ids=$(echo "$enum" | awk 'tolower($1) == "hardwareid" {split($3, id, "\\\\0"); print toupper(id[1])}')
  echo "   readers *BVS0001: $(grep -cx '\*BVS0001' <<<"$ids" || true)," \
       "fake *BVS0009: $(grep -cx '\*BVS0009' <<<"$ids" || true)," \
       "bound to: $(echo "$enum" | awk '/ Service / {print $3}' | sort | uniq -c | xargs)"
  local services=""
  for s in BVSIFDH BVSUP zKSCFLT SCardSvr OtherSvc; do
    if reg query "HKLM\\SYSTEM\\CurrentControlSet\\Services\\$s" | grep -q ImagePath; then services+=" $s"; fi
  done
  echo "   services:${services:- none}"
  echo "   UpperFilters: $(reg query "$class" /v UpperFilters | awk '/UpperFilters/ {print $3}')"
  echo "   settings (MIDDLEWARE): $(reg query 'HKLM\Software\Brevant\Zenkey\MIDDLEWARE' | grep -c '^HKEY.*MIDDLEWARE\\' || true) keys;" \
       "flags: $(reg query 'HKLM\Software\Brevant\Zenkey\MIDDLEWARE\Install' | awk '/REG_DWORD/ {printf "%s=%s ", $1, $3}')"
  echo "   decoy Software\\Brevant\\Other: $(reg query 'HKLM\Software\Brevant\Other' /v Keep | awk '/Keep/ {print $3}')"
}
step() { echo; echo "== $1"; }
msiexec() { win cmd /c "msiexec $* /qn & echo result %ERRORLEVEL%" | grep '^result' || true; }

echo "Fresh Wine prefix: $ZK_WINEPREFIX"
scripts/wine-run.sh cmd /c exit >/dev/null 2>&1 || true
# A startable smart-card service (Wine has none) and the decoys of another vendor.
win sc create SCardSvr binPath= "$(winpath build/mingw/tests/fixtures/doubles/zkscardsvr.exe)" >/dev/null
win sc create OtherSvc binPath= 'C:\windows\system32\notepad.exe' >/dev/null
reg add "$class" /v UpperFilters /t REG_MULTI_SZ /d otherflt /f >/dev/null
reg add 'HKLM\Software\Brevant\Other' /v Keep /d decoy /f >/dev/null
step "Before anything"; state

echo; echo "# 1. The library's road through the runner"
setup=$ZK_WINEPREFIX/drive_c/windows/system32/setup/Brevant/Zenkey
mkdir -p "$setup" && cp build/mingw/tests/fixtures/drivers/package/* "$setup/"
step "zkrun CoreInstall 0 5 3 0 out 0 0 s:1   (three readers, clear-registry choice 1)"
scripts/wine-run.sh build/mingw/zkrun.exe CoreInstall 0 5 3 0 out 0 0 s:1 2>/dev/null | tr -d '\r'; state
step "zkrun CoreUninstall 5 0, then CoreRegCleanup 0"
scripts/wine-run.sh build/mingw/zkrun.exe CoreUninstall 5 0 2>/dev/null | tr -d '\r'
scripts/wine-run.sh build/mingw/zkrun.exe CoreRegCleanup 0 2>/dev/null | tr -d '\r'; state
rm -rf "$setup"

echo; echo "# 2. The sample package through msiexec"
pkg() { winpath "build/mingw/packaging/$1"; }
step "msiexec /i sample-4.50.msi ZK_READERS=3"; msiexec /i "$(pkg sample-4.50.msi)" ZK_READERS=3; state
step "repair: msiexec /i sample-4.50.msi REINSTALL=ALL REINSTALLMODE=omus"
msiexec /i "$(pkg sample-4.50.msi)" REINSTALL=ALL REINSTALLMODE=omus; state
step "major upgrade: msiexec /i sample-4.51.msi"; msiexec /i "$(pkg sample-4.51.msi)"; state
grep -a 'Ignore uninstall during upgrade' "$ZK_WINEPREFIX/drive_c/users/root/Temp/zKCoreInst.log" | tail -1 | sed 's/^/   log: /'
step "msiexec /x sample-4.51.msi"; msiexec /x "$(pkg sample-4.51.msi)"; state
step "msiexec /i sample-fail.msi ZK_READERS=2   (a step after the drivers fails)"
msiexec /i "$(pkg sample-fail.msi)" ZK_READERS=2; state
echo
echo "The library's log: $ZK_WINEPREFIX/drive_c/users/root/Temp/zKCoreInst.log"
