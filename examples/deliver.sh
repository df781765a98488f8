#!/bin/sh
# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT
#
# Delivers a copy of a file to the directory of a queue, by hand. The queue sees it whole or not at
# all, and it replaces no other file.
#
#     deliver.sh DIRECTORY FILE [NAME]
#
# Exit codes: 0; 1 if nothing is delivered; 2 for a wrong command line; 3 if the file is delivered,
# but may not survive a power failure; more than 128 after a signal.

set -eu

fail() {
    printf '%s: %s\n' "${0##*/}" "$2" >&2
    exit "$1"
}

[ $# -eq 2 ] || [ $# -eq 3 ] || fail 2 'usage: deliver.sh DIRECTORY FILE [NAME]'
directory=$1 file=$2 name=${3:-${2##*/}}
case $name in
'' | .* | */*) fail 2 "a queue cannot have a file of that name: $name" ;;
esac
printf %s "$name" | iconv -f UTF-8 -t UTF-8 >/dev/null 2>&1 ||
    fail 2 "a queue cannot have a file whose name is not UTF-8: $name"
# A name such as "-x" is no option.
case $directory in /*) ;; *) directory=./$directory ;; esac
case $file in /*) ;; *) file=./$file ;; esac
[ -d "$directory" ] || fail 1 "no directory: $directory"
[ -f "$file" ] || fail 1 "no regular file: $file"

# What producers write grows here: hidden from the queue, on the same file system, with the same
# rights for everybody.
for place in "$directory/.kez" "$directory/.kez/incoming"; do
    if mkdir "$place" 2>/dev/null; then
        chmod --reference="$directory" "$place"
    fi
done

growing=
clean_up() {
    [ -z "$growing" ] || rm -f "$growing"
}
trap clean_up EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM

growing=$(mktemp "$directory/.kez/incoming/sh-$$-XXXXXXXXXX") || fail 1 "cannot write in $directory"
cp "$file" "$growing" || fail 1 "cannot copy $file"
chmod --reference="$file" "$growing"
sync "$growing" || fail 1 "cannot write $file to the disk"

# A link never replaces, and is there all at once. mv would replace, or look first and then rename.
ln -T "$growing" "$directory/$name" || fail 1 "cannot deliver $name"
rm -f "$growing"
sync "$directory" || fail 3 "delivered, but not yet on the disk: $name"
