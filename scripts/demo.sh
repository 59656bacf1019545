#!/usr/bin/env bash
# From a fresh checkout to a running demo: installs the build packages,
# builds the release preset and runs `qz demo`.
set -euo pipefail

cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh release
build/release/tools/qz/qz demo
