#!/usr/bin/env bash
# Runs tolma-cli where the environment fails and prints each run's exit code: a full disk (small
# tmpfs mounts), a half-copying first start, read-only, broken and empty stores. Needs user and
# mount namespaces (unshare -rm). By hand, to compare builds:
#   tools/environment_faults.sh [PATH/TO/tolma-cli]
set -uo pipefail
cd "$(dirname "$0")/.."
CLI=$(realpath "${1:-build/bin/tolma-cli}")
S=$(realpath data/beispiel.tml)
T=$(mktemp -d)
trap 'rm -rf "$T"' EXIT
build/bench/tolma-generate-tml 2000 "$T/g2000.tml" > /dev/null
ns() { unshare -rm bash -c "$1"; }
mkdir -p "$T/full"
echo "1 Import von 2.000 Betrieben in ein Heim auf 3 MB:"
ns "mount -t tmpfs -o size=3m tmpfs $T/full && $CLI --home $T/full/h import --yes $T/g2000.tml > /dev/null 2>&1; echo \"  Rückgabe \$?\""
$CLI --home "$T/e" import --yes "$S" > /dev/null 2>&1
echo "2/3 Export in ein Dat mit 60 KB:"
ns "mount -t tmpfs -o size=60k tmpfs $T/e/Dat && $CLI --home $T/e export > $T/out 2>&1; echo \"  Rückgabe \$?\"; grep -o 'erstellt!\|gescheitert.*' $T/out | sed 's/^/  /'; ls -l $T/e/Dat | grep tml | sed 's/^/  /'"
echo "4 erster Start auf 600 KB:"
ns "mount -t tmpfs -o size=600k tmpfs $T/full && $CLI --home $T/full/h sql 'SELECT 1' > /dev/null 2>&1; echo \"  Rückgabe \$?\"; ls -l $T/full/h/DB | grep mdb | sed 's/^/  /'"
echo "5 unbrauchbare Datenbanken:"
for c in schreibgeschuetzt verzeichnis-schreibgeschuetzt unsinn leer; do
    rm -rf "$T/u"
    $CLI --home "$T/u" sql "SELECT 1" > /dev/null 2>&1
    st="$T/u/DB/tl_4x_b.mdb"
    case $c in
        schreibgeschuetzt) r=$(ns "mount --bind $st $st && mount -o remount,ro,bind $st $st && $CLI --home $T/u import --yes $S > /dev/null 2>&1; echo \$?") ;;
        verzeichnis-schreibgeschuetzt) r=$(ns "mount --bind $T/u/DB $T/u/DB && mount -o remount,ro,bind $T/u/DB $T/u/DB && $CLI --home $T/u import --yes $S > /dev/null 2>&1; echo \$?") ;;
        unsinn) head -c 100000 /dev/urandom > "$st"; $CLI --home "$T/u" import --yes "$S" > /dev/null 2>&1; r=$? ;;
        leer) : > "$st"; $CLI --home "$T/u" import --yes "$S" > /dev/null 2>&1; r=$? ;;
    esac
    echo "  $c: Rückgabe $r"
done
