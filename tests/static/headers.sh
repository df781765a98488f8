#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT
#
# Compiles every public header on its own, with the strictest settings that users have:
#   headers.sh INCLUDE_DIR COMPILER STANDARD COMPILER-ARGUMENT...

set -euo pipefail

include_dir=$1 compiler=$2 standard=$3
shift 3
strict=(-Wall -Wextra -Wpedantic -Wshadow -Werror -DQT_NO_KEYWORDS -DQT_NO_CAST_FROM_ASCII)

checked=0 faults=0
for header in "$include_dir"/kez/*.h "$include_dir"/kez/service/*.h; do
    name=${header#"$include_dir"/}
    # Included twice, so that a header without a guard fails.
    printf '#include <%s>\n#include <%s>\n' "$name" "$name" |
        "$compiler" -x c++ -std="$standard" -fsyntax-only -fPIC "${strict[@]}" "$@" \
            -I"$include_dir" - || { echo "$name: fails" >&2; faults=$((faults + 1)); }
    checked=$((checked + 1))
done
((checked > 0)) || { echo "No header below $include_dir/kez" >&2; exit 1; }
echo "$checked headers, $compiler, $standard: $faults faults"
((faults == 0))
