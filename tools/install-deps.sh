#!/usr/bin/env bash
# Installs with apt the packages the project builds and tests with; does
# nothing (and needs no network) when all of them are installed already.
set -euo pipefail

PACKAGES=(build-essential cmake pkg-config clang libgtest-dev libgmock-dev
          libbenchmark-dev libsnmp-dev snmpd snmp snmptrapd libsqlite3-dev
          libsystemd-dev libgoogle-perftools-dev
          # building and checking the Debian package (tests/packaging)
          dpkg-dev lintian mandoc man-db systemd)

missing=()
for pkg in "${PACKAGES[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$pkg")
    fi
done
if ((${#missing[@]} == 0)); then
    echo "packages: all installed"
    exit 0
fi

echo "packages: installing ${missing[*]}"
sudo=()
if [[ $(id -u) -ne 0 ]]; then
    sudo=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -q
"${sudo[@]}" apt-get install -y -q "${missing[@]}"
