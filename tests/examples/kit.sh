#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT
#
# Tests an example of the service kit and the page that is built around it:
#   kit.sh NAME PROGRAM SOURCE_DIR
# The program has at most 60 lines, stands in docs/NAME.md as it is, and prints NAME.out when it
# runs in an empty directory.

set -euo pipefail

name=$1 program=$2 source_dir=$3
source=$source_dir/examples/kit/$name.cpp
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    printf '%s: %s\n' "$name" "$1" >&2
    exit 1
}

lines=$(wc -l <"$source")
((lines <= 60)) || fail "$lines lines; at most 60 are meant"

# Without the two licence lines and the blank one after them.
tail -n +4 "$source" >"$work/program"
sed -n '/^```cpp$/,/^```$/{/^```/d;p}' "$source_dir/docs/$name.md" >"$work/shown"
diff -u "$work/program" "$work/shown" || fail "docs/$name.md does not show the program as it is"

mkdir "$work/empty"
cd "$work/empty"
timeout 60 "$program" >"$work/output" || fail "exit code $?"
diff -u "$source_dir/examples/kit/$name.out" "$work/output" || fail "prints something else"
