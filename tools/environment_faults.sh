#!/usr/bin/env bash
# Runs tolma-cli where the environment fails and prints each run's exit code and the line that
# names the cause: a full disk (small tmpfs mounts), a half-copying first start, read-only,
# broken, empty and held stores, an unwritable Dat and Log, a second copy. Needs user and mount
# namespaces (unshare -rm). By hand, to compare builds:
#   tools/environment_faults.sh [PATH/TO/tolma-cli]
# The file generator and the lock probe are taken from the same build as tolma-cli.
set -uo pipefail
cd "$(dirname "$0")/.."
CLI=$(realpath "${1:-build/bin/tolma-cli}")
BUILD=$(dirname "$(dirname "$CLI")")
S=$(realpath data/beispiel.tml)
T=$(mktemp -d)
trap 'rm -rf "$T"' EXIT
"$BUILD/bench/tolma-generate-tml" 2000 "$T/g2000.tml" > /dev/null
ns() { unshare -rm bash -c "$1"; }
# The lines of a run that tell the cause (stderr and the success or failure texts).
cause() { grep -E 'gescheitert|gespeichert|konnte nicht|erstellt!|übertragen!|Programmstart' "$1" | sed 's/^/    /'; }
mkdir -p "$T/full"
echo "1 Import von 2.000 Betrieben in ein Heim auf 3 MB:"
ns "mount -t tmpfs -o size=3m tmpfs $T/full && $CLI --home $T/full/h import --yes $T/g2000.tml > $T/out 2>&1; echo \"  Rückgabe \$?\"; echo \"  Einträge im Fehlerprotokoll: \$(grep -c 'Fehler in Sub' $T/full/h/Log/ERROR.LOG)\""
cause "$T/out"
$CLI --home "$T/e" import --yes "$S" > /dev/null 2>&1
echo "2/3 Export in ein Dat mit 0 KB und mit 60 KB:"
for size in 4k 60k; do
    ns "mount -t tmpfs -o size=$size tmpfs $T/e/Dat && { [ $size = 4k ] && head -c 4096 /dev/zero > $T/e/Dat/voll 2>/dev/null; $CLI --home $T/e export > $T/out 2>&1; echo \"  $size: Rückgabe \$?\"; ls -l $T/e/Dat | grep tml | sed 's/^/    /'; }"
    cause "$T/out"
done
echo "4 erster Start auf 600 KB:"
ns "mount -t tmpfs -o size=600k tmpfs $T/full && $CLI --home $T/full/h sql 'SELECT 1' > $T/out 2>&1; echo \"  Rückgabe \$?\"; ls -l $T/full/h/DB | grep mdb | sed 's/^/    /'"
cause "$T/out"
echo "5 unbrauchbare Datenbanken:"
for c in schreibgeschuetzt verzeichnis-schreibgeschuetzt unsinn leer gesperrt; do
    rm -rf "$T/u"
    $CLI --home "$T/u" sql "SELECT 1" > /dev/null 2>&1
    st="$T/u/DB/tl_4x_b.mdb"
    case $c in
        schreibgeschuetzt) r=$(ns "mount --bind $st $st && mount -o remount,ro,bind $st $st && $CLI --home $T/u import --yes $S > $T/out 2>&1; echo \$?") ;;
        verzeichnis-schreibgeschuetzt) r=$(ns "mount --bind $T/u/DB $T/u/DB && mount -o remount,ro,bind $T/u/DB $T/u/DB && $CLI --home $T/u import --yes $S > $T/out 2>&1; echo \$?") ;;
        unsinn) head -c 100000 /dev/urandom > "$st"; $CLI --home "$T/u" import --yes "$S" > "$T/out" 2>&1; r=$? ;;
        leer) : > "$st"; $CLI --home "$T/u" import --yes "$S" > "$T/out" 2>&1; r=$? ;;
        gesperrt)
            { sleep 5 | "$BUILD/bin/lock_probe" "$st" hold "$T/gesperrt"; } > /dev/null 2>&1 &
            while [ ! -e "$T/gesperrt" ]; do sleep 0.05; done
            $CLI --home "$T/u" import --yes "$S" > "$T/out" 2>&1; r=$?
            wait ;;
    esac
    echo "  $c: Rückgabe $r"
    cause "$T/out"
done
echo "8 Dat und Log nicht beschreibbar, zweite Instanz:"
rm -rf "$T/u"
$CLI --home "$T/u" import --yes "$S" > /dev/null 2>&1
r=$(ns "mount --bind $T/u/Dat $T/u/Dat && mount -o remount,ro,bind $T/u/Dat $T/u/Dat && $CLI --home $T/u export > $T/out 2>&1; echo \$?")
echo "  Dat schreibgeschützt: Rückgabe $r"
cause "$T/out"
{ sleep 5 | "$BUILD/bin/lock_probe" "$T/u/DB/TL_Org.mdb" hold "$T/org-gesperrt"; } > /dev/null 2>&1 &
while [ ! -e "$T/org-gesperrt" ]; do sleep 0.05; done
$CLI --home "$T/u" sql "SELECT 1" > "$T/out" 2>&1
echo "  Einstellungsdatenbank einer laufenden Instanz: Rückgabe $?"
cause "$T/out"
wait
rm -f "$T/u/Log/ERROR.LOG"
mkdir "$T/u/Log/ERROR.LOG"
: > "$T/u/DB/tl_4x_b.mdb"
$CLI --home "$T/u" import --yes "$S" > "$T/out" 2>&1
echo "  Log nicht beschreibbar (und leere Datenbank): Rückgabe $?"
cause "$T/out"
