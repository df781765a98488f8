#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT
#
# Runs the gate: run.sh PROGRAM

set -euo pipefail
program=$(realpath "$1")
export LANG=en_US.UTF-8
# shellcheck source=tests/support/service.sh
. "$(dirname "$(realpath "${BASH_SOURCE[0]}")")/../../tests/support/service.sh"

# end_service SIGNAL: the service ends with exit code 0.
end_service() {
    local status=0
    kill -s "$1" "$service"
    wait "$service" || status=$?
    service=
    ((status == 0)) || fail "exit code $status after SIG$1"
}

is_there() { [[ -e $1 ]]; }

mkdir incoming spool
expect_failure 'is that of the queue' "$program" spool spool
status=0
"$program" incoming 2>usage || status=$?
((status == 2)) && grep -q usage usage || fail "exit code $status for a wrong command line"

printf 'early\n' >incoming/early.txt
printf 'x' >incoming/upload.part
start_service "$program" incoming spool
wait_until is_there spool/early.txt
exec 3>incoming/late.txt
printf 'la' >&3
printf 'te\n' >&3
exec 3>&-
wait_until is_there spool/late.txt
[[ $(cat spool/early.txt spool/late.txt) == $'early\nlate' ]] || fail "half a file was handed on"
[[ $(ls incoming) == upload.part ]] || fail "in the incoming directory: $(ls incoming)"
end_service TERM

start_service "$program" --marker incoming spool
printf 'marked\n' >incoming/marked.txt
printf 'x' >incoming/waiting.txt
: >incoming/marked.txt.done
wait_until is_there spool/marked.txt
end_service INT
[[ $(ls incoming) == $'upload.part\nwaiting.txt' ]] || fail "left: $(ls incoming)"
