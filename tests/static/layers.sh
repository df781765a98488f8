#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT
#
# Checks the sources against the two tables of ARCHITECTURE.md, section "Layers":
#   layers.sh SOURCE_DIR              every file belongs to a unit; every unit includes lower layers
#                                     only, and stands in the lowest layer that this allows; the
#                                     service kit stands above the core, and each of its sources
#                                     includes its own header first
#   layers.sh --self-test SOURCE_DIR  breaks copies of the sources; each fault has to be found

set -euo pipefail

table_file=ARCHITECTURE.md
lowest_kit_layer=7
declare -A layer_of=()  # of a unit; the base is layer -1
declare -A group_of=()  # of a unit: the units in one pair of backticks, itself included
declare -A unit_named=() # by the name in lower case
declare -A owner_of=()  # of a file name that the second table lists: its unit
declare -A has_files=() # a unit that has a row in the second table
declare -A unit_of=()   # of a file
declare -A highest=()   # of a group: the highest layer that it includes
declare -A is_of_kit=() # a unit with files below service/
declare -A needs=()     # "UNIT UNIT": the first includes the second, of the same group
faults=0

fault() {
    printf '%s\n' "$*" >&2
    faults=$((faults + 1))
}

# The rows of the section's tables: their first two cells, separated by a tab.
table_rows() {
    sed -nE '/^## Layers$/,/^## [^L]/s/^\| ([^|]+) \| ([^|]+) \|.*/\1\t\2/p' "$table_file"
}

# in_backticks TEXT: what stands between backticks, one per line.
in_backticks() { grep -oE '`[^`]+`' <<<"$1" | tr -d '`'; }

add_units() {
    local layer=$1 group unit
    [[ $layer != base ]] || layer=-1
    while read -r group; do
        for unit in $group; do
            [[ -z ${layer_of[$unit]-} ]] || fault "$table_file: $unit has two places"
            layer_of[$unit]=$layer
            group_of[$unit]=$group
            unit_named[${unit,,}]=$unit
        done
        highest[$group]=-1
    done < <(in_backticks "$2")
}

add_files() {
    local unit=$1 name
    [[ -n ${layer_of[$unit]-} ]] || fault "$table_file: $unit has files, and no layer"
    [[ -z ${has_files[$unit]-} ]] || fault "$table_file: $unit has two rows of files"
    has_files[$unit]=1
    while read -r name; do
        [[ -z ${owner_of[$name]-} ]] || fault "$table_file: $name is listed twice"
        owner_of[$name]=$unit
        [[ -n $(find include/kez src -name "$name") ]] || fault "$table_file: there is no $name"
    done < <(in_backticks "$2")
}

read_tables() {
    local first second
    while IFS=$'\t' read -r first second; do
        if [[ $first =~ ^(base|[0-9]+)$ ]]; then
            add_units "$first" "$second"
        elif [[ $first == '`'* ]]; then
            add_files "${first//'`'/}" "$second"
        fi
    done < <(table_rows)
}

# A file belongs to the unit that lists it, or else to the one that it is named after.
place_files() {
    local file name stem unit
    local -A has_file=()
    while read -r file; do
        name=${file##*/}
        stem=${name%.*}
        stem=${stem%_p}
        unit=${owner_of[$name]-${unit_named[$name]-${unit_named[${stem,,}]-}}}
        if [[ -z $unit ]]; then
            fault "$file: belongs to no unit of $table_file; list it there with its unit's files"
            continue
        fi
        unit_of[$file]=$unit
        has_file[$unit]=1
        [[ $file != */service/* ]] || is_of_kit[$unit]=1
    done < <(find include/kez src -name '*.h' -o -name '*.cpp' | sort)
    for unit in "${!layer_of[@]}"; do
        [[ -n ${has_file[$unit]-} ]] || fault "$table_file: $unit has no file"
    done
}

# resolve FILE NAME: sets `target` to the project's file that `#include NAME` means in FILE; to
# nothing for a system's.
resolve() {
    local candidate
    for candidate in "${1%/*}/$2" "include/$2" "src/$2" "include/kez/$2"; do
        target=$candidate
        [[ ! -f $candidate ]] || return 0
    done
    target=
}

check_include() {
    local file=$1 number=$2 name=$3 target unit=${unit_of[$1]} other layer
    resolve "$file" "$name"
    if [[ -z $target ]]; then
        [[ $name != kez/* && $name != *_p.h ]] || fault "$file:$number: there is no $name"
        return
    fi
    other=${unit_of[$target]-}
    [[ -n $other && $other != "$unit" ]] || return 0 # a file without a unit is a fault already
    if [[ ${group_of[$other]} == "${group_of[$unit]}" ]]; then
        needs[$unit $other]=1
        return
    fi
    layer=${layer_of[$other]}
    ((layer < layer_of[$unit])) ||
        fault "$file:$number: layer ${layer_of[$unit]} includes $name of layer $layer"
    ((layer <= highest[${group_of[$unit]}])) || highest[${group_of[$unit]}]=$layer
}

check_file() {
    local file=$1 number name
    while IFS=$'\t' read -r number name; do
        check_include "$file" "$number" "$name"
    done < <(sed -nE '/^[[:blank:]]*#[[:blank:]]*include[[:blank:]]*[<"]/{=;s/^[^<"]*[<"]([^>"]*)[>"].*/\1/p}' \
        "$file" | paste - -)
}

# own_header FILE: the header of that name, public or private, or else that of the file's unit.
own_header() {
    local stem=${1##*/} name candidate
    for name in "${stem%.cpp}" "${unit_of[$1],,}"; do
        for candidate in "kez/service/$name.h" "service/${name}_p.h"; do
            if [[ -f include/$candidate || -f src/$candidate ]]; then
                echo "$candidate"
                return
            fi
        done
    done
}

# A header that is included first has to include all that it needs.
check_first() {
    local file=$1 own
    [[ $file == src/service/*.cpp ]] || return 0
    own=$(own_header "$file")
    [[ $(grep -m1 -A1 '^#include' "$file"; echo .) == "#include \"$own\""$'\n\n.' ]] ||
        fault "$file: has to include \"$own\" first, and then a blank line"
}

check_lowest() {
    local group=$1 unit=${1%% *} lowest=$((highest[$1] + 1))
    ((layer_of[$unit] >= 0)) || return 0
    if [[ -n ${is_of_kit[$unit]-} ]]; then
        ((lowest >= lowest_kit_layer)) || lowest=$lowest_kit_layer
        ((layer_of[$unit] >= lowest)) || fault "$group: the kit's units stand in layer $lowest or above"
    elif ((layer_of[$unit] >= lowest_kit_layer)); then
        fault "$group: has no files below service/"
    fi
    if ((layer_of[$unit] > lowest)); then
        fault "$group: stands in layer ${layer_of[$unit]}, and could stand in layer $lowest"
    fi
}

# Units that share a place must need each other, directly or through one another.
check_group() {
    local group=$1 from over to
    for over in $group; do
        for from in $group; do
            for to in $group; do
                [[ -z ${needs[$from $over]-} || -z ${needs[$over $to]-} ]] || needs[$from $to]=1
            done
        done
    done
    for from in $group; do
        for to in $group; do
            [[ $from == "$to" || -n ${needs[$from $to]-} ]] ||
                fault "$group: share a place, but $from does not need $to"
        done
    done
}

check_tree() {
    cd "$1"
    local file group
    read_tables
    place_files
    while read -r file; do
        check_file "$file"
        check_first "$file"
    done < <(printf '%s\n' "${!unit_of[@]}" | sort)
    for group in "${!highest[@]}"; do
        check_lowest "$group"
        check_group "$group"
    done
    if ((faults > 0)); then
        echo "$faults faults in the layers" >&2
        exit 1
    fi
    echo "${#unit_of[@]} files of ${#layer_of[@]} units, each in its lowest layer"
}

# expect_fault TEXT: the check fails on ./broken, and says TEXT.
expect_fault() {
    local output
    if output=$("$self" broken 2>&1); then
        echo "Not found: $1" >&2
        exit 1
    fi
    grep -qF -- "$1" <<<"$output" || { printf 'Expected: %s\nbut got:\n%s\n' "$1" "$output" >&2; exit 1; }
    echo "found: $1"
}

# fresh_copy: ./broken becomes a sound copy of the sources.
fresh_copy() {
    rm -rf broken
    mkdir broken
    cp -r "$source_dir/include" "$source_dir/src" "$source_dir/$table_file" broken
}

# redraw SED-SCRIPT: changes the tables, and nothing else; fails if it does not.
redraw() {
    fresh_copy
    sed -i -E "$1" "broken/$table_file"
    ! cmp -s "$source_dir/$table_file" "broken/$table_file" || { echo "No effect: $1" >&2; exit 1; }
}

break_sources() {
    local line
    fresh_copy
    echo '#include <kez/log.h>' >>broken/src/frame/exception.cpp
    line=$(wc -l <broken/src/frame/exception.cpp)
    expect_fault "src/frame/exception.cpp:$line: layer 0 includes kez/log.h of layer 4"

    fresh_copy
    sed -i '4i #  include "translator.h" // why not' broken/include/kez/exception.h
    expect_fault "include/kez/exception.h:4: layer 0 includes translator.h of layer 1"

    fresh_copy
    sed -i '1i #include "kez/memory.h"' broken/src/text/text.cpp
    expect_fault "src/text/text.cpp:1: layer 0 includes kez/memory.h of layer 0"

    fresh_copy
    echo '#include "kez/initlib.h"' >broken/src/queue/extra.cpp
    expect_fault "src/queue/extra.cpp: belongs to no unit of $table_file"

    fresh_copy
    rm broken/src/log/logring.cpp
    expect_fault "$table_file: there is no logring.cpp"

    fresh_copy
    sed -i '1i #include "nowhere_p.h"' broken/src/log/log.cpp
    expect_fault "src/log/log.cpp:1: there is no nowhere_p.h"

    fresh_copy
    sed -i '1i #include "service/kittexts_p.h"' broken/src/service/journal.cpp
    expect_fault 'src/service/journal.cpp: has to include "service/journal_p.h" first'

    fresh_copy
    sed -i 's,"kez/service/delivery.h",<kez/service/delivery.h>,' broken/src/service/delivery.cpp
    expect_fault 'src/service/delivery.cpp: has to include "kez/service/delivery.h" first'

    fresh_copy
    sed -i '/lineformatters.h/{n;/^$/d}' broken/src/service/lineformatters.cpp
    expect_fault 'lineformatters.cpp: has to include "kez/service/lineformatters.h" first, and then'
}

# move UNIT LAYER: puts a unit into another layer.
move() { redraw "/^\| [0-9]/s/ \`$1\`//; s/^(\| $2 \|)/\1 \`$1\`/"; }

break_tables() {
    move Logger 2
    expect_fault "layer 2 includes kez/properties.h of layer 2"
    move Logger 4
    expect_fault "Logger: stands in layer 4, and could stand in layer 3"
    move Log 6
    expect_fault "Log: stands in layer 6, and could stand in layer 4"

    move descriptor 0
    expect_fault "descriptor: the kit's units stand in layer 7 or above"

    redraw '/^\| 0 /s/`Text` `Memory`/`Text Memory`/'
    expect_fault "Text Memory: share a place, but Text does not need Memory"

    redraw '/^\| 0 /s/ `Memory`//'
    expect_fault "include/kez/memory.h: belongs to no unit of $table_file"

    redraw '/^\| 0 /s/`Memory`/`Memory` `Oblivion`/'
    expect_fault "$table_file: Oblivion has no file"

    redraw '/^\| 1 /s/`UrlHelper`/& `Text`/'
    expect_fault "$table_file: Text has two places"

    redraw 's/^\| `Text` \| .*/&\n&/'
    expect_fault "$table_file: Text has two rows of files"

    redraw 's/^(\| `Text` \| )/\1`kez.cpp` /'
    expect_fault "$table_file: kez.cpp is listed twice"
}

self_test() {
    source_dir=$(realpath "$1")
    self=$(realpath "${BASH_SOURCE[0]}")
    work=$(mktemp -d)
    trap 'rm -rf "$work"' EXIT
    cd "$work"

    fresh_copy
    "$self" broken >/dev/null
    break_sources
    break_tables
}

if [[ ${1-} == --self-test ]]; then
    self_test "$2"
else
    check_tree "$1"
fi
