# SPDX-License-Identifier: Apache-2.0
# Shared by the scripts: configure, build and test a preset. Sourced from the top of the checkout.

ORVA_JOBS=${ORVA_JOBS:-$(nproc)}

# configure PRESET [CMake arguments]; a compiler cache is used where one is installed.
configure() {
  local preset=$1 launcher=()
  shift
  command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  cmake --preset "$preset" "${launcher[@]}" "$@"
}

# build PRESET [TARGET...]
build() {
  local preset=$1
  shift
  cmake --build --preset "$preset" -j "$ORVA_JOBS" ${1:+--target "$@"}
}

# run_suite PRESET [CTest arguments]
run_suite() {
  local preset=$1
  shift
  ctest --preset "$preset" -j "$ORVA_JOBS" --timeout 300 "$@"
}
