#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT
#
# Runs the service and its producer in a temporary directory, and prints a summary. Ends with 1 if
# something is not as it should be.
#
#     demo.sh DIRECTORY    the directory with the programs intake and intake-drop

set -euo pipefail
export LC_ALL=C.UTF-8 # file names and sorting; the language of the texts comes from LANG

if [[ $# -ne 1 || ! -x $1/intake || ! -x $1/intake-drop ]]; then
    echo "usage: ${0##*/} DIRECTORY_OF_THE_PROGRAMS" >&2
    exit 2
fi
programs=$(cd "$1" && pwd)

good=300
bad=14
patience=120 # seconds for each step; only a broken service needs them

work=$(mktemp -d "${TMPDIR:-/tmp}/intake-demo.XXXXXX")
service=
failures=0

clean_up() {
    if [[ -n $service ]]; then
        kill -KILL "$service" 2>/dev/null || true
        wait "$service" 2>/dev/null || true
    fi
    rm -rf "$work"
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

step() { printf '\n== %s\n' "$*"; }

# expect DESCRIPTION WANTED FOUND
expect() {
    if [[ $2 == "$3" ]]; then
        printf '  [ok]     %s: %s\n' "$1" "$3"
    else
        printf '  [FAILED] %s: %s, expected %s\n' "$1" "$3" "$2"
        failures=$((failures + 1))
    fi
}

# wait_until DESCRIPTION COMMAND...: ends the script if it takes too long, or if the service is gone.
wait_until() {
    local description=$1 limit=$((SECONDS + patience))
    shift
    until "$@"; do
        if ((SECONDS > limit)) || ! kill -0 "$service" 2>/dev/null; then
            echo "Never happened: $description. The log ends with:" >&2
            log_text | tail -n 20 >&2
            exit 1
        fi
        sleep 0.05
    done
}

now_us() { printf '%s' "${EPOCHREALTIME/./}"; }
# Without what the library keeps for itself in ".kez".
count_files() { find "$work/$1" -mindepth 1 -name .kez -prune -o -print | wc -l; }
# Each file there has a text beside it, which says why.
count_set_aside() { find "$work/setaside" -mindepth 1 ! -name '*.xml.txt' | wc -l; }
count_lines() { if [[ -e $1 ]]; then wc -l <"$1"; else echo 0; fi; }
log_files() { find "$work/log" -name 'intake-*.log' | sort -V; }
log_text() { log_files | xargs -r cat; }
log_has() { (($(log_text | grep -cE -- "$1") > 0)); } # -c reads to the end: no broken pipe
booked_names() { cut -d ';' -f 2 "$work/ledger.csv" | sort -u; }
answer() { if "$@"; then echo yes; else echo no; fi; }
has_booked() { (($(count_lines "$work/ledger.csv") >= $1)); }
spool_is_empty() { (($(count_files spool) == 0)); }

write_configuration() {
    mkdir "$work"/{spool,dropped,archive,setaside,log}
    cat >"$work/intake.properties" <<END
log.filename=log/intake.log
log.filter=debug
log.maxsize=40000
log.kept=100
log.tee=0
queue.path=spool
queue.period=200
queue.keep=1
archive.path=archive
setaside.path=setaside
ledger.path=ledger.csv
lang=$language
END
}

start_service() {
    "$programs/intake" "$work/intake.properties" &
    service=$!
    wait_until "the service is ready" log_has 'Service (prêt|ready)'
}

stop_service() {
    kill -TERM "$service"
    exit_code=0
    wait "$service" || exit_code=$?
    service=
}

# Drops into the spool, and into a directory that nobody watches, for a later comparison.
drop() {
    "$programs/intake-drop" "$@" "$work/spool"
    "$programs/intake-drop" "$@" "$work/dropped" >/dev/null
}

# The total in hundredths, from the ledger and from the log, whose separators depend on the language.
booked_total() { cut -d ';' -f 6 "$work/ledger.csv" | tr -d . | awk '{ sum += $1 } END { print sum }'; }
told_total() { log_text | sed -n 's/.*\(enregistré :\|booked:\) \([^E]*\) EUR$/\2/p' | tr -cd '0-9\n-'; }

summary() {
    local total=$((good + bad))
    step "Summary"
    printf '  files in: %d good orders, %d bad ones\n' "$good" "$bad"
    expect "archived" "$total" "$(count_files archive)"
    expect "archived, as they were dropped" yes \
        "$(answer diff -r -x .kez "$work/dropped" "$work/archive")"
    expect "booked" "$good" "$(count_lines "$work/ledger.csv")"
    expect "booked, each file once" "$good" "$(booked_names | wc -l)"
    expect "booked in all, in cents" "$(booked_total)" "$(told_total)"
    expect "set aside" "$bad" "$(count_set_aside)"
    expect "left in the spool" 0 "$(count_files spool)"
    expect "exit code" 0 "$exit_code"
    expect "banner in the log" yes "$(answer log_has '\| Intake, .*1\.0\.0 \|')"
    expect "French in the log" yes "$(answer log_has '<INFOR> Fichier .* archivé')"
    expect "English in the log" yes "$(answer log_has '<INFOR> File .* archived')"
    expect "log files, several of them" yes "$(answer test "$(log_files | wc -l)" -gt 1)"
    expect "clean stop in the log" yes "$(answer log_has 'Service (arrêté|stopped)')"
    printf '  time per file: %d us, from the first drop to the empty spool\n' \
        $(((finished - started) / total))
}

case ${LANG:-fr} in
en*) language=en_US greeting='in English from now on' ;;
*) language=fr_FR greeting='désormais en français' ;;
esac

write_configuration
first=$((good / 6))

step "Orders that wait before the service starts"
started=$(now_us)
drop --prefix early --good "$first" --bad 2

step "The service starts in $language"
start_service

step "Orders that arrive while it works, and another language after half of them"
drop --prefix busy --good $((good - 2 * first)) --bad $((bad - 4)) --pause 1 &
producer=$!
wait_until "half of the orders are booked" has_booked $((good / 2))
kill -HUP "$service"
wait "$producer"
wait_until "the language is switched" log_has 'from now on|désormais'
drop --prefix late --good "$first" --bad 2

wait_until "the spool is empty" spool_is_empty
finished=$(now_us)

step "Back to the first language, and SIGTERM"
kill -HUP "$service"
wait_until "the language is switched back" log_has "$greeting"
stop_service

summary

step "The log ring"
log_files | xargs ls -l | awk '{ printf "  %8d bytes  %s\n", $5, $NF }' | sed "s|$work/||"

step "The first lines of the log"
log_text | sed -n '1,30s/^/  /p'

step "Its last lines"
log_text | tail -n 5 | sed 's/^/  /'

step "The first lines of the ledger"
sed -n '1,3s/^/  /p' "$work/ledger.csv"

echo
if ((failures > 0)); then
    echo "The demonstration failed: $failures."
    exit 1
fi
echo "Everything happened as it should."
