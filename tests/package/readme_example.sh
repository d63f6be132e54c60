#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The application shown in the README is the first example, line by line. Usage: readme_example.sh README EXAMPLE
set -euo pipefail
shown=$(awk '/^```/ { inside = !inside && /cpp/; next } inside' "$1")
[[ -n $shown ]] || { echo "the README shows no application" >&2; exit 1; }
diff <(echo "$shown") "$2"
