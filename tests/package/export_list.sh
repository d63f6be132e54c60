#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The library exports what exports.txt lists and nothing else. The driver and SetOrvaConsole must be there;
# the cloud class is inline, so a compiler may leave out what the library itself does not use.
# Usage: export_list.sh LIBRARY EXPORTS_TXT
set -euo pipefail
actual=$(nm -DC --defined-only "$1" | sed -E 's/^[0-9a-f]* +[A-Za-z] //; s/@@?.*$//' | LC_ALL=C sort -u)
allowed=$(sed -E '/^(#|$)/d' "$2" | LC_ALL=C sort -u)

surplus=$(LC_ALL=C comm -23 <(echo "$actual") <(echo "$allowed"))
missing=$(LC_ALL=C comm -13 <(echo "$actual") <(echo "$allowed") | grep -E '^(OrvaDriver|SetOrvaConsole)' || true)
[[ -z $surplus ]] || printf 'exported, but not in the list:\n%s\n' "$surplus"
[[ -z $missing ]] || printf 'in the list, but not exported:\n%s\n' "$missing"
[[ -z $surplus$missing ]]
