#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs the build, moves the copy, and uses it there. Usage: installed_copy.sh BUILD_DIR WORK_DIR CXX
set -euo pipefail
readonly build=$1 work=$2 cxx=$3

rm -rf "$work"
cmake --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/copy"  # an installed copy must not remember where it was installed
"$(dirname "$0")/installed_prefix.sh" "$work/copy" "$work" "$cxx"
