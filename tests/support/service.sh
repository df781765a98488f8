# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT
#
# shellcheck shell=bash
# Sourced by the scripts that run a service in a temporary directory, which is then the current one.

export LC_ALL=C.UTF-8 # what the C library and Qt use; the language of the texts comes from LANG

service=
directory=$(mktemp -d)
clean_up() {
    if [[ -n $service ]]; then kill -KILL "$service" 2>/dev/null || true; fi
    rm -rf "$directory"
}
trap clean_up EXIT
cd "$directory" || exit

fail() {
    printf '%s\n' "$*" >&2
    if [[ -e service-0.log ]]; then cat service-0.log >&2; fi
    exit 1
}

# expect_failure TEXT PROGRAM...: the program ends with exit code 1 and says TEXT.
expect_failure() {
    local text=$1 status=0 output
    shift
    output=$("$@" 2>&1) || status=$?
    ((status == 1)) || fail "exit code $status, not 1: $output"
    [[ $output == *"$text"* ]] || fail "expected: $text; but got: $output"
}

# The configuration "service.properties", and the spool.
write_configuration() {
    mkdir -p spool
    printf '%s\n' "log.filename=$directory/service.log" log.filter=info \
        "queue.path=$directory/spool" >service.properties
}

# A job in the background ignores SIGINT unless it is told otherwise.
start_service() {
    env --default-signal=INT "$@" &
    service=$!
}

# drop NAME [TEXT]: a file that is whole as soon as the queue can see it.
drop() {
    printf '%s' "${2-}" >"spool/.$1"
    mv "spool/.$1" "spool/$1"
}

is_running() { kill -0 "$service" 2>/dev/null; }
has_ended() { ! is_running; }

# wait_until COMMAND...: polls for a minute at most; a service that has ended does nothing more.
wait_until() {
    local limit=$((SECONDS + 60))
    until "$@"; do
        is_running || "$@" || fail "The service ended before: $*"
        ((SECONDS < limit)) || fail "Never happened: $*"
        sleep 0.05
    done
}

# log_has TEXT: whether some line of the log ends with it.
log_has() { [[ -e service-0.log ]] && grep -qE -- "> $1\$" service-0.log; }

# stop_service SIGNAL: the service ends with exit code 0, and "stopped" is its last line.
stop_service() {
    local status=0
    kill -s "$1" "$service"
    wait_until has_ended
    wait "$service" || status=$?
    service=
    ((status == 0)) || fail "exit code $status after SIG$1"
    [[ $(tail -n 1 service-0.log) == *"<INFOR> stopped" ]] || fail "no clean stop after SIG$1"
}
