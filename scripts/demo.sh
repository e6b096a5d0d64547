#!/usr/bin/env bash
# The demonstration: installs what is missing (as root), builds the library
# and runs the example host, which starts the library, prints its version and
# shuts it down.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/lib/ensure-packages.sh
source "$root/scripts/lib/ensure-packages.sh"

qz_ensure_packages

build_dir="$root/build"
jobs=$(nproc 2>/dev/null || echo 2)

echo "== configure ($build_dir)"
cmake -S "$root" -B "$build_dir"
echo "== build ($jobs jobs)"
cmake --build "$build_dir" --parallel "$jobs" --target version_host

# The demonstration proper. When the command-line tool exists, this becomes
# a walk through a vault made in a fresh directory (`qzvault demo DIR`).
run_demo() {
  echo "== run examples/version_host"
  "$build_dir/examples/version_host"
}

run_demo
