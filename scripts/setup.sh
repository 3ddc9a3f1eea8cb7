#!/usr/bin/env bash
# Installs the Debian packages the project builds with, and only the missing ones:
# on a machine that already has them all this does nothing (and needs no network).
set -euo pipefail

packages=(
  build-essential cmake        # compiler, make, dpkg-dev (dpkg-shlibdeps for the package), cmake/ctest/cpack
  pkg-config                   # tools/CMakeLists.txt finds libedit through pkg_check_modules
  libboost-dev                 # Boost ICL (access lists), Boost headers
  libgtest-dev libgmock-dev    # the test suites
  libbenchmark-dev             # bench/
  nlohmann-json3-dev libcli11-dev libfmt-dev
  libedit-dev                  # line editing of pimrp at a terminal
  clang libclang-rt-14-dev     # fuzz/ (libFuzzer) and the sanitizer runtime
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "setup: installing ${missing[*]}" >&2
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
  sudo_cmd=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
