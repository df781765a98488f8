# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT
#
# shellcheck shell=bash
# Sourced by the scripts at the root: installs what they need.

# What the library, its tests and its examples need.
# shellcheck disable=SC2034 # for those who source this file
build_packages=(cmake g++ ninja-build qt6-base-dev)

# What the benchmarks need, and the libraries that they compare with.
# shellcheck disable=SC2034 # for those who source this file
benchmark_packages=(libbenchmark-dev python3 python3-matplotlib
    libboost-dev libboost-log-dev liblog4cplus-dev libpugixml-dev libspdlog-dev)

# require_packages PACKAGE...: installs the Debian packages that are missing, as root or through
# sudo. If neither is possible, prints the command to run and ends the script.
require_packages() {
    command -v dpkg-query >/dev/null || return 0 # not Debian: CMake says what it does not find
    local installed package missing=() as_root=()
    installed=$(dpkg-query -W -f='${db:Status-Status} ${Package}\n' "$@" 2>/dev/null) || true
    for package in "$@"; do
        grep -qxF "installed $package" <<<"$installed" || missing+=("$package")
    done
    ((${#missing[@]} > 0)) || return 0

    if (($(id -u) != 0)); then
        if ! may_use_sudo; then
            echo "These packages are missing: ${missing[*]}. Run this, then start again:" >&2
            echo "    su -c 'apt-get update && apt-get install -y ${missing[*]}'" >&2
            exit 1
        fi
        as_root=(sudo)
    fi
    echo "Installing: ${missing[*]}"
    "${as_root[@]}" apt-get -qq update
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq -y --no-install-recommends \
        -o DPkg::Lock::Timeout=120 -o Dpkg::Use-Pty=0 install "${missing[@]}" >/dev/null
}

# Asks for a password only if somebody can type one.
may_use_sudo() {
    command -v sudo >/dev/null || return 1
    if [[ -t 0 ]]; then sudo -v; else sudo -n true 2>/dev/null; fi
}
