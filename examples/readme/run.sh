#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT
#
# Runs the program of the README, which must be the very text that each README shows:
#   run.sh PROGRAM README...

set -euo pipefail
program=$(realpath "$1")
shift
source_file=$(dirname "$(realpath "${BASH_SOURCE[0]}")")/main.cpp
for readme in "$@"; do
    if ! diff <(sed -n '/^```cpp$/,/^```$/p' "$readme" | sed '1d;$d') \
        <(sed '1,/^\/\/ The program/d' "$source_file"); then
        echo "$readme shows another program than $source_file" >&2
        exit 1
    fi
done
# shellcheck source=tests/support/service.sh
. "${source_file%/*}/../../tests/support/service.sh"

signature='shared_ptr<Config> Config::load(const QString&, const QString&)'
LANG=en_US.UTF-8 expect_failure \
    "$signature -> File [service.properties] doesn't exist" "$program"
LANG=fr_FR.UTF-8 expect_failure \
    "$signature -> Le fichier [service.properties] n'existe pas" "$program"

write_configuration
drop early.xml
start_service "$program"
wait_until log_has 'waiting: early.xml'
drop late.xml
wait_until log_has 'arrived: late.xml'
stop_service TERM
grep -qF '| Service 1.0 |' service-0.log || fail "no banner"
(($(grep -c 'xml$' service-0.log) == 2)) || fail "a file is logged twice"
[[ -e spool/early.xml && -e spool/late.xml ]] || fail "a file is deleted"

rm service-0.log
start_service "$program"
wait_until log_has 'waiting: late.xml'
stop_service INT
