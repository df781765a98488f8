#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT
#
# Fails if the C++ files of a directory have more lines than they may.
#
#     lines.sh LIMIT DIRECTORY

set -euo pipefail

limit=$1
directory=$2
lines=$(cat "$directory"/*.cpp "$directory"/*.h | wc -l)
echo "$lines lines, $limit allowed: $directory"
((lines > 0 && lines <= limit))
