#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Runs the tool of an installed copy, and builds an application against the copy with CMake and with pkg-config.
# Usage: installed_prefix.sh PREFIX WORK_DIR CXX
set -euo pipefail
readonly copy=$1 work=$2 cxx=$3
readonly source=$(cd "$(dirname "$0")/consumer" && pwd)

fail() { echo "FAILED: $*" >&2; exit 1; }

library=$(find "$copy" -name 'liborva_driver.so')
[[ -L $library ]] || fail "no development link to the library"
readelf -d "$library" | grep 'SONAME.*\[liborva_driver.so.1\]' >/dev/null || fail "the SONAME is not liborva_driver.so.1"
readelf -d "$library" | grep -E 'R(UN)?PATH' >/dev/null && fail "the installed library carries a run path"

"$copy/bin/orva" --version || fail "the installed tool does not run"

echo "--- find_package"
cmake -S "$source" -B "$work/cmake" -G Ninja -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_PREFIX_PATH="$copy" \
  -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS="-Wall -Wextra -Wpedantic -Werror" >/dev/null
cmake --build "$work/cmake" >/dev/null
"$work/cmake/consumer" || fail "the application built with find_package does not work"

echo "--- pkg-config"
export PKG_CONFIG_PATH=$(dirname "$(find "$copy" -name orva_driver.pc)")
read -ra flags <<<"$(pkg-config --cflags --libs orva_driver)"
# Hidden visibility is what many applications build with; the header must still name the exported classes.
"$cxx" -std=c++17 -fvisibility=hidden -Wall -Wextra -Wpedantic -Werror "$source/main.cpp" -o "$work/consumer" \
  "${flags[@]}" -Wl,-rpath,"$(dirname "$library")"
"$work/consumer" || fail "the application built with pkg-config does not work"

echo "--- headers"
"$cxx" -std=c++17 -M "$source/main.cpp" "${flags[0]}" | grep -iE 'eigen|pcap' && fail "a private header is needed"
echo "installed copy: good"
