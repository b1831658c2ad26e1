#!/usr/bin/env bash
# Fails when a C++ file is not formatted as the repository's .clang-format says.
set -euo pipefail
cd "$(dirname "$0")/.."
if ! command -v clang-format > /dev/null; then
    sudo=""
    [ "$(id -u)" -ne 0 ] && sudo="sudo"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends clang-format
fi
git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror
echo "Formatierung in Ordnung."
