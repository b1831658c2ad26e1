// Opens the business list on a store of N generated businesses and jumps by typing; prints
// the time to open the list and the time of a keystroke.
//   tolma-list-bench [N]
#include <chrono>
#include <cstdlib>
#include <iostream>

#include "bench_store.h"
#include "browse/list_form.h"
#include "core/globals.h"

namespace {

double millisecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

}  // namespace

int main(int argc, char** argv) {
    const long n = argc > 1 ? std::atol(argv[1]) : 100000;
    tolma::bench::AnswerYes dialogs;
    tolma::core::Globals g;
    tolma::bench::startWithBusinesses(g, dialogs, "tolma-list-bench", n);

    tolma::browse::ListForm form(false);
    auto start = std::chrono::steady_clock::now();
    tolma::browse::menue_suchen_betrieb(g, form);
    for (long r = 0; r < 30 && r < form.data.Recordset().RecordCount(); ++r)
        form.data.Recordset().rowAt(r);
    const double open = millisecondsSince(start);
    std::cout << "Betriebsliste mit " << form.data.Recordset().RecordCount()
              << " Zeilen geöffnet in " << open << " ms\n";

    // Typing a name letter by letter, then a business number, each a MoveFirst and FindFirst.
    double worst = 0, total = 0;
    int keys = 0;
    const std::pair<int, std::string> typed[] = {{3, "W"},        {3, "We"},    {3, "Weber"},
                                                 {1, "00000500"}, {4, "Zz"},    {-3, "M"},
                                                 {3, "Mü"},       {3, "Müller"}};
    for (auto [box, text] : typed) {
        if (box < 0) {  // sorted by the column first, as a clerk does by clicking its box
            box = -box;
            tolma::browse::Text1_Click(g, form, box);
            std::cout << "  sortiert nach Spalte " << box << "\n";
        }
        form.Text1[static_cast<size_t>(box)] = text;
        start = std::chrono::steady_clock::now();
        tolma::browse::Text1_Change(g, form, box);
        const double ms = millisecondsSince(start);
        worst = std::max(worst, ms);
        total += ms;
        ++keys;
        std::cout << "  Eingabe '" << text << "': " << ms << " ms, Zeile "
                  << form.data.Recordset().AbsolutePosition() + 1 << "\n";
    }
    std::cout << "Tastendruck: im Mittel " << total / keys << " ms, höchstens " << worst << " ms\n";
    return 0;
}
