# shellcheck shell=bash
# Sourced by the scripts in scripts/: makes sure the Debian packages that the
# build, the tests and the demo need are installed.
#
# qz_ensure_packages: checks each package with dpkg-query. When some are
# missing and the script runs as root, installs them with apt-get
# (non-interactive, no recommended extras); when not root, prints the command
# to run and returns 1. On a system without dpkg-query it says so and
# returns 0, leaving the configure step to report what is missing.

QZ_REQUIRED_PACKAGES=(
  build-essential cmake pkg-config
  libsqlite3-dev sqlite3
  libgtest-dev libgmock-dev googletest
  libcli11-dev nlohmann-json3-dev uuid-dev
  libdtl-dev libssl-dev
  graphviz binutils help2man
  clang libclang-rt-dev
)

# Prints the packages of QZ_REQUIRED_PACKAGES that are not installed.
qz_missing_packages() {
  local package status
  for package in "${QZ_REQUIRED_PACKAGES[@]}"; do
    status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
    if [[ "$status" != "install ok installed" ]]; then
      echo "$package"
    fi
  done
}

qz_ensure_packages() {
  if ! command -v dpkg-query >/dev/null 2>&1; then
    echo "Not a Debian system (no dpkg-query): not checking packages." >&2
    echo "Needed: ${QZ_REQUIRED_PACKAGES[*]} (or their equivalents)." >&2
    return 0
  fi

  local missing
  mapfile -t missing < <(qz_missing_packages)
  if [[ ${#missing[@]} -eq 0 ]]; then
    return 0
  fi

  if [[ $(id -u) -ne 0 ]]; then
    echo "These packages are missing: ${missing[*]}" >&2
    echo "Install them as root, then run this script again:" >&2
    echo "  apt-get install -y ${missing[*]}" >&2
    return 1
  fi

  echo "Installing missing packages: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -q || return 1
  apt-get install -y -q --no-install-recommends "${missing[@]}" || return 1

  mapfile -t missing < <(qz_missing_packages)
  if [[ ${#missing[@]} -ne 0 ]]; then
    echo "Still missing after apt-get: ${missing[*]}" >&2
    return 1
  fi
}
