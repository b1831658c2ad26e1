// Opens the business list on a store of N generated businesses and jumps by typing; prints
// the time to open the list and the time of a keystroke, each as wall time and as CPU time
// (on a busy machine the wall time waits for the processor).
//   tolma-list-bench [N]
#include <time.h>

#include <chrono>
#include <cstdlib>
#include <iostream>

#include "bench_store.h"
#include "browse/list_form.h"
#include "core/globals.h"

namespace {

double cpuMilliseconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_nsec) / 1e6;
}

struct Stopwatch {
    std::chrono::steady_clock::time_point wall = std::chrono::steady_clock::now();
    double cpu = cpuMilliseconds();
    double wallMs() const {
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - wall)
            .count();
    }
    double cpuMs() const { return cpuMilliseconds() - cpu; }
};

}  // namespace

int main(int argc, char** argv) {
    const long n = argc > 1 ? std::atol(argv[1]) : 100000;
    tolma::bench::AnswerYes dialogs;
    tolma::core::Globals g;
    tolma::bench::startWithBusinesses(g, dialogs, "tolma-list-bench", n);

    tolma::browse::ListForm form(false);
    const Stopwatch opening;
    tolma::browse::menue_suchen_betrieb(g, form);
    for (long r = 0; r < 30 && r < form.data.Recordset().RecordCount(); ++r)
        form.data.Recordset().rowAt(r);
    std::cout << "Betriebsliste mit " << form.data.Recordset().RecordCount()
              << " Zeilen geöffnet in " << opening.wallMs() << " ms (CPU " << opening.cpuMs()
              << " ms)\n";

    // Typing a name letter by letter, then a business number, each a MoveFirst and FindFirst.
    double worst = 0, total = 0, worstCpu = 0, totalCpu = 0;
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
        const Stopwatch keystroke;
        tolma::browse::Text1_Change(g, form, box);
        const double ms = keystroke.wallMs(), cpu = keystroke.cpuMs();
        worst = std::max(worst, ms);
        total += ms;
        worstCpu = std::max(worstCpu, cpu);
        totalCpu += cpu;
        ++keys;
        std::cout << "  Eingabe '" << text << "': " << ms << " ms (CPU " << cpu << " ms), Zeile "
                  << form.data.Recordset().AbsolutePosition() + 1 << "\n";
    }
    std::cout << "Tastendruck: im Mittel " << total / keys << " ms, höchstens " << worst
              << " ms (CPU im Mittel " << totalCpu / keys << " ms, höchstens " << worstCpu
              << " ms)\n";
    return 0;
}
