#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT
#
# Runs the program of the README with its configuration: run.sh PROGRAM README...
# Each README must show exactly the program's text.

set -euo pipefail
program=$(realpath "$1")
shift
source_file=$(dirname "$(realpath "${BASH_SOURCE[0]}")")/main.cpp

# block LANGUAGE README: the block of that language.
block() { sed -n "/^\`\`\`$1\$/,/^\`\`\`\$/p" "$2" | sed '1d;$d'; }

for readme in "$@"; do
    if ! diff <(block cpp "$readme") <(sed '1,/^\/\/ The program/d' "$source_file"); then
        echo "$readme shows another program than $source_file" >&2
        exit 1
    fi
    configuration=$(block properties "$readme")
done
# shellcheck source=tests/support/service.sh
. "${source_file%/*}/../../tests/support/service.sh"

signature='shared_ptr<Config> Config::load(const QString&, const QString&)'
LANG=en_US.UTF-8 expect_failure \
    "$signature -> File [service.properties] doesn't exist" "$program"
LANG=fr_FR.UTF-8 expect_failure \
    "$signature -> Le fichier [service.properties] n'existe pas" "$program"

mkdir spool
sed "s|/var/log/service/|$directory/|; s|/var/spool/service|$directory/spool|" \
    <<<"$configuration" >service.properties
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
