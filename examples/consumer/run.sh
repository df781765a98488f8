#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT
#
# Runs the service with one consumer: run.sh PROGRAM

set -euo pipefail
program=$(realpath "$1")
# shellcheck source=tests/support/service.sh
. "$(dirname "$(realpath "${BASH_SOURCE[0]}")")/../../tests/support/service.sh"

# has_left NAME: the queue has deleted the file.
has_left() { [[ ! -e spool/$1 ]]; }

LANG=en_US.UTF-8 expect_failure "File [service.properties] doesn't exist" \
    "$program" service.properties

write_configuration
drop early.txt $'one\ntwo\n'
drop empty.txt
start_service "$program" service.properties
wait_until log_has "$directory/spool/early.txt: 2 lines"
wait_until log_has "$directory/spool/empty.txt: 0 lines"
drop late.txt $'one\n'
wait_until log_has "$directory/spool/late.txt: 1 lines"
for name in early.txt empty.txt late.txt; do
    wait_until has_left "$name"
done
stop_service TERM
(($(grep -c 'lines$' service-0.log) == 3)) || fail "a file is handled twice"

rm service-0.log
start_service "$program" service.properties
drop last.txt
wait_until has_left last.txt
stop_service INT
