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
  nginx openssl python3 locales
  libmimalloc-dev libjemalloc-dev
)

# The multi-byte code page tests want one single-byte locale beside C and
# C.UTF-8. It is compiled from the locales package's sources when missing.
test_locale="en_US.ISO-8859-1"

have_test_locale()
{
  locale -a 2>/dev/null | grep -qix 'en_US.iso88591'
}

# The JSON tests want a locale whose decimal separator is a comma.
comma_locale="de_DE.UTF-8"

have_comma_locale()
{
  locale -a 2>/dev/null | grep -qix 'de_DE.utf8'
}

as_root()
{
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    echo "setup: run as root, or install sudo, to run: $*" >&2
    exit 1
  fi
}

ensure_test_locale()
{
  if ! have_test_locale; then
    echo "setup: compiling the $test_locale locale"
    as_root localedef -i en_US -f ISO-8859-1 "$test_locale"
  fi
  if ! have_comma_locale; then
    echo "setup: compiling the $comma_locale locale"
    as_root localedef -i de_DE -f UTF-8 "$comma_locale"
  fi
}

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all ${#packages[@]} packages present"
else
  echo "setup: installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  as_root apt-get update -q
  as_root apt-get install -y -q --no-install-recommends "${missing[@]}"
fi
ensure_test_locale
