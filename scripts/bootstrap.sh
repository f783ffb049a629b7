#!/usr/bin/env bash
# Installs the Debian packages the build and the Wine test bed need. Idempotent:
# when everything is present it only checks and returns.
set -euo pipefail

packages=(cmake ninja-build g++-mingw-w64-x86-64 wine wine64 wixl msitools googletest
          python3 binutils-mingw-w64-x86-64)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "bootstrap: installing ${missing[*]}"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# The posix thread model compilers are required (GoogleTest needs std::mutex).
for tool in x86_64-w64-mingw32-gcc-posix x86_64-w64-mingw32-g++-posix wine wineserver wixl msibuild; do
  command -v "$tool" >/dev/null || { echo "bootstrap: $tool is missing after install" >&2; exit 1; }
done
