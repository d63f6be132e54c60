#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# An object file for a wide instruction set may give the linker nothing but its table of loops: any inline function
# in it could be taken for the same one of the rest, and then crash on a machine without those instructions.
# Usage: wide_objects.sh NM OBJECT...
set -eu
nm=$1
shift
[ $# -gt 0 ] || { echo "no object given" >&2; exit 2; }
for object; do
  others=$("$nm" -C --defined-only --extern-only "$object" | grep -v ' [DR] tevoro::lidar::k[A-Za-z0-9]*PacketLoops$' || true)
  [ -z "$others" ] || { printf '%s defines\n%s\n' "$object" "$others" >&2; exit 1; }
done
