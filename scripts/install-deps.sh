#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the tools need. Idempotent: the package
# lists are refreshed only when something is missing.
set -euo pipefail

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
    SUDO="sudo"
fi

packages=(
    cmake g++ make pkg-config
    libjsoncpp-dev
    android-liblog-dev android-libcutils-dev android-libutils-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    clang-format
)

# Extra sets, named on the command line.
for set_name in "$@"; do
    case "$set_name" in
        arm)
            # Cross build for 32-bit ARM, tests run under qemu-arm.
            if ! dpkg --print-foreign-architectures | grep -qx armhf; then
                ${SUDO:-} dpkg --add-architecture armhf
            fi
            packages+=(g++-arm-linux-gnueabihf qemu-user
                       libjsoncpp-dev:armhf android-liblog-dev:armhf android-libcutils-dev:armhf
                       android-libutils-dev:armhf libgtest-dev:armhf libgmock-dev:armhf)
            ;;
        fuzz)
            packages+=(clang libclang-rt-14-dev)
            ;;
        lint)
            packages+=(clang-tidy)
            ;;
        tools)
            packages+=(valgrind parallel)
            ;;
        *)
            echo "install-deps: unknown set '$set_name' (known: arm, fuzz, lint, tools)" >&2
            exit 2
            ;;
    esac
done

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
export DEBIAN_FRONTEND=noninteractive
${SUDO:-} apt-get update -qq || true  # a transient error on one index must not stop the install
${SUDO:-} apt-get install -y -qq --no-install-recommends "${missing[@]}"
