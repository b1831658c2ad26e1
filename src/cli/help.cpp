#include "cli/help.h"

#include <algorithm>
#include <ostream>

#include "cli/cli.h"

namespace tolma::cli {
namespace {

constexpr const char* kExitCodes =
    "Rückgabewerte: 0 erledigt, 1 Fehler (die Ursache steht auf der Fehlerausgabe),\n"
    "2 falscher Aufruf, 3 vom Benutzer abgebrochen oder Frage verneint.\n";

struct Page {
    const char* command;
    const char* text;
};

// One page per command: what it does, its options, what its exit codes mean.
constexpr Page kPages[] = {
    {"import",
     "Aufruf: tolma-cli [--home VERZEICHNIS] [--yes|--no|--answers JN...] import DATEI\n"
     "        tolma-cli [--home VERZEICHNIS] import --check DATEI\n"
     "\n"
     "Liest eine Transferdatei (*.tml) in die aktive Datenbank ein, genau wie der Menüpunkt\n"
     "„Daten-Import“. Strg-C bricht zwischen zwei Betrieben ab wie ESC im Programm. Am Ende\n"
     "steht, wie viele Betriebe eingelesen wurden (neu, ersetzt, darunter Abmeldungen).\n"
     "\n"
     "  --check   prüft die Datei nur: nichts wird gespeichert, kein Fehlerprotokoll;\n"
     "            ausgegeben wird, was ein Einlesen ändern würde.\n"
     "\n"
     "Rückgabewerte: 0 eingelesen (auch mit Einträgen im Fehlerprotokoll zu einzelnen Sätzen),\n"
     "1 Fehler: die Datei fehlt, ist leer, unlesbar oder enthält keinen Betrieb, oder die\n"
     "Datenbank ließ sich nicht öffnen oder beschreiben; 2 falscher Aufruf; 3 abgebrochen.\n"},
    {"imports",
     "Aufruf: tolma-cli [--home VERZEICHNIS] imports\n"
     "\n"
     "Listet die aufgezeichneten Importläufe: Lauf, Datum, Datei, Betriebe, Zurückgenommen.\n"
     "\n"
     "Rückgabewerte: 0 gelistet, 1 die Datenbank ist nicht geöffnet, 2 falscher Aufruf.\n"},
    {"undo",
     "Aufruf: tolma-cli [--home VERZEICHNIS] undo [--yes] [--lauf N]\n"
     "\n"
     "Nimmt den letzten Importlauf zurück, mit --lauf N den Lauf N und alle späteren. Fragt\n"
     "einmal nach (--yes beantwortet die Frage mit Ja) und nimmt alles in einer Transaktion\n"
     "zurück: scheitert etwas, bleibt der Datenbestand unverändert.\n"
     "\n"
     "  --lauf N   die Nummer eines Laufs, wie `imports` sie zeigt\n"
     "\n"
     "Rückgabewerte: 0 zurückgenommen, 1 nichts zurückzunehmen oder Fehler,\n"
     "2 falscher Aufruf, 3 Frage verneint.\n"},
    {"loeschen",
     "Aufruf: tolma-cli [--home VERZEICHNIS] loeschen --abgemeldet-vor JJJJ-MM-TT [--pruefen] "
     "[--yes]\n"
     "\n"
     "Löscht jeden Betrieb, dessen gespeicherter Stand eine Abmeldung vor dem Tag ist (nach\n"
     "betr-ende, sonst meld-datum), mit allen seinen Ständen und Zeilen, die Personen, auf die\n"
     "kein verbleibender Betrieb mehr verweist, ihre Einträge im Suchindex und ihre alten\n"
     "Stände in der Aufzeichnung der Importläufe. Alles in einer Transaktion; danach wird der\n"
     "freigewordene Platz überschrieben. Fragt einmal nach (--yes beantwortet die Frage mit Ja).\n"
     "\n"
     "  --pruefen   zeigt nur, was gelöscht würde: Betriebe, Personen, Zeilen je Tabelle\n"
     "\n"
     "Rückgabewerte: 0 gelöscht (oder nichts zu löschen), 1 Fehler (nichts geändert),\n"
     "2 falscher Aufruf, 3 Frage verneint.\n"},
    {"auskunft",
     "Aufruf: tolma-cli [--home VERZEICHNIS] auskunft --name NAME [--vornamen V]\n"
     "                  [--geburtsdatum TT.MM.JJJJ] (--pdf DATEI | --csv DATEI)\n"
     "\n"
     "Schreibt eine Auskunft über alles, was der Datenbestand zu einer Person speichert: ihre\n"
     "Felder, Staatsangehörigkeiten, Erlaubnisse und Handwerkskarten und jeden Betrieb, zu dem\n"
     "sie gehört (Name, Anschrift, Funktion, Ein- und Austritt, Importlauf der Daten). Der\n"
     "Name wird wie bei „search“ verglichen (ä/ae, ß/ss, Groß- und Kleinschreibung). Passen\n"
     "mehrere Personen, werden sie aufgelistet und nichts geschrieben. Jede Auskunft wird ohne\n"
     "personenbezogene Daten protokolliert.\n"
     "\n"
     "  --vornamen V          nur Personen mit diesen Vornamen\n"
     "  --geburtsdatum TAG    nur Personen, die an diesem Tag geboren sind\n"
     "  --pdf DATEI           die Auskunft als PDF-Datei (A4)\n"
     "  --csv DATEI           die Auskunft als CSV-Datei (UTF-8, Semikolons), ein Feld je Zeile\n"
     "\n"
     "Rückgabewerte: 0 geschrieben, 1 keine oder mehrere Personen gefunden oder Fehler,\n"
     "2 falscher Aufruf.\n"},
    {"protokoll",
     "Aufruf: tolma-cli [--home VERZEICHNIS] protokoll\n"
     "\n"
     "Gibt das Protokoll der Löschungen und Auskünfte aus, durch Tabulatoren getrennt, mit\n"
     "einer Kopfzeile. Es enthält keine personenbezogenen Daten.\n"
     "\n"
     "Rückgabewerte: 0 ausgegeben, 1 die Datenbank ist nicht geöffnet, 2 falscher Aufruf.\n"},
    {"export",
     "Aufruf: tolma-cli [--home VERZEICHNIS] export [--by-key] [--set INDEX=WERT]...\n"
     "\n"
     "Schreibt den Datenbestand als Transferdatei in das Verzeichnis „Dat“, wie „OK“ im\n"
     "Export-Fenster, und gibt jede geschriebene Datei aus.\n"
     "\n"
     "  --by-key          eine Datei je Wert des Schlüsselfelds\n"
     "  --set INDEX=WERT  füllt ein Feld des Dateikopfs (0 bis 14 in der Reihenfolge des\n"
     "                    Fensters, z. B. 4=Name für den Ersteller)\n"
     "\n"
     "Rückgabewerte: 0 geschrieben, 1 Fehler (keine Datei bleibt halb geschrieben zurück),\n"
     "2 falscher Aufruf.\n"},
    {"print",
     "Aufruf: tolma-cli [--home VERZEICHNIS] print record --betr-nr N --betr-hist-nr H\n"
     "                  [--pers-nr P] --pdf DATEI\n"
     "        tolma-cli [--home VERZEICHNIS] print list betriebe|personen --pdf DATEI\n"
     "\n"
     "Druckt in eine PDF-Datei (A4) statt auf einen Drucker, ohne Bildschirm.\n"
     "\n"
     "  record          der Datensatzbericht eines Betriebs (mit --pers-nr einer seiner\n"
     "                  Personen)\n"
     "  list            die Betriebs- oder Personenliste, wie sie der Menüpunkt zeigt\n"
     "                  (Gemeindefilter eingeschlossen)\n"
     "  --pdf DATEI     die Datei, in die gedruckt wird (nur für den Eigentümer lesbar)\n"
     "\n"
     "Rückgabewerte: 0 gedruckt, 1 Fehler (unbekannter Betrieb, Datei nicht beschreibbar),\n"
     "2 falscher Aufruf.\n"},
    {"search",
     "Aufruf: tolma-cli [--home VERZEICHNIS] search [--nur betriebe|personen] [--limit N]\n"
     "                  BEGRIFF...\n"
     "\n"
     "Sucht wie „Datei › Suchen...“ in Namen, Straßen, Orten und Nummern; Schreibweisen\n"
     "(ä/ae/a, ß/ss) und Namen nach Klang werden gefunden, das letzte Wort auch als Anfang.\n"
     "Die Treffer stehen tabulatorgetrennt mit Kopfzeile da.\n"
     "\n"
     "  --nur betriebe|personen   nur Betriebe oder nur Personen\n"
     "  --limit N                 höchstens N Treffer (sonst 50)\n"
     "\n"
     "Rückgabewerte: 0 gesucht (auch ohne Treffer), 1 Fehler, 2 falscher Aufruf.\n"},
    {"auswertung",
     "Aufruf: tolma-cli [--home VERZEICHNIS] auswertung [--von MONAT] [--bis MONAT]\n"
     "                  [--gruppe wz|gemeinde|rechtsform|grund] [--gemeinde KZ]\n"
     "                  [--csv DATEI] [--pdf DATEI] [--png DATEI]\n"
     "\n"
     "Zählt Anmeldungen, Ummeldungen und Abmeldungen je Monat und Gruppe und gibt die\n"
     "Tabelle tabulatorgetrennt aus; auf Wunsch als CSV, als PDF mit Diagramm und als PNG.\n"
     "\n"
     "  --von, --bis MONAT   der Zeitraum (JJJJ-MM oder MM.JJJJ); ohne sie die zwölf\n"
     "                       Kalendermonate bis zum jüngsten Monat mit Meldungen\n"
     "  --gruppe             Wirtschaftsabschnitt (wz), Gemeinde, Rechtsform oder Meldegrund\n"
     "  --gemeinde KZ        nur eine Gemeinde (Gemeindekennzahl)\n"
     "\n"
     "Rückgabewerte: 0 ausgewertet, 1 Fehler, 2 falscher Aufruf (auch ein falscher Zeitraum).\n"},
    {"options",
     "Aufruf: tolma-cli [--home VERZEICHNIS] options [--datenart BETRIEBSBEZOGEN|MELDUNGSBEZOGEN]\n"
     "                  [--filter on|off] [--gemeinde KZ]...\n"
     "\n"
     "Ändert wie das Optionen-Fenster die Datenart, schaltet den Gemeindefilter und setzt die\n"
     "markierten Gemeinden (jede mit --gemeinde); ausgegeben wird der Stand danach.\n"
     "\n"
     "Rückgabewerte: 0 geändert oder gezeigt, 1 Fehler, 2 falscher Aufruf.\n"},
    {"sql",
     "Aufruf: tolma-cli [--home VERZEICHNIS] sql [--settings] ANWEISUNG\n"
     "\n"
     "Führt eine Anweisung in der Abfragesprache des Programms gegen die aktive Datenbank aus\n"
     "(Feldnamen in eckigen Klammern, LIKE mit * und ?). Ergebniszeilen erscheinen\n"
     "tabulatorgetrennt mit Kopfzeile, andere Anweisungen nennen die Zahl der geänderten Zeilen.\n"
     "\n"
     "  --settings   gegen die Einstellungsdatenbank statt gegen die Datenbank der Daten\n"
     "\n"
     "Rückgabewerte: 0 ausgeführt, 1 Fehler in der Anweisung oder beim Ausführen,\n"
     "2 falscher Aufruf.\n"},
    {"kopieren",
     "Aufruf: tolma-cli [--home VERZEICHNIS] kopieren --nach ZIEL\n"
     "\n"
     "Kopiert die aktive Datenbank mit allen Zeilen und ihrer Reihenfolge nach ZIEL: in eine\n"
     "Datei (eine neue wird angelegt) oder in einen mit „server einrichten“ eingerichteten\n"
     "Datenspeicher auf einem PostgreSQL-Server, und ebenso vom Server zurück in eine Datei.\n"
     "Mit kommen die Importläufe (sie lassen sich im Ziel zurücknehmen) und das Protokoll der\n"
     "Löschungen und Auskünfte; der Suchindex wird im Ziel aus den kopierten Zeilen neu\n"
     "aufgebaut. Ein Ziel, das schon Daten enthält, wird abgelehnt. Die Kopie geschieht in\n"
     "einer Transaktion und wird geprüft (Zeilen je Tabelle in Quelle und Ziel).\n"
     "\n"
     "  ZIEL   Pfad einer Datei oder Verbindungsangabe (postgresql://…, service=NAME)\n"
     "\n"
     "Rückgabewerte: 0 kopiert, 1 Fehler oder Ziel nicht leer (nichts kopiert),\n"
     "2 falscher Aufruf.\n"},
    {"server",
     "Aufruf: tolma-cli server einrichten VERBINDUNG\n"
     "\n"
     "Richtet auf einem PostgreSQL-Server einen Datenspeicher ein: die Tabellen mit ihren\n"
     "Indizes und die Rollen tolma_import (lesen und schreiben) und tolma_lesen (nur lesen),\n"
     "denen die Anmeldungen der Sachbearbeiter angehören. Was schon da ist, bleibt; ein zweiter\n"
     "Aufruf ändert nichts. Alles geschieht in einer Transaktion.\n"
     "\n"
     "  VERBINDUNG   postgresql://[benutzer@]rechner[:port]/datenbank, service=NAME oder\n"
     "               Schlüsselwörter wie „host=rechner dbname=datenbank“; ein Kennwort\n"
     "               steht am besten in ~/.pgpass, nicht auf der Befehlszeile\n"
     "\n"
     "Rückgabewerte: 0 eingerichtet oder schon eingerichtet, 1 Fehler (Server nicht\n"
     "erreichbar, Anmeldung abgelehnt, Rechte fehlen), 2 falscher Aufruf.\n"},
};

}  // namespace

void printOverview(std::ostream& out) {
    out << "tolma-cli – Gewerbedaten einlesen, ausgeben, drucken, suchen und auswerten,\n"
           "ohne Bildschirm, mit denselben Abläufen wie das Programm.\n"
           "\n"
           "Aufruf: tolma-cli [--home VERZEICHNIS] [--yes|--no|--answers JN...] BEFEHL ...\n"
           "        tolma-cli BEFEHL --help    Hilfe zu einem Befehl\n"
           "        tolma-cli --version        Version des Programms\n"
           "\n"
           "Befehle:\n"
           "  import       liest eine Transferdatei ein (mit --check: prüft sie nur)\n"
           "  imports      listet die aufgezeichneten Importläufe\n"
           "  undo         nimmt den letzten Importlauf zurück\n"
           "  export       schreibt den Datenbestand als Transferdatei\n"
           "  print        druckt den Bericht eines Betriebs oder eine Liste in eine PDF-Datei\n"
           "  search       sucht Betriebe und Personen\n"
           "  auswertung   zählt An-, Um- und Abmeldungen nach Monat und Gruppe\n"
           "  options      ändert Datenart und Gemeindefilter\n"
           "  sql          führt eine Anweisung in der Abfragesprache des Programms aus\n"
           "  loeschen     löscht Betriebe nach Ablauf der Löschfrist\n"
           "  auskunft     schreibt eine Auskunft über die Daten einer Person\n"
           "  protokoll    zeigt das Protokoll der Löschungen und Auskünfte\n"
           "  server       richtet einen Datenspeicher auf einem PostgreSQL-Server ein\n"
           "  kopieren     kopiert die aktive Datenbank in eine Datei oder auf einen Server\n"
           "\n"
           "Für jeden Befehl:\n"
           "  --home VERZEICHNIS  das Arbeitsverzeichnis mit DB, Dat und Log\n"
           "  --yes, --no         beantwortet jede Frage mit Ja bzw. Nein\n"
           "  --answers JN...     beantwortet die Fragen der Reihe nach (j Ja, n Nein; jede\n"
           "                      weitere mit Nein)\n"
           "  Ohne diese wird am Terminal gefragt, sonst gilt Nein.\n"
           "\n"
        << kExitCodes;
}

bool printCommandHelp(const std::string& command, std::ostream& out) {
    for (const Page& p : kPages)
        if (command == p.command) {
            out << p.text;
            return true;
        }
    return false;
}

bool asksForHelp(const std::vector<std::string>& args) {
    return std::any_of(args.begin(), args.end(),
                       [](const std::string& a) { return a == "--help" || a == "-h"; });
}

int badCall(std::ostream& err, const std::string& command, const std::string& what) {
    err << "tolma-cli " << command << ": " << what << "\n"
        << "Hilfe: tolma-cli " << command << " --help\n";
    return kExitUsage;
}

}  // namespace tolma::cli
