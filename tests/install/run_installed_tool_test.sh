#!/usr/bin/env bash
# Installs a built tree into a fresh temporary prefix, moves the whole
# installation somewhere else, and runs the installed qzvault from there with
# a bare environment (no LD_LIBRARY_PATH, no plug-in option, no configuration
# file): it must find its libraries and its plug-ins from where it is, make
# the demo vault completely and show the plug-ins in `info`. Then checks the
# manual page and the bash completion that the installation holds: the
# completion must offer every command the tool's help lists.
# Everything made here is removed on exit, whatever the outcome.
#
# Usage: run_installed_tool_test.sh --cmake CMAKE --build-dir DIR [--config CFG]
set -euo pipefail

cmake_exe='' build_dir='' config=''
while [[ $# -gt 0 ]]; do
  case "$1" in
    --cmake) cmake_exe=$2 ;;
    --build-dir) build_dir=$2 ;;
    --config) config=$2 ;;
    *) echo "run_installed_tool_test.sh: unknown argument '$1'" >&2; exit 2 ;;
  esac
  shift 2
done
[[ -n "$cmake_exe" && -n "$build_dir" ]] ||
  { echo "run_installed_tool_test.sh: --cmake and --build-dir are required" >&2; exit 2; }

fail() { echo "FAIL: $*" >&2; exit 1; }
step() { echo "--- $*"; }

work=$(mktemp -d)
cleanup() { rm -rf "$work"; }
trap cleanup EXIT

config_args=()
[[ -n "$config" ]] && config_args=(--config "$config")

step "install into a fresh prefix, then move the installation"
"$cmake_exe" --install "$build_dir" --prefix "$work/staged" "${config_args[@]}" >"$work/install.log" ||
  { cat "$work/install.log" >&2; fail "cmake --install failed"; }
mv "$work/staged" "$work/moved"
prefix=$work/moved
tool=$prefix/bin/qzvault
[[ -x "$tool" ]] || fail "bin/qzvault was not installed"

# The bare environment: only what a shell gives everyone. QZ_CONFIG_FILE is
# set empty so that a configuration file on this machine cannot name the
# plug-ins instead of the installation.
run_bare() {
  env -i PATH=/usr/bin:/bin HOME="$work/home" QZ_CONFIG_FILE= "$@"
}
mkdir -p "$work/home"

# The tool must load the installed libraries, not those of the build tree.
loaded=$(run_bare ldd "$tool" | sed -n 's/^[[:space:]]*libqzvault\.so[^ ]* => \([^ ]*\).*/\1/p')
[[ "$(readlink -f "$loaded")" == "$(readlink -f "$prefix")"/* ]] ||
  fail "the installed tool loads libqzvault from '$loaded', not from the moved installation"

step "qzvault --version"
version=$(run_bare "$tool" --version) || fail "qzvault --version failed"
echo "$version"
grep -q "Vault Library version" <<<"$version" || fail "--version does not name the library version"

step "qzvault demo from the moved installation"
if ! run_bare "$tool" demo "$work/demo" >"$work/demo.log" 2>&1; then
  cat "$work/demo.log" >&2
  fail "qzvault demo failed"
fi
! grep -q "warning" "$work/demo.log" || { cat "$work/demo.log" >&2; fail "qzvault demo warned"; }
grep -q "== qzvault lineage" "$work/demo.log" || fail "the demo did not reach its lineage"

step "qzvault info in the demo vault"
info=$(cd "$work/demo" && run_bare "$tool" info 2>&1) || { echo "$info" >&2; fail "qzvault info failed"; }
echo "$info"
! grep -q "no plug-ins loaded" <<<"$info" || fail "info shows no plug-ins"
grep -qF "$(readlink -f "$prefix")/" <<<"$(cd "$work/demo" && run_bare "$tool" config)" ||
  fail "config does not show a plug-in directory inside the moved installation"
(cd "$work/demo" && run_bare "$tool" check >"$work/check.log" 2>&1) ||
  { cat "$work/check.log" >&2; fail "qzvault check fails after the demo"; }

# The commands the tool's own help lists.
mapfile -t commands < <(run_bare "$tool" --help |
                        sed -n '/^Commands:/,$ s/^  \([a-z][a-z-]*\) .*/\1/p')
((${#commands[@]} >= 20)) || fail "qzvault --help lists only ${#commands[@]} commands"

step "the manual page"
man_page=$prefix/share/man/man1/qzvault.1
[[ -f "$man_page" ]] || fail "share/man/man1/qzvault.1 was not installed"
grep -q '^\.TH QZVAULT "1"' "$man_page" || fail "qzvault.1 is not a section 1 page"
for section in ENVIRONMENT FILES "EXIT STATUS"; do
  grep -q "^\.SH \"*$section" "$man_page" || fail "qzvault.1 lacks the $section section"
done
for command in "${commands[@]}"; do
  # roff writes a hyphen as "\-".
  grep -qwF -- "${command//-/\\-}" "$man_page" || fail "qzvault.1 does not mention the command $command"
done

step "the bash completion"
completion=$prefix/share/bash-completion/completions/qzvault
[[ -f "$completion" ]] || fail "share/bash-completion/completions/qzvault was not installed"
# Asks the completion what it offers after the words given, as bash would.
complete_words() {
  run_bare bash -c '
    source "$1"; shift
    COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1))
    _qzvault
    printf "%s\n" "${COMPREPLY[@]}"' completion "$completion" "$@"
}
offered=$(complete_words "$tool" "")
for command in "${commands[@]}"; do
  grep -qx -- "$command" <<<"$offered" || fail "the completion does not offer the command $command"
done
while read -r word; do
  printf '%s\n' "${commands[@]}" | grep -qx -- "$word" ||
    fail "the completion offers '$word', which is not a command"
done <<<"$offered"
[[ "$(complete_words "$tool" attr "" | sort | tr '\n' ' ')" == "clear get list set " ]] ||
  fail "the completion does not offer the commands of attr"
complete_words "$tool" ls --j | grep -qx -- "--json" || fail "the completion does not offer ls --json"

echo "installed tool test passed"
