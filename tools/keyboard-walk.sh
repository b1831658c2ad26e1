#!/usr/bin/env bash
# A clerk's twelve tasks by keyboard alone, on a 1024×768 X display with a window manager, with a
# picture of the active window after each step: tools/keyboard-walk.sh OUTDIR
# Needs Xvfb, openbox, xdotool, xwd and netpbm (Debian: xvfb openbox xdotool x11-apps netpbm).
set -euo pipefail
cd "$(dirname "$0")/.."
out=$(realpath -m "${1:?Aufruf: tools/keyboard-walk.sh AUSGABEVERZEICHNIS}")
for tool in Xvfb openbox xdotool xwd xwdtopnm pnmtopng; do
    command -v "$tool" > /dev/null || { echo "$tool fehlt" >&2; exit 1; }
done
[ -x build/bin/tolma ] || bash tools/build.sh
work=$(mktemp -d)
trap 'kill $(jobs -p) 2> /dev/null || true; rm -rf "$work"' EXIT
mkdir -p "$out" "$work/run"
chmod 700 "$work/run"
cp -r build/bin "$work/bin"
rm -rf "$work/bin/DB" "$work/bin/Log" "$work/bin/Dat"
export HOME="$work" XDG_RUNTIME_DIR="$work/run" DISPLAY=:77
sample=$(realpath data/beispiel.tml)
"$work/bin/tolma-cli" import --yes "$sample" > /dev/null
Xvfb :77 -screen 0 1024x768x24 > /dev/null 2>&1 &
sleep 1
openbox > /dev/null 2>&1 &
sleep 1
"$work/bin/tolma" > "$work/tolma.log" 2>&1 &
sleep 3
n=0
shot() {
    n=$((n + 1))
    sleep 0.5
    xwd -id "$(xdotool getactivewindow)" | xwdtopnm 2> /dev/null | pnmtopng \
        > "$out/$(printf %02d $n)-$1.png"
}
k() { xdotool key --delay 120 "$@"; sleep 0.6; }
t() { xdotool type --delay 80 "$1"; sleep 0.8; }

# 1 the business list, 2 typing finds, 3 Enter opens
k ctrl+o; shot liste
k Tab Tab Tab; t "Bäck"; shot getippt
k Return; shot betrieb
# 4 the six tabs by Alt and a letter; the addresses' arrows by Tab and Space
k alt+a; for _ in 1 2 3 4 5 6 7 8 9 10; do k Tab; done; k space; shot adressen-satz-2
k alt+t; k alt+p; k alt+f; k alt+r; k alt+m; shot meldedaten
# 7 the search, 5 the walk to a legal person's representatives and back
k ctrl+f; t "Nordsee Bau"; sleep 0.6; shot suche
k Return; k alt+p; k alt+s; shot vertreter-liste
k Return; shot vertreter
k alt+z; shot zurueck
# 6 a business to PDF from the list ("Satz"), then Escape closes the list
k ctrl+o; k alt+s; sleep 2; shot druckdialog
k Return; sleep 3; k Escape; shot liste-zu
# 8 checking a file
k alt+b; k p; sleep 2; t "$sample"; k Return; sleep 3; shot pruefbericht
k Escape
# 10 evaluating; Enter on a number opens what it counts
k alt+e; k a; sleep 2; k alt+z; k ctrl+a; t "01.2000"; k alt+a; sleep 1
for _ in 1 2 3 4 5 6; do k Tab; done; k Down; k Right; shot auswertung
k Return; sleep 1; shot gezaehlte-betriebe
k Escape; sleep 0.5; k Escape; sleep 0.5
# 9 taking back the import (the question stands on Nein: Alt+J answers Ja)
k alt+b; k z; sleep 1; shot laeufe
k alt+z; sleep 1; shot rueckfrage
k alt+j; sleep 3; shot meldung
k Return; sleep 1; shot laeufe-danach
k Escape
# 11 help, 12 closing: Ctrl+W closes the search opened last
k F1; sleep 1; k ctrl+f; sleep 0.5; k ctrl+w; shot ende
[ -s "$work/print.pdf" ] && echo "PDF: $(stat -c %s "$work/print.pdf") Bytes"
ls "$out"
