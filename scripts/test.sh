#!/usr/bin/env bash
# From a fresh checkout to a tested build: installs the build packages,
# builds the dev preset and runs every test suite.
#   scripts/test.sh [extra ctest arguments, e.g. -R QzMemory]
set -euo pipefail

cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh dev
ctest --preset dev "$@"
