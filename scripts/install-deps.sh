#!/usr/bin/env bash
# Installs everything the build, the tests and the benchmarks need, from Debian 12's packages.
# Idempotent: when every package is present it only checks and returns.
set -euo pipefail

packages=(
    build-essential cmake ninja-build ccache pkg-config git
    clang-14 libclang-rt-14-dev clang-format
    libboost1.81-dev libboost-thread1.81-dev
    libtbb-dev
    libgtest-dev libgmock-dev libbenchmark-dev librapidcheck-dev
    libcli11-dev libfmt-dev libspdlog-dev nlohmann-json3-dev libxxhash-dev libsystemd-dev
    python3 diffutils findutils dpkg-dev file groff-base inotify-tools bash-completion
    debhelper lintian apt
)

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
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
        echo "install-deps: run this as root, or install sudo, to install the packages" >&2
        exit 1
    fi
    sudo_cmd=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -q
"${sudo_cmd[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
