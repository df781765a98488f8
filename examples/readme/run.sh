#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT

# Runs the program of the README: run.sh <program> <README files...>. The program must be the very
# text that each README shows, must log a file that arrives, and must say what is wrong otherwise.
set -euo pipefail

program=$1
source_file=$(dirname "$0")/main.cpp
shift
for readme in "$@"; do
  if ! diff <(sed -n '/^```cpp$/,/^```$/p' "$readme" | sed '1d;$d') \
            <(sed '1,/^\/\/ The program/d' "$source_file"); then
    echo "$readme shows another program than $source_file" >&2
    exit 1
  fi
done

folder=$(mktemp -d)
service=
trap '[ -z "$service" ] || kill "$service" 2>/dev/null || true; rm -rf "$folder"' EXIT
cd "$folder"

if "$program" 2> fault; then
  echo "started without a configuration" >&2
  exit 1
fi
grep -q 'service.properties' fault

mkdir spool
printf 'log.filename=%s/service.log\nlog.filter=info\nqueue.path=%s/spool\n' \
  "$folder" "$folder" > service.properties
"$program" &
service=$!
for _ in $(seq 200); do
  [ -e spool/order.xml ] || ! grep -qs 'queue.path' service-0.log ||
    { echo '<order/>' > spool/.order.xml; mv spool/.order.xml spool/order.xml; }
  grep -qs 'arrived: order.xml' service-0.log && break
  sleep 0.1
done
cat service-0.log
grep -q '| Service 1.0 |' service-0.log
grep -q 'arrived: order.xml' service-0.log
