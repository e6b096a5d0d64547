#!/usr/bin/env bash
# Builds the libFuzzer harnesses of fuzz/ with clang, AddressSanitizer and
# UndefinedBehaviorSanitizer, and runs each of them for a while from its seed
# corpus (fuzz/corpus/<harness>/).
#
#   bash scripts/fuzz.sh              every harness for 60 seconds
#   bash scripts/fuzz.sh 600          every harness for 600 seconds
#   bash scripts/fuzz.sh 60 uri_fuzzer path_fuzzer
#                                     only the harnesses named
#
# Harnesses run side by side, as many at a time as there are processors. A
# harness that finds a crash, a sanitizer report or a broken invariant stops
# the script with its output and the input that did it (build-fuzz/artifacts/).
# At the end the script prints how many inputs each harness ran, and the sum.
# Inputs found along the way stay in build-fuzz/corpus/ and are never
# written into the repository's seed corpora.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/lib/ensure-packages.sh
source "$root/scripts/lib/ensure-packages.sh"
qz_ensure_packages

seconds=${1:-60}
shift || true
build_dir="$root/build-fuzz"
jobs=$(nproc 2>/dev/null || echo 2)
launcher=()
if command -v ccache >/dev/null 2>&1; then
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi

echo "== configure ($build_dir)"
CC=clang CXX=clang++ cmake -S "$root" -B "$build_dir" -DQZ_FUZZ=ON -DQZ_BUILD_TESTS=OFF \
  -DQZ_BUILD_BENCH=OFF -DQZ_BUILD_TOOL=OFF -DQZ_BUILD_PLUGINS=OFF "${launcher[@]}"
if [[ $# -gt 0 ]]; then
  harnesses=("$@")
else
  mapfile -t harnesses < "$build_dir/fuzz-harnesses.txt"
fi
echo "== build ${harnesses[*]} ($jobs jobs)"
cmake --build "$build_dir" --parallel "$jobs" --target "${harnesses[@]}"

# No operator's configuration file reaches the harnesses; the sanitizers
# stop at the first report.
unset QZ_CONFIG_FILE
export ASAN_OPTIONS="halt_on_error=1:abort_on_error=1:detect_leaks=1${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
export UBSAN_OPTIONS="halt_on_error=1:abort_on_error=1:print_stacktrace=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
mkdir -p "$build_dir/artifacts" "$build_dir/logs"

run_harness() {
  local name=$1
  local corpus="$build_dir/corpus/$name"
  mkdir -p "$corpus"
  "$build_dir/fuzz/$name" -max_total_time="$seconds" -print_final_stats=1 -timeout=10 \
    -rss_limit_mb=2048 -artifact_prefix="$build_dir/artifacts/$name-" \
    "$corpus" "$root/fuzz/corpus/$name" > "$build_dir/logs/$name.log" 2>&1
}

echo "== run each harness for $seconds s, $jobs at a time"
failed=()
pids=()
names=()
for name in "${harnesses[@]}"; do
  run_harness "$name" &
  pids+=($!)
  names+=("$name")
  if [[ ${#pids[@]} -ge $jobs ]]; then
    if ! wait "${pids[0]}"; then failed+=("${names[0]}"); fi
    pids=("${pids[@]:1}")
    names=("${names[@]:1}")
  fi
done
for index in "${!pids[@]}"; do
  if ! wait "${pids[$index]}"; then failed+=("${names[$index]}"); fi
done

total=0
for name in "${harnesses[@]}"; do
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$build_dir/logs/$name.log" | tail -n 1)
  runs=${runs:-0}
  total=$((total + runs))
  printf '%-22s %12s inputs\n' "$name" "$runs"
done
printf '%-22s %12s inputs\n' "total" "$total"

if [[ ${#failed[@]} -gt 0 ]]; then
  for name in "${failed[@]}"; do
    echo "== $name failed; the end of its output:" >&2
    tail -n 60 "$build_dir/logs/$name.log" >&2
  done
  exit 1
fi
