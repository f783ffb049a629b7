#!/usr/bin/env bash
# Checks the shipped DLL: only Windows system DLLs imported, exactly the 24
# action exports (undecorated), a version resource, no symbols left in.
set -euo pipefail
dll=$1
objdump=x86_64-w64-mingw32-objdump
fail() { echo "FAIL: $*"; exit 1; }

imports=$($objdump -p "$dll" | sed -n 's/^\s*DLL Name: //p' | tr 'A-Z' 'a-z' | sort -u)
allowed="advapi32.dll kernel32.dll msvcrt.dll user32.dll"
for d in $imports; do
  [[ " $allowed " == *" $d "* ]] || fail "imports $d"
done
echo "imports: $(echo $imports)"

exports=$($objdump -p "$dll" | sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' | sed -n 's/^\s*\[ *[0-9]*\] //p' | sort)
expected=$(printf '%s\n' CoreInstall CoreUninstall CoreRepair CoreRollback CoreForcedClearanceUninstall \
  CoreRegCleanup CoreCheckReboot CoreCheckRollback CoreCheckUninstall CoreCheckRMbehave CoreInstallReaders \
  CoreInstallReadersEx CoreRemoveReaders CoreRemoveReadersEx CoreCheckSessions CoreCheckUncompatibleApp \
  CoreCheckWindowsFileProtection CoreMSITest CoreStoreProps PKIInstall PKIRegInstall PKIRemove \
  CoreSetWinLog PKISetWinLog | sort)
[ "$exports" = "$expected" ] || fail "exports differ: $(diff <(echo "$expected") <(echo "$exports") | tr '\n' ' ')"
echo "exports: $(echo "$exports" | wc -l) names"

$objdump -h "$dll" | grep -q '\.rsrc' || fail "no resource section"
if $objdump -h "$dll" | grep -q '\.debug_'; then fail "debug sections left in"; fi
if $objdump -t "$dll" 2>/dev/null | grep -q '(sec  *[0-9]*)(fl 0x00)(ty *20)'; then fail "function symbols left in"; fi
echo "OK"
