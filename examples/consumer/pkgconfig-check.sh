#!/usr/bin/env bash
# Builds main.cpp with plain g++ and the flags pkg-config gives for qzutil
# installed under the prefix $1, then runs it. The rpath lets the program
# find libqzutil.so in that prefix without LD_LIBRARY_PATH.
set -euo pipefail

if [ $# -ne 1 ]; then
  echo "usage: $0 <install-prefix>" >&2
  exit 2
fi
prefix=$(cd "$1" && pwd)
here=$(cd "$(dirname "$0")" && pwd)

pcfile=$(find "$prefix" -path '*/pkgconfig/qzutil.pc' -print -quit)
if [ -z "$pcfile" ]; then
  echo "pkgconfig-check: no pkgconfig/qzutil.pc under $prefix" >&2
  exit 1
fi
export PKG_CONFIG_PATH="$(dirname "$pcfile")${PKG_CONFIG_PATH:+:$PKG_CONFIG_PATH}"

out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

libdir=$(pkg-config --variable=libdir qzutil)
# shellcheck disable=SC2046  # the flags must split into words
g++ -std=c++17 -Wall -Wextra -Werror -o "$out/consumer" "$here/main.cpp" \
  $(pkg-config --cflags --libs qzutil) -Wl,-rpath,"$libdir"
"$out/consumer"
echo "pkgconfig-check: ok (qzutil $(pkg-config --modversion qzutil) from $prefix)"
