#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT
#
# Builds and runs the consumer project against the libraries:
#   consume.sh package|pkgconfig|subdirectory SOURCE_DIR BUILD_DIR
# The first two ways install BUILD_DIR into a temporary prefix; they try again after that prefix was
# moved.

set -euo pipefail

way=$1 source_dir=$2 build_dir=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# consume NAME CMAKE-ARGUMENT...: configures, builds and runs the project in a fresh directory.
consume() {
    local name=$1
    shift
    echo "---- $way: $name"
    cmake -G Ninja -S "$source_dir/tests/consumer" -B "$work/build-$name" -DKEZ_FROM="$way" "$@"
    cmake --build "$work/build-$name"
    "$work/build-$name/consumer"
    "$work/build-$name/service"
}

# consume_installed NAME PREFIX: the same with the installation below PREFIX.
consume_installed() {
    local name=$1 prefix=$2 pc library
    pc=$(find "$prefix" -name kez.pc)
    library=$(dirname "$(dirname "$pc")")
    case $way in
        package) consume "$name" -DCMAKE_PREFIX_PATH="$prefix" ;;
        pkgconfig)
            LD_LIBRARY_PATH=$library PKG_CONFIG_PATH=$(dirname "$pc") consume "$name"
            ;;
    esac
    if ! grep -q "LIBRARY.*=.*$prefix" "$work/build-$name/CMakeCache.txt" &&
        ! grep -q "Kez_DIR.*=$prefix" "$work/build-$name/CMakeCache.txt"; then
        echo "The project found the library outside of $prefix" >&2
        exit 1
    fi
    # A tree that may be moved does not hold its own path.
    if grep -rlF "$work" "$prefix"; then
        echo "These installed files hold an absolute path" >&2
        exit 1
    fi
}

if [[ $way == subdirectory ]]; then
    consume sources -DKEZ_SOURCE_DIR="$source_dir"
else
    cmake --install "$build_dir" --prefix "$work/prefix" >/dev/null
    consume_installed installed "$work/prefix"
    mv "$work/prefix" "$work/moved"
    consume_installed moved "$work/moved"
fi
