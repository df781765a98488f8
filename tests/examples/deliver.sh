#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT
#
# Tests a program that delivers files to a queue's directory:
#   deliver.sh script SHELL SCRIPT     examples/deliver.sh, run by that shell
#   deliver.sh program PROGRAM         examples/deliver

set -euo pipefail
export LC_ALL=C.UTF-8 LANG=en_US.UTF-8

kind=$1
shift
producer=("$@")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

fail() {
    printf '%s\n' "$*" >&2
    exit 1
}

# expect STATUS TEXT ARGUMENT...: the producer ends like that, and says TEXT.
expect() {
    local status=0 wanted=$1 text=$2 output
    shift 2
    output=$("${producer[@]}" "$@" 2>&1) || status=$?
    ((status == wanted)) || fail "exit code $status, not $wanted, after: $*: $output"
    [[ $output == *"$text"* ]] || fail "expected: $text; but got: $output"
    [[ -z $(find spool/.kez/incoming -type f 2>/dev/null) ]] || fail "something is left after: $*"
}

# spool_has NAME...: exactly these files are visible.
spool_has() { [[ $(ls spool) == "$(printf '%s\n' "$@")" ]] || fail "in the spool: $(ls spool)"; }

mkdir -m 2770 spool
printf 'first\n' >order.xml
chmod 640 order.xml
expect 2 usage
expect 2 usage spool
expect 1 nowhere nowhere order.xml
expect 1 nothing spool nothing
[[ ! -e nowhere ]] || fail "a spool was made"
spool_has

expect 0 '' spool order.xml
spool_has order.xml
cmp order.xml spool/order.xml
[[ $(stat -c %a spool/order.xml spool/.kez spool/.kez/incoming | xargs) == '640 2770 2770' ]] ||
    fail "other rights: $(stat -c '%a %n' spool/order.xml spool/.kez spool/.kez/incoming)"
[[ $(stat -c %h spool/order.xml) == 1 ]] || fail "the file has another name"

printf 'second\n' >order.xml
expect 1 order.xml spool order.xml
[[ $(cat spool/order.xml) == first ]] || fail "a file was replaced"
printf 'odd\n' >$'-odd\nname'
expect 0 '' spool ./$'-odd\nname'
[[ $(cat spool/$'-odd\nname') == odd ]] || fail "the odd name is missing"
rm spool/-odd*
mkdir spool/directory directory
printf 'x' >directory.txt
expect 1 '' spool directory
mkfifo fifo
expect 1 '' spool fifo
rmdir spool/directory

if [[ $kind == script ]]; then
    expect 0 '' spool order.xml other.xml
    expect 2 name spool order.xml .hidden
    expect 2 name spool order.xml a/b
    expect 2 'not UTF-8' spool order.xml $'\xe9.xml'
    mkdir spool/taken
    expect 1 taken spool order.xml taken
    [[ -z $(ls spool/taken) ]] || fail "delivered into a directory"
    rmdir spool/taken
    spool_has order.xml other.xml
    # A signal in the middle leaves nothing.
    mkdir bin
    printf '#!/bin/sh\nkill -TERM $PPID\n' >bin/sync
    chmod +x bin/sync
    PATH=$work/bin:$PATH expect 143 '' spool order.xml late.xml
    spool_has order.xml other.xml
else
    expect 0 'order~2.xml' --fresh spool order.xml
    spool_has order.xml 'order~2.xml'
    printf 'a' >a.xml
    expect 1 'is taken' spool a.xml order.xml
    spool_has order.xml 'order~2.xml'
    expect 0 $'a.xml\norder~3.xml' --fresh spool a.xml order.xml
    printf 'x' >$'\xe9'
    expect 1 'not UTF-8' spool $'\xe9'
    expect 2 usage --other spool
    spool_has a.xml order.xml 'order~2.xml' 'order~3.xml'
fi
