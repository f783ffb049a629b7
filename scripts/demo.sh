#!/usr/bin/env bash
# The main job: builds the library, the runner and the fixture driver
# packages, then runs the install road in a fresh Wine prefix: the packages
# are staged into the setup folder, CoreInstall asks for three readers, and
# the devices, services, filter list and flags it left are printed, then the log.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/bootstrap.sh
cmake --preset mingw >/dev/null
cmake --build --preset mingw --target zKCoreInst zkrun zkdriverfixtures

export ZK_WINEPREFIX=$PWD/build/mingw/wine-demo
rm -rf "$ZK_WINEPREFIX" "$ZK_WINEPREFIX.lock"
trap 'WINEPREFIX=$ZK_WINEPREFIX wineserver -k 2>/dev/null || true' EXIT
reg() { WINEPREFIX=$ZK_WINEPREFIX WINEDEBUG=-all wine reg "$@" /reg:64 2>/dev/null | tr -d '\r' | grep -v '^$' || true; }

echo "Fresh Wine prefix: $ZK_WINEPREFIX"
scripts/wine-run.sh cmd /c exit >/dev/null 2>&1 || true
setup=$ZK_WINEPREFIX/drive_c/windows/system32/setup/Brevant/Zenkey
mkdir -p "$setup"
cp build/mingw/tests/fixtures/drivers/package/* "$setup/"
echo "Staged driver packages in C:\\windows\\system32\\setup\\Brevant\\Zenkey:" $(ls "$setup")

echo
echo "== zkrun CoreInstall 0 5 3 0 out 0 0 s:1   (three readers, clear-registry choice 1; Wine reports Windows 7, so the fake reader is added)"
scripts/wine-run.sh build/mingw/zkrun.exe --log CoreInstall 0 5 3 0 out 0 0 s:1 > /tmp/zk-demo.$$ 2>&1 || true
grep -E '^(result|out)' /tmp/zk-demo.$$

echo
echo "== Devices (HKLM\\SYSTEM\\CurrentControlSet\\Enum\\ROOT\\SMARTCARDREADER)"
reg query 'HKLM\SYSTEM\CurrentControlSet\Enum\ROOT\SMARTCARDREADER' /s | grep -iE 'SMARTCARDREADER\\[0-9]+$|HardwareID|Service'
echo
echo "== Services"
for s in bvsifdh zKSCFLT SCardSvr; do reg query "HKLM\\SYSTEM\\CurrentControlSet\\Services\\$s" /v ImagePath | grep -E 'Services|ImagePath' || echo "$s: not registered"; done
echo
echo "== Reader class filter list"
reg query 'HKLM\SYSTEM\CurrentControlSet\Control\Class\{50DD5230-BA8A-11D1-BF5D-0000F805F530}' /v UpperFilters
echo
echo "== Flags (HKLM\\Software\\Brevant\\Zenkey\\MIDDLEWARE\\Install)"
reg query 'HKLM\Software\Brevant\Zenkey\MIDDLEWARE\Install'
echo
echo "== Log of the call"
grep -vE '^(result|out)' /tmp/zk-demo.$$
rm -f /tmp/zk-demo.$$
