#!/usr/bin/env bash
# Builds and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/build.sh
ctest --test-dir build --output-on-failure --parallel 2
