#!/usr/bin/env bash
# Installs a built tree into a fresh temporary prefix, then builds and runs a
# small host against that prefix twice: once through the CMake package
# (find_package(QzVault)) and once with the compiler and pkg-config alone
# (with the rpath the README gives), each from a copy of the host's source.
# Each run must print the expected version text. The prefix and every build
# made here are removed on exit, whatever the outcome.
#
# Usage: run_install_test.sh --cmake CMAKE --build-dir DIR --host-source DIR
#          --cxx CXX --expect TEXT --so-major N
#          [--generator NAME] [--config CFG] [--cxx-flags FLAGS] [--link-flags FLAGS]
set -euo pipefail

cmake_exe='' build_dir='' host_source='' cxx='' expect='' so_major=''
generator='' config='' cxx_flags='' link_flags=''
while [[ $# -gt 0 ]]; do
  case "$1" in
    --cmake) cmake_exe=$2 ;;
    --build-dir) build_dir=$2 ;;
    --host-source) host_source=$2 ;;
    --cxx) cxx=$2 ;;
    --expect) expect=$2 ;;
    --so-major) so_major=$2 ;;
    --generator) generator=$2 ;;
    --config) config=$2 ;;
    --cxx-flags) cxx_flags=$2 ;;
    --link-flags) link_flags=$2 ;;
    *) echo "run_install_test.sh: unknown argument '$1'" >&2; exit 2 ;;
  esac
  shift 2
done
for required in cmake_exe build_dir host_source cxx expect so_major; do
  if [[ -z "${!required}" ]]; then
    echo "run_install_test.sh: --${required//_/-} is required" >&2
    exit 2
  fi
done

fail() { echo "FAIL: $*" >&2; exit 1; }
step() { echo "--- $*"; }

prefix=$(mktemp -d)
work=$(mktemp -d)
cleanup() { rm -rf "$prefix" "$work"; }
trap cleanup EXIT

config_args=()
[[ -n "$config" ]] && config_args=(--config "$config")

step "install into a fresh prefix"
"$cmake_exe" --install "$build_dir" --prefix "$prefix" "${config_args[@]}" >"$work/install.log" ||
  { cat "$work/install.log" >&2; fail "cmake --install failed"; }

step "check the installed files"
for header in qzvault/qzvault.h qzvault/entry.h qzvault/plugin.h qzbase/string.h; do
  [[ -f "$prefix/include/$header" ]] || fail "header $header was not installed"
done
# The library directory is whatever the build chose (lib, lib64, ...): find it
# from the library itself.
vault_lib=$(find "$prefix" -name "libqzvault.so.$so_major" -print -quit)
[[ -n "$vault_lib" ]] || fail "libqzvault.so.$so_major was not installed"
libdir=$(dirname "$vault_lib")
for lib in qzbase qzvault; do
  [[ -L "$libdir/lib$lib.so" ]] || fail "lib$lib.so is not a link"
  [[ -L "$libdir/lib$lib.so.$so_major" ]] || fail "lib$lib.so.$so_major is not a link"
  real=$(readlink -f "$libdir/lib$lib.so")
  [[ -f "$real" && ! -L "$real" ]] || fail "lib$lib.so does not lead to a library file"
  [[ "$(basename "$real")" == "lib$lib.so.$so_major".* ]] ||
    fail "lib$lib.so leads to $(basename "$real"), not a lib$lib.so.$so_major.* file"
done
[[ -f "$libdir/cmake/QzVault/QzVaultConfig.cmake" ]] || fail "QzVaultConfig.cmake was not installed"
[[ -f "$libdir/cmake/QzVault/QzVaultConfigVersion.cmake" ]] ||
  fail "QzVaultConfigVersion.cmake was not installed"
for pc in qzbase qzvault; do
  [[ -f "$libdir/pkgconfig/$pc.pc" ]] || fail "$pc.pc was not installed"
done
# Internal and test targets stay in the build tree.
leaked=$(find "$prefix" \( -name '*qzvault_core*' -o -name '*qztest*' -o -name '*_test' \
                          -o -name 'libgtest*' -o -name 'version_host' \) -print)
[[ -z "$leaked" ]] || fail "internal files were installed: $leaked"

# Runs a host program and checks that its output holds the expected text.
check_host_output() {
  local what=$1 output
  shift
  if ! output=$("$@" 2>&1); then
    echo "$output" >&2
    fail "$what: the host exited with an error"
  fi
  echo "$output"
  grep -qF -- "$expect" <<<"$output" || fail "$what: output lacks \"$expect\""
}

# The recipes are built from a copy outside the source tree, as a user would.
cp -R "$host_source" "$work/host-source"
host_source=$work/host-source

step "build a host with find_package(QzVault)"
generator_args=()
[[ -n "$generator" ]] && generator_args=(-G "$generator")
"$cmake_exe" -S "$host_source" -B "$work/cmake-host" "${generator_args[@]}" \
    -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF \
    -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_CXX_FLAGS="$cxx_flags" \
    -DCMAKE_EXE_LINKER_FLAGS="$link_flags" \
    -DCMAKE_BUILD_TYPE="${config:-RelWithDebInfo}" >"$work/host-configure.log" ||
  { cat "$work/host-configure.log" >&2; fail "configuring the CMake host failed"; }
found_dir=$(sed -n 's/^QzVault_DIR:[A-Z]*=//p' "$work/cmake-host/CMakeCache.txt")
[[ "$(readlink -f "$found_dir")" == "$(readlink -f "$libdir/cmake/QzVault")" ]] ||
  fail "find_package(QzVault) found '$found_dir', not the fresh prefix"
"$cmake_exe" --build "$work/cmake-host" "${config_args[@]}" >"$work/host-build.log" 2>&1 ||
  { cat "$work/host-build.log" >&2; fail "building the CMake host failed"; }
cmake_host=$(find "$work/cmake-host" -type f -name install_host -perm -u+x -print -quit)
[[ -n "$cmake_host" ]] || fail "the CMake host was not built"
# The host must load the installed library, not one from the build tree.
loaded=$(ldd "$cmake_host" | sed -n 's/^[[:space:]]*libqzvault\.so[^ ]* => \([^ ]*\).*/\1/p')
[[ "$(readlink -f "$loaded")" == "$(readlink -f "$vault_lib")" ]] ||
  fail "the CMake host loads libqzvault from '$loaded', not from the fresh prefix"
step "run it"
check_host_output "CMake host" "$cmake_host"

step "build the same host with pkg-config"
command -v pkg-config >/dev/null || fail "pkg-config is not installed"
export PKG_CONFIG_PATH="$libdir/pkgconfig${PKG_CONFIG_PATH:+:$PKG_CONFIG_PATH}"
pc_flags=$(pkg-config --cflags --libs qzvault) || fail "pkg-config does not know qzvault"
echo "pkg-config --cflags --libs qzvault: $pc_flags"
pc_libdir=$(pkg-config --variable=libdir qzvault)
[[ "$(readlink -f "$pc_libdir")" == "$(readlink -f "$libdir")" ]] ||
  fail "qzvault.pc names libdir '$pc_libdir', not the fresh prefix"
# The documented recipe: pkg-config's flags and an rpath to its libdir, so
# that the host starts without LD_LIBRARY_PATH.
# Word splitting of the flag lists is intended.
# shellcheck disable=SC2086
"$cxx" -std=c++17 $cxx_flags "$host_source/main.cc" -o "$work/pc-host" $pc_flags \
    -Wl,-rpath,"$pc_libdir" $link_flags ||
  fail "building the pkg-config host failed"
step "run it, with no LD_LIBRARY_PATH"
unset LD_LIBRARY_PATH
check_host_output "pkg-config host" "$work/pc-host"

echo "install test passed"
