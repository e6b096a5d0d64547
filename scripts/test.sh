#!/usr/bin/env bash
# Builds the library and runs its tests.
#
#   bash scripts/test.sh              configure into build/, build, run ctest
#   bash scripts/test.sh --sanitize   the same in build-sanitize/ with the
#                                     address and undefined-behaviour
#                                     sanitizers, every error fatal
#   bash scripts/test.sh -L quick     any other argument goes to ctest
#
# Missing Debian packages are installed first when run as root.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/lib/ensure-packages.sh
source "$root/scripts/lib/ensure-packages.sh"

sanitize=0
ctest_args=()
for arg in "$@"; do
  if [[ "$arg" == "--sanitize" ]]; then
    sanitize=1
  else
    ctest_args+=("$arg")
  fi
done

qz_ensure_packages

jobs=$(nproc 2>/dev/null || echo 2)
if [[ $sanitize -eq 1 ]]; then
  build_dir="$root/build-sanitize"
  # Benchmarks measure nothing useful under the sanitizers; not built here.
  configure_args=(-DQZ_SANITIZE=ON -DQZ_BUILD_BENCH=OFF)
  # Every finding stops the program; settings already in the environment
  # come last and so win.
  export ASAN_OPTIONS="halt_on_error=1:abort_on_error=1:detect_leaks=1:print_stacktrace=1${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
  export UBSAN_OPTIONS="halt_on_error=1:abort_on_error=1:print_stacktrace=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
else
  build_dir="$root/build"
  configure_args=()
fi

echo "== configure ($build_dir)"
cmake -S "$root" -B "$build_dir" "${configure_args[@]}"
echo "== build ($jobs jobs)"
cmake --build "$build_dir" --parallel "$jobs"
echo "== test"
cd "$build_dir"
ctest --output-on-failure --parallel "$jobs" "${ctest_args[@]}"
