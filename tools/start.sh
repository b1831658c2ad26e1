#!/usr/bin/env bash
# Builds and starts the program.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/build.sh
exec ./build/bin/tolma "$@"
