#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT
#
# Checks that every file names its owner and its licence, as the REUSE rules ask: in two SPDX lines
# of its own, or by a path in REUSE.toml.
#   licences.sh SOURCE_DIR

set -euo pipefail
cd "$1"

faults=0
fault() {
    printf '%s\n' "$*" >&2
    faults=$((faults + 1))
}

# What is tracked or will be; without git, everything except the build.
list_files() {
    git -c safe.directory='*' ls-files --cached --others --exclude-standard 2>/dev/null ||
        find . -type f -not -path './build/*' -not -path './.git/*' -printf '%P\n'
}

# The files that REUSE.toml covers.
shopt -s dotglob globstar nullglob
declare -A covered=()
while read -r pattern; do
    # shellcheck disable=SC2206 # a pattern on purpose
    files=($pattern)
    ((${#files[@]} > 0)) || fault "REUSE.toml: $pattern names no file"
    for file in "${files[@]}"; do covered[$file]=1; done
done < <(sed -n '/^path = \[/,/\]/p' REUSE.toml | grep -oE '"[^"]+"' | tr -d '"')

checked=0
declare -A used=()
while read -r file; do
    [[ -f $file && $file != LICENSES/* ]] || continue
    checked=$((checked + 1))
    head=$(head -n 10 "$file" | tr -d '\0')
    if [[ $head =~ SPDX-License-Identifier:\ ([A-Za-z0-9.-]+) ]]; then
        used[${BASH_REMATCH[1]}]=$file
        [[ $head == *"SPDX-FileCopyrightText: "* ]] || fault "$file: names no copyright"
        [[ -z ${covered[$file]-} ]] || fault "$file: has SPDX lines and a place in REUSE.toml"
    elif [[ -z ${covered[$file]-} ]]; then
        fault "$file: has no SPDX lines and no place in REUSE.toml"
    fi
done < <(list_files)

while read -r licence; do
    used[$licence]=REUSE.toml
done < <(sed -nE 's/^SPDX-License-Identifier = "(.*)"/\1/p' REUSE.toml)
for licence in "${!used[@]}"; do
    [[ -f LICENSES/$licence.txt ]] || fault "${used[$licence]}: LICENSES/$licence.txt is missing"
done
for text in LICENSES/*; do
    licence=$(basename "$text" .txt)
    [[ -n ${used[$licence]-} ]] || fault "$text: nothing uses this licence"
done

if ((faults > 0)); then
    echo "$faults faults" >&2
    exit 1
fi
echo "$checked files, each with its licence"
