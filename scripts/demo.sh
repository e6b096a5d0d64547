#!/usr/bin/env bash
# The demonstration: installs what is missing (as root), builds the library,
# its plug-ins and the qzvault tool, and runs `qzvault demo` into a fresh
# temporary directory: a sample vault made from the shipped sample files,
# listed, analysed and its lineage printed. The vault is left in place to try
# the other commands on; the script says where.
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
cmake --build "$build_dir" --parallel "$jobs" --target qzvault_tool qzvmddefs

tool="$build_dir/tools/qzvault/qzvault"
# A new directory under the system's temporary directory; the demo makes the
# vault inside it.
workspace=$(mktemp -d -t qzvault-demo.XXXXXX)
vault="$workspace/vault"

echo "== qzvault demo $vault"
"$tool" demo "$vault"

echo
echo "The sample vault is in $vault; try for example"
echo "  $tool --vault $vault ls Jobs/Definitions"
echo "  $tool --vault $vault --set SALES_DSN=sales deps 'Table:db:postgresql/%%SALES_DSN%%//public/orders'"
echo "and remove $workspace when done."
