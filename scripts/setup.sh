#!/usr/bin/env bash
# Installs every Debian package that qzutil needs to build, test, benchmark
# and fuzz. Idempotent: packages already present are left alone, and apt is
# not touched at all when nothing is missing.
set -euo pipefail

packages=(
  # build
  cmake ninja-build g++ pkgconf ccache clang-format
  # libraries linked by qzutil and its providers
  libcjson-dev libcurl4-openssl-dev libssl-dev libsqlite3-dev libxml2-dev zlib1g-dev
  # run time
  ca-certificates
  # tests, benchmarks, fuzzing
  libgtest-dev libgmock-dev libbenchmark-dev clang libclang-rt-14-dev
  nginx openssl python3
  libmimalloc-dev libjemalloc-dev
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all ${#packages[@]} packages present"
  exit 0
fi

echo "setup: installing ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "setup: run as root, or install sudo, to install: ${missing[*]}" >&2
    exit 1
  fi
  SUDO="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -q
$SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
