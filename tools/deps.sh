#!/usr/bin/env bash
# Installs the Debian packages that building and testing need, where they are missing.
set -euo pipefail
packages=(build-essential cmake ninja-build pkg-config libsqlite3-dev sqlite3
          libgtest-dev libgmock-dev libbenchmark-dev qt6-base-dev qt6-translations-l10n libgl-dev
          libpq-dev postgresql  # the server store; its tests start a cluster of their own
          fonts-liberation xvfb xauth poppler-utils
          clang libclang-rt-14-dev)  # the sanitizer build and the fuzz targets
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    sudo=""
    [ "$(id -u)" -ne 0 ] && sudo="sudo"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
