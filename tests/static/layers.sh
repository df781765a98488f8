#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT
#
# Checks that no file includes one of a higher layer:
#   layers.sh SOURCE_DIR              every #include of include/kez and src against the table
#   layers.sh --self-test SOURCE_DIR  breaks copies of the sources; each fault has to be found
# Every file has a place in the table. A new file is added there, in the lowest layer that it can do
# with, not in the one that makes the check pass.

set -euo pipefail

# layer: files, x.h meaning include/kez/x.h and a/x.cpp meaning src/a/x.cpp
table='
0: kez_global.h dictionnary.h exception.h frame/exception.cpp
0: frame/keyvalue_p.h frame/lines_p.h frame/qtmessage_p.h i18n/systemlanguage_p.h i18n/bracketed_p.h
0: datewatcher.h text/datewatcher.cpp memory.h text/memory.cpp
0: metatype.h reflection/metatype.cpp
0: regexprovider.h text/regexprovider.cpp urlhelper.h text/urlhelper.cpp
0: text.h text/text.cpp text/textformat.cpp text/latin.cpp
0: randomgenerator.h ids/randomgenerator.cpp
0: iuidverifier.h ids/iuidverifier.cpp defaultuidverifier.h ids/defaultuidverifier.cpp
0: timehelper.h text/timehelper.cpp timestamphelper.h text/timestamphelper.cpp
0: queue/queuelisting_p.h queue/queuelisting.cpp
1: langbundle.h i18n/langbundle.cpp
1: translator.h i18n/translator.cpp frame/failure_p.h frame/sharedlibrary_p.h
1: uidgenerator.h ids/uidgenerator.cpp ids/uidwords_p.h
2: identity.h frame/kez.cpp
2: properties.h config/properties.cpp config/propertiesreader_p.h config/numberproperty_p.h
2: iconfigcontroller.h config/iconfigcontroller.cpp
2: metatypes.h reflection/metatypes.cpp
2: xmlelement.h xml/xmlelement.cpp xml/xmltree_p.h xml/xmltree.cpp
0: xml/prologue_p.h xml/prologue.cpp
2: simpledom.h xml/simpledom.cpp
2: filehelper.h text/filehelper.cpp
3: loggerlevel.h log/loggerlevel.cpp
3: logger.h log/logger.cpp log/logformatter.cpp log/loggerrotation.cpp log/loggerdescription.cpp
3: log/logring_p.h log/logring.cpp log/banner_p.h
3: loggerconfigcontroller.h log/loggerconfigcontroller.cpp
4: log.h log/log.cpp
5: i18n/languageswitch.cpp log/loggerfactory.cpp
5: configuration.h config/configuration.cpp
5: ConsumerAncestor.h queue/ConsumerAncestor.cpp
5: FileEntry.h queue/FileEntry.cpp
5: FilesQueue.h queue/FilesQueue.cpp
6: initlib.h frame/initlib.cpp
7: kez.h
'

declare -A layer_of=()
faults=0

fault() {
    printf '%s\n' "$*" >&2
    faults=$((faults + 1))
}

read_table() {
    local layer files file path
    while IFS=: read -r layer files; do
        for file in $files; do
            if [[ $file == */* ]]; then path=src/$file; else path=include/kez/$file; fi
            layer_of[$path]=$layer
            [[ -f $path ]] || fault "$path: in the table of layers, but there is no such file"
        done
    done <<<"$table"
}

# resolve FILE NAME: the project's file that `#include NAME` means in FILE; nothing for a system's.
resolve() {
    local candidate
    for candidate in "${1%/*}/$2" "include/$2" "src/$2" "include/kez/$2"; do
        if [[ -f $candidate ]]; then
            realpath --relative-to=. "$candidate"
            return
        fi
    done
}

check_file() {
    local file=$1 number name target
    local layer=${layer_of[$file]-}
    if [[ -z $layer ]]; then
        fault "$file: has no place in the table of layers"
        return
    fi
    while IFS=$'\t' read -r number name; do
        target=$(resolve "$file" "$name")
        if [[ -z $target ]]; then
            [[ $name != kez/* && $name != *_p.h ]] || fault "$file:$number: there is no $name"
            continue
        fi
        # A file with no place is reported when it is its own turn.
        if ((${layer_of[$target]:-0} > layer)); then
            fault "$file:$number: layer $layer includes $name of layer ${layer_of[$target]}"
        fi
    done < <(sed -nE '/^[[:blank:]]*#[[:blank:]]*include[[:blank:]]*[<"]/{=;s/^[^<"]*[<"]([^>"]*)[>"].*/\1/p}' \
        "$file" | paste - -)
}

check_tree() {
    cd "$1"
    read_table
    local file
    while read -r file; do
        check_file "$file"
    done < <(find include/kez src -name '*.h' -o -name '*.cpp' | sort)
    if ((faults > 0)); then
        echo "$faults faults in the layers" >&2
        exit 1
    fi
    echo "${#layer_of[@]} files, each in its layer"
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

# fresh_copy SOURCE_DIR: ./broken becomes a sound copy of the sources.
fresh_copy() {
    rm -rf broken
    mkdir broken
    cp -r "$1/include" "$1/src" broken
}

self_test() {
    local source_dir lines
    source_dir=$(realpath "$1")
    self=$(realpath "${BASH_SOURCE[0]}")
    work=$(mktemp -d)
    trap 'rm -rf "$work"' EXIT
    cd "$work"

    fresh_copy "$source_dir"
    "$self" broken >/dev/null

    echo '#include <kez/log.h>' >>broken/src/frame/exception.cpp
    lines=$(wc -l <broken/src/frame/exception.cpp)
    expect_fault "src/frame/exception.cpp:$lines: layer 0 includes kez/log.h of layer 4"

    fresh_copy "$source_dir"
    sed -i '4i #  include "translator.h" // why not' broken/include/kez/exception.h
    expect_fault "include/kez/exception.h:4: layer 0 includes translator.h of layer 1"

    fresh_copy "$source_dir"
    echo '#include "kez/initlib.h"' >broken/src/queue/extra.cpp
    expect_fault "src/queue/extra.cpp: has no place in the table of layers"

    fresh_copy "$source_dir"
    rm broken/src/log/log.cpp
    expect_fault "src/log/log.cpp: in the table of layers, but there is no such file"

    fresh_copy "$source_dir"
    sed -i '1i #include "nowhere_p.h"' broken/src/log/log.cpp
    expect_fault "src/log/log.cpp:1: there is no nowhere_p.h"
}

if [[ ${1-} == --self-test ]]; then
    self_test "$2"
else
    check_tree "$1"
fi
