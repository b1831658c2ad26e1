#!/usr/bin/env bash
# Pictures of the program on the sample data: tools/screenshots.sh OUTDIR
# BUILD=DIR takes the program from another build directory than build/.
set -euo pipefail
cd "$(dirname "$0")/.."
out=$(realpath -m "${1:?Aufruf: tools/screenshots.sh AUSGABEVERZEICHNIS}")
build=${BUILD:-build}
if [ ! -x "$build/tools/tolma-screenshots" ] || [ ! -x "$build/bin/tolma-cli" ]; then
    [ -z "${BUILD:-}" ] || { echo "$build/tools/tolma-screenshots fehlt" >&2; exit 1; }
    bash tools/build.sh
fi
home=$(mktemp -d)
pdfhome=$(mktemp -d)
pgdir=$(mktemp -d)
pgbin=$(ls -d /usr/lib/postgresql/*/bin 2> /dev/null | sort -V | tail -1)
stop_server() {
    [ -f "$pgdir/data/postmaster.pid" ] && as_pg "$pgbin/pg_ctl" -D "$pgdir/data" -m fast stop > /dev/null
    rm -rf "$pgdir"
}
trap 'stop_server; rm -rf "$home" "$pdfhome"' EXIT
as_pg() { if [ "$(id -u)" = 0 ]; then runuser -u postgres -- "$@"; else "$@"; fi; }
# A throwaway server for the pictures of a store on a server: its socket in its own directory,
# no TCP port.
server=""
if [ -n "$pgbin" ]; then
    [ "$(id -u)" = 0 ] && chown postgres "$pgdir"
    as_pg "$pgbin/initdb" -D "$pgdir/data" -A trust -U postgres -E UTF8 --locale=C.UTF-8 > /dev/null
    as_pg "$pgbin/pg_ctl" -D "$pgdir/data" -o "-k $pgdir -c listen_addresses=''" \
        -l "$pgdir/log" -w start > /dev/null
    as_pg "$pgbin/createdb" -h "$pgdir" -U postgres tolma
    server="host=$pgdir user=postgres dbname=tolma"
    "$build/bin/tolma-cli" --home "$pdfhome" server einrichten "$server" > /dev/null
fi
if command -v xvfb-run > /dev/null; then
    # With a window manager where one is installed (Debian's openbox), the pictures of the whole
    # screen show the window framed, in the room a clerk has on a 1024×768 display.
    xvfb-run -a -s "-screen 0 1024x768x24" sh -c '
        if command -v openbox > /dev/null; then openbox > /dev/null 2>&1 & sleep 1; fi
        prog=$1 out=$2 home=$3 sample=$4 server=$5
        "$prog" "$out" "$home" "$sample" ${server:+"$server"} || exit 1
        # Once more with text at 150 %, on a fresh home, into 150/.
        rm -rf "$home"/* && QT_SCALE_FACTOR=1.5 "$prog" "$out/150" "$home" "$sample"' \
        sh "$build/tools/tolma-screenshots" "$out" "$home" data/beispiel.tml "$server"
else
    QT_QPA_PLATFORM=offscreen "$build/tools/tolma-screenshots" "$out" "$home" data/beispiel.tml
    rm -rf "${home:?}"/*
    QT_SCALE_FACTOR=1.5 QT_QPA_PLATFORM=offscreen "$build/tools/tolma-screenshots" "$out/150" \
        "$home" data/beispiel.tml
fi
# A disclosure as the command line writes it: its first page as a picture.
"$build/bin/tolma-cli" --home "$pdfhome" --yes import data/beispiel.tml > /dev/null
"$build/bin/tolma-cli" --home "$pdfhome" auskunft --name Petersen --vornamen Jens \
    --pdf "$pdfhome/auskunft.pdf" > /dev/null
pdftoppm -png -r 100 -f 1 -singlefile "$pdfhome/auskunft.pdf" "$out/auskunft-pdf"
ls "$out"
