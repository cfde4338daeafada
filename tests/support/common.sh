# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# What the root's two commands share: root rights, packages, progress, builds.
# The lists of packages are for whoever reads this file in.
# shellcheck disable=SC2034

# Debian packages that the build needs, and what a world of the tests and the demo needs.
BUILD_PACKAGES=(g++ cmake ninja-build pkg-config libglib2.0-dev libpolkit-gobject-1-dev
  libjson-glib-dev libmnl-dev)
WORLD_PACKAGES=(dbus-daemon polkitd iproute2 iputils-ping nftables wireguard-tools wireguard-go
  tcpdump curl procps util-linux python3 python3-gi python3-pytest)
# What the tunnel kind needs beside WireGuard: an engine, certificates for it, a name server, and
# what fetches the engines that Debian does not have.
ENGINE_PACKAGES=(openvpn openssl dnsmasq-base python3-pip)
# What builds the Debian package and boots a machine with it.
SYSTEM_PACKAGES=(build-essential debhelper debootstrap dpkg-dev fakeroot lintian systemd-container)
# systemd judges the unit. The debuggers' tracer sees system calls; seccomp makes them fail in unit tests.
TEST_PACKAGES=(libgtest-dev libgmock-dev libseccomp-dev strace systemd dbus-bin groff-base zsh fish)
# Only the lint and the coverage report.
LINT_PACKAGES=(clang clang-format clang-tidy shellcheck git)
COVERAGE_PACKAGES=(gcovr)

started_at=$SECONDS

say() { printf '[%3ds] %s\n' "$((SECONDS - started_at))" "$*"; }

# Both commands make namespaces and interfaces, so they need root; sudo asks for it.
become_root() {
  [ "$(id -u)" = 0 ] && return
  if command -v sudo >/dev/null; then
    echo "This needs root for namespaces and a TUN device; asking sudo."
    exec sudo -- "$0" "$@"
  fi
  echo "Please run as root: $0 makes network namespaces and a TUN device." >&2
  exit 1
}

# install_packages NAME...: installs what is missing and says so.
install_packages() {
  local missing=() package
  for package in "$@"; do
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] ||
      missing+=("$package")
  done
  if [ "${#missing[@]}" = 0 ]; then
    say "packages: all $# there"
    return
  fi
  say "packages: installing ${missing[*]}"
  local log
  log=$(mktemp)
  if ! { apt-get update && DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
    tail -n 20 "$log" >&2
    rm -f "$log"
    echo "Installing packages failed; the last lines of apt's output are above." >&2
    exit 1
  fi
  rm -f "$log"
}

# build PRESET: configures and builds; on failure shows what the compiler said.
build() {
  local preset=$1 log=build/$1.log
  mkdir -p build
  say "build: $preset"
  if ! { cmake --preset "$preset" && cmake --build --preset "$preset"; } >"$log" 2>&1; then
    tail -n 60 "$log" >&2
    echo "The build of preset $preset failed; the whole log is in $log." >&2
    exit 1
  fi
}

# fetch_engines: sing-box and Xray, which Debian does not have. What needs them is skipped without.
fetch_engines() {
  if tests/support/engines; then
    say "engines: sing-box and Xray are in build/engines"
  else
    say "engines: no sing-box and no Xray, see above"
  fi
}

# A test run that died may leave its worlds' host-side files; the worlds themselves end with it.
host_snapshot() { /usr/bin/python3 tests/support/host_state.py snapshot "$1"; }
host_compare() { /usr/bin/python3 tests/support/host_state.py compare "$1"; }

# finish WHAT STATUS: the last line, and the end.
finish() {
  if [ "$2" = 0 ]; then
    say "$1: passed"
  else
    say "$1: FAILED"
  fi
  exit "$2"
}
