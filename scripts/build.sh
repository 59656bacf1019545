#!/usr/bin/env bash
# Configures and builds one preset of CMakePresets.json into build/<preset>.
#   scripts/build.sh <preset> [extra arguments for cmake --build, e.g. --target X]
# ccache (set up by scripts/setup.sh) keeps its cache under ~/.cache unless
# CCACHE_DIR says otherwise, so rebuilds of any preset are cheap.
set -euo pipefail

if [ $# -lt 1 ]; then
  echo "usage: $0 <preset> [cmake --build arguments...]" >&2
  echo "presets: dev release asan tsan fuzz coverage bench" >&2
  exit 2
fi
preset=$1
shift

cd "$(dirname "$0")/.."
export CCACHE_DIR="${CCACHE_DIR:-$HOME/.cache/ccache}"

cmake --preset "$preset"
cmake --build --preset "$preset" "$@"
