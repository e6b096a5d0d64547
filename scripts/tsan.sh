#!/usr/bin/env bash
# Builds the threaded tests under ThreadSanitizer and runs them.
#
#   bash scripts/tsan.sh            configure build-tsan/, build the programs
#                                   listed in tests/CMakeLists.txt
#                                   (QZ_THREADED_TEST_PROGRAMS) and run the
#                                   tests labelled "threads"
#   bash scripts/tsan.sh -R Events  any further argument goes to ctest
#
# Only what those programs need is built (no tool, no benchmarks), so that
# the run stays within a few minutes on two cores. Every report is fatal.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/lib/ensure-packages.sh
source "$root/scripts/lib/ensure-packages.sh"
qz_ensure_packages

build_dir="$root/build-tsan"
jobs=$(nproc 2>/dev/null || echo 2)
launcher=()
if command -v ccache >/dev/null 2>&1; then
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi

echo "== configure ($build_dir)"
cmake -S "$root" -B "$build_dir" -DQZ_SANITIZE_THREAD=ON -DQZ_BUILD_BENCH=OFF \
  -DQZ_BUILD_TOOL=OFF "${launcher[@]}"
mapfile -t programs < "$build_dir/threaded-test-programs.txt"
echo "== build ${programs[*]} ($jobs jobs)"
cmake --build "$build_dir" --parallel "$jobs" --target "${programs[@]}"
echo "== test"
# A second stack for each lock in a report, and every report ends the
# program; settings already in the environment come last and so win.
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1${TSAN_OPTIONS:+:$TSAN_OPTIONS}"
cd "$build_dir"
ctest --output-on-failure --parallel "$jobs" -L threads "$@"
