#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT
#
# Compares what a library exports with libNAME.symbols, and checks how it is linked:
#   abi.sh LIBRARY VERSION            both checks, as the tests run them
#   abi.sh --update LIBRARY VERSION   writes libNAME.symbols again, after an intended change
# For the update, call: cmake --build --preset dev --target update_abi

set -euo pipefail
export LC_ALL=C

update=
if [[ $1 == --update ]]; then
    update=1
    shift
fi
library=$1 version=$2
base=${library##*/}
name=${base%%.so*}
symbols=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/$name.symbols

faults=0
fault() {
    printf '%s\n' "$*" >&2
    faults=$((faults + 1))
}

exported() {
    nm --dynamic --defined-only --demangle "$library" | cut -c 20- | sort -u
}

check_symbols() {
    local differences
    if ! differences=$(diff -U0 --label "$symbols" --label "$library" "$symbols" <(exported)); then
        grep -v '^@@' <<<"$differences" >&2
        fault "The exported symbols differ from $name.symbols"
    fi
}

check_file_names() {
    local folder
    folder=$(dirname "$library")
    [[ $(readlink "$folder/$name.so") == "$name.so.${version%%.*}" ]] ||
        fault "$name.so does not point to $name.so.${version%%.*}"
    [[ $(readlink "$folder/$name.so.${version%%.*}") == "$name.so.$version" ]] ||
        fault "$name.so.${version%%.*} does not point to $name.so.$version"
    [[ $base == "$name.so.$version" ]] || fault "the file is named $base"
}

check_linkage() {
    local dynamic headers stack
    dynamic=$(readelf --wide --dynamic "$library")
    headers=$(readelf --wide --program-headers "$library")
    grep -q "SONAME.*\[$name\.so\.${version%%.*}\]" <<<"$dynamic" || fault "wrong SONAME"
    grep -q 'FLAGS.*NOW' <<<"$dynamic" || fault "its symbols are not bound at load time"
    grep -q 'GNU_RELRO' <<<"$headers" || fault "its relocations stay writable"
    ! grep -q 'TEXTREL' <<<"$dynamic" || fault "its code has relocations"
    stack=$(grep 'GNU_STACK' <<<"$headers") || fault "it does not describe its stack"
    [[ $stack != *RWE* ]] || fault "it asks for an executable stack"
    if ldd -r "$library" 2>&1 | grep 'undefined symbol' >&2; then
        fault "it has undefined symbols"
    fi
}

if [[ -n $update ]]; then
    exported >"$symbols"
    echo "$(wc -l <"$symbols") symbols written to $symbols"
    exit 0
fi
check_symbols
check_file_names
check_linkage
if ((faults > 0)); then
    exit 1
fi
echo "$(wc -l <"$symbols") symbols, as listed"
