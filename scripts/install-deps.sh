#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the tools need. Idempotent: the package
# lists are refreshed only when something is missing.
set -euo pipefail

packages=(
    cmake g++ make pkg-config
    libjsoncpp-dev
    android-liblog-dev android-libcutils-dev android-libutils-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    clang-format
)
packages+=("$@")

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$p")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

echo "install-deps: installing ${missing[*]}"
sudo=""
if [ "$(id -u)" -ne 0 ]; then
    sudo="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq || true  # a transient error on one index must not stop the install
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
