// Imports one business with N persons, for N = 5,000, 10,000 and 20,000 (or the numbers
// given), and prints the time of each. Storing a person must not grow with the persons
// before it in the same business.
//   tolma-persons-bench [N...]
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <vector>

#include "bench_store.h"
#include "core/globals.h"
#include "transfer/import_driver.h"

namespace {

void writeBusinessWithPersons(const std::filesystem::path& file, long persons) {
    std::ofstream out(file, std::ios::binary);
    out << "<gewerbedatei xmlns:tolmaML='http://www.tolma.de/tolma.htm'>\r\n<verwaltungsblock>\r\n"
           "<struktur>BETRIEBSBEZOGEN</struktur>\r\n<tml-version>1.5.1</tml-version>\r\n"
           "<zahl-betriebe-gesamt>1</zahl-betriebe-gesamt>\r\n</"
           "verwaltungsblock>\r\n<datenblock>\r\n"
           "<betrieb>\r\n<gem-kz>01054056</gem-kz>\r\n<betr-nr>010540009999</betr-nr>\r\n"
           "<betr-hist-nr>1</betr-hist-nr>\r\n<b-eintr-name>Genossenschaft</b-eintr-name>\r\n"
           "<b-rechtsform>510</b-rechtsform>\r\n<personen>\r\n";
    for (long i = 1; i <= persons; ++i)
        out << "<person>\r\n<p-funktion>1</p-funktion>\r\n<pers-nr>" << 910000000000 + i
            << "</pers-nr>\r\n<p-art>NP</p-art>\r\n<fam-name>Mitglied " << i
            << "</fam-name>\r\n<vornamen>Jens</vornamen>\r\n</person>\r\n";
    out << "</personen>\r\n</betrieb>\r\n</datenblock>\r\n</gewerbedatei>\r\n";
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<long> sizes;
    for (int i = 1; i < argc; ++i) sizes.push_back(std::atol(argv[i]));
    if (sizes.empty()) sizes = {5000, 10000, 20000};
    for (long n : sizes) {
        const auto dir = tolma::bench::freshDirectory("tolma-persons-bench");
        const auto file = dir / "personen.tml";
        writeBusinessWithPersons(file, n);
        tolma::bench::AnswerYes dialogs;
        tolma::core::Globals g;
        tolma::bench::startProgram(g, dialogs, dir / "home");
        const auto start = std::chrono::steady_clock::now();
        tolma::transfer::Upd_1_Start(g, file.string());
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const auto stored =
            g.stores.db_daten.lookup("SELECT Count(*) AS n FROM beziehung_betrieb_person", "n");
        std::cout << n << " Personen in einem Betrieb: " << seconds << " s, "
                  << (stored ? stored->toString() : "?") << " Verknüpfungen gespeichert\n";
    }
    return 0;
}
