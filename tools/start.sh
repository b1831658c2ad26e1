#!/usr/bin/env bash
# Builds the program, reads the bundled sample file into its stores and, where a display is
# available, starts the desktop program on them.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/build.sh
./build/bin/tolma-cli import --yes data/beispiel.tml
if [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
    exec ./build/bin/tolma "$@"
fi
echo "Kein Bildschirm gefunden: das Programm startet mit 'xvfb-run ./build/bin/tolma' oder an einem Arbeitsplatz."
