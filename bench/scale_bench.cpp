// The run at scale, by hand: imports generated files of 10,000, 100,000 and N businesses
// (1,000,000 unless given; the largest file is about 3.5 GB on disk) into fresh stores, then
// exports the largest store, opens its business list, types in it and compacts it. Prints
// the import time per business at each size, the growth from 100,000 to N, the list's opening
// and keystroke times, the export time per business, the compaction time and the peak memory.
//   tolma-scale-bench [N]
//   tolma-scale-bench --liste HOME    (only the list, on a store filled before)
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "bench_store.h"
#include "browse/list_form.h"
#include "core/db_connection.h"
#include "core/globals.h"
#include "store/database.h"
#include "transfer/export_form.h"
#include "transfer/import_driver.h"

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

long peakMegabytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;
}

void openAndType(tolma::core::Globals& g) {
    tolma::browse::ListForm form(false);
    auto start = Clock::now();
    tolma::browse::menue_suchen_betrieb(g, form);
    for (long r = 0; r < 30 && r < form.data.Recordset().KnownCount(); ++r)
        form.data.Recordset().rowAt(r);
    const double firstScreen = secondsSince(start) * 1000;
    // The rest as the list window reads it, in slices between the clerk's events.
    int slices = 0;
    while (!tolma::browse::readAhead(form, 30)) ++slices;
    std::cout << "Betriebsliste mit " << form.data.Recordset().RecordCount()
              << " Zeilen: erster Bildschirm nach " << firstScreen << " ms, ganz gelesen nach "
              << secondsSince(start) * 1000 << " ms (" << slices + 1 << " Abschnitte); "
              << form.Label1 << "\n";
    // A key typed into the business number at once, while the rest is still unread: a number
    // no business has, and one in the middle of the list.
    for (const char* number : {"00000500", "0000005"}) {
        tolma::browse::ListForm early(false);
        g.forms.marks.menue_suchen_betrieb = false;
        tolma::browse::menue_suchen_betrieb(g, early);
        early.Text1[1] = number;
        start = Clock::now();
        tolma::browse::Text1_Change(g, early, 1);
        std::cout << "Tastendruck gleich nach dem Öffnen (Betriebsnummer " << number
                  << "): " << secondsSince(start) * 1000 << " ms, Zeile "
                  << early.data.Recordset().AbsolutePosition() + 1 << "\n";
        g.forms.marks.menue_suchen_betrieb = false;
    }
    {
        // A column clicked at once, to sort by it, while the rest is still unread.
        tolma::browse::ListForm early(false);
        g.forms.marks.menue_suchen_betrieb = false;
        tolma::browse::menue_suchen_betrieb(g, early);
        start = Clock::now();
        tolma::browse::Text1_Click(g, early, 3);
        std::cout << "Sortieren gleich nach dem Öffnen: erster Bildschirm nach "
                  << secondsSince(start) * 1000 << " ms\n";
        g.forms.marks.menue_suchen_betrieb = false;
    }
    {
        // The person list, opened the same way.
        tolma::browse::ListForm persons(true);
        const auto open = Clock::now();
        tolma::browse::menue_suchen_person(g, persons);
        const double first = secondsSince(open) * 1000;
        while (!tolma::browse::readAhead(persons, 30)) {
        }
        std::cout << "Personenliste mit " << persons.data.Recordset().RecordCount()
                  << " Zeilen: erster Bildschirm nach " << first << " ms, ganz gelesen nach "
                  << secondsSince(open) * 1000 << " ms\n";
        g.forms.marks.menue_suchen_person = false;
    }
    double worst = 0, total = 0;
    int keys = 0;
    const std::pair<int, std::string> typed[] = {{3, "W"},        {3, "We"},    {3, "Weber"},
                                                 {1, "00000500"}, {4, "Zz"},    {-3, "M"},
                                                 {3, "Mü"},       {3, "Müller"}};
    for (auto [box, text] : typed) {
        if (box < 0) {
            box = -box;
            const auto click = Clock::now();
            tolma::browse::Text1_Click(g, form, box);
            const double sortedFirst = secondsSince(click) * 1000;
            while (!tolma::browse::readAhead(form, 30)) {
            }
            std::cout << "Sortieren nach Spalte " << box << ": erster Bildschirm nach "
                      << sortedFirst << " ms, ganz sortiert nach " << secondsSince(click) * 1000
                      << " ms\n";
        }
        form.Text1[static_cast<size_t>(box)] = text;
        start = Clock::now();
        tolma::browse::Text1_Change(g, form, box);
        const double ms = secondsSince(start) * 1000;
        worst = std::max(worst, ms);
        total += ms;
        ++keys;
    }
    std::cout << "Tastendruck: im Mittel " << total / keys << " ms, höchstens " << worst << " ms\n";
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 2 && std::string(argv[1]) == "--liste") {
        // Only the list, on a home whose store was filled before (e.g. by tolma-cli import).
        tolma::bench::AnswerYes dialogs;
        tolma::core::Globals g;
        tolma::bench::startProgram(g, dialogs, argv[2]);
        openAndType(g);
        return 0;
    }
    const long largest = argc > 1 ? std::atol(argv[1]) : 1000000;
    std::vector<long> sizes{10000, 100000, largest};
    sizes.erase(std::remove_if(sizes.begin(), sizes.end(), [&](long n) { return n > largest; }),
                sizes.end());
    sizes.erase(std::unique(sizes.begin(), sizes.end()), sizes.end());

    std::vector<double> perBusiness;
    for (size_t i = 0; i < sizes.size(); ++i) {
        const long n = sizes[i];
        const auto dir = tolma::bench::freshDirectory("tolma-scale-bench-" + std::to_string(n));
        const auto file = dir / "bench.tml";
        auto start = Clock::now();
        const double megabytes = tolma::bench::writeFile(file, n);
        std::cout << n << " Betriebe: Datei mit " << megabytes << " MB erzeugt in "
                  << secondsSince(start) << " s\n";

        tolma::bench::AnswerYes dialogs;
        tolma::core::Globals g;
        tolma::bench::startProgram(g, dialogs, dir / "home");
        start = Clock::now();
        tolma::transfer::Upd_1_Start(g, file.string());
        const double seconds = secondsSince(start);
        std::filesystem::remove(file);
        perBusiness.push_back(seconds / static_cast<double>(n) * 1e6);
        std::cout << "  Import: " << seconds << " s, " << perBusiness.back() << " µs je Betrieb, "
                  << static_cast<long>(n / seconds) << " Betriebe/s; Datenbank "
                  << std::filesystem::file_size(g.settings.db_pfad_aktuell) / 1000000
                  << " MB; Spitze des Speichers bis hier " << peakMegabytes() << " MB\n";
        if (i + 1 < sizes.size()) {
            std::filesystem::remove_all(dir);  // only the largest store is kept for what follows
            continue;
        }

        // The list comes after the export, so that the peak of import and export is seen on
        // its own: the list's sort of every row is held in memory.
        start = Clock::now();
        auto form = tolma::transfer::Frm_Verwaltungsblock_Load(g);
        const auto result = tolma::transfer::Frm_Verwaltungsblock_Command1_Click(g, form, 0);
        const double exportSeconds = secondsSince(start);
        std::cout << "Export: " << exportSeconds << " s, "
                  << exportSeconds / static_cast<double>(n) * 1e6 << " µs je Betrieb, "
                  << static_cast<long>(n / exportSeconds) << " Betriebe/s\n";
        for (const auto& f : result.files) std::filesystem::remove(f);
        std::cout << "Spitze des Speichers nach Import und Export: " << peakMegabytes() << " MB\n";
        openAndType(g);

        // The full rewrite, as the compaction does it when it runs.
        tolma::core::DB_Schliessen(g);
        tolma::core::DB_Binden_loesen(g);
        const auto temp = dir / "DATENBANK.NEU";
        start = Clock::now();
        tolma::store::CompactDatabase(g.settings.db_pfad_aktuell, temp);
        std::cout << "Komprimieren der Datenbank: " << secondsSince(start) << " s\n";
        std::filesystem::remove(temp);
        std::filesystem::remove_all(dir);
    }
    for (size_t i = 1; i < sizes.size(); ++i)
        std::cout << "Wachstum der Importzeit je Betrieb von " << sizes[i - 1] << " auf "
                  << sizes[i] << ": " << perBusiness[i] / perBusiness[i - 1] << "-fach\n";
    std::cout << "Spitze des Speichers: " << peakMegabytes() << " MB\n";
    return 0;
}
