#!/bin/sh
# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT
#
# Writes files into a directory, as a script does that knows nothing of queues: under their final
# names, piece by piece, four at once. Their names come on the standard input, one a line. It says
# "again NAME" each time that it begins a file anew since the disk was full.
#
# A file holds its name, some text, and at the end the number and the SHA-256 of the bytes before.
#
#     producer.sh DIRECTORY PAUSE LONG-PAUSE      the pauses between two pieces, in seconds

cd "$1" || exit
pause=$2
long_pause=$3

# compose LINES: sets the pieces of the file $name.
compose() {
    second=
    line=0
    while [ "$line" -lt "$1" ]; do
        second="${second}line $line of a file that is written slowly, in full view
"
        line=$((line + 1))
    done
    first="$name
$second"
    sum=$(printf '%s' "$first$second" | sha256sum)
    third="end $((${#first} + ${#second})) ${sum%% *}"
}

write_pieces() {
    printf '%s' "$first" && sleep "$1" && printf '%s' "$second" && sleep "$pause" &&
        printf '%s\n' "$third"
} 2>/dev/null

# A file that cannot be finished is removed while it is open: nobody takes it for a whole one.
write_file() {
    name=$1
    compose "$2"
    until { write_pieces "$3" || { rm -f -- "$name" && false; }; } >"$name"; do
        echo "again $name"
        sleep "$long_pause"
    done
}

count=0
while read -r name; do
    count=$((count + 1))
    this_pause=$pause
    if [ $((count % 20)) -eq 0 ]; then this_pause=$long_pause; fi
    write_file "$name" $((count % 30)) "$this_pause" &
    if [ $((count % 4)) -eq 0 ]; then wait; fi
done
wait
