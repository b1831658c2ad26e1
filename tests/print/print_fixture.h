#pragma once

#include <deque>
#include <string>
#include <vector>

#include "../transfer/import_fixture.h"
#include "print/record_report.h"
#include "print/recording_printer.h"

namespace tolma::test {

using Call = print::RecordingPrinter::Call;
using Kind = print::RecordingPrinter::Kind;

// A printer dialog with scripted answers (0 when none is left) before the recording printer.
struct ScriptedPrinterSource : print::PrinterSource {
    print::RecordingPrinter* printer = nullptr;
    std::deque<int> answers;
    std::vector<std::string> titles;
    int ShowPrinter(const std::string& title) override {
        titles.push_back(title);
        if (answers.empty()) return 0;
        const int a = answers.front();
        answers.pop_front();
        return a;
    }
    print::Printer& present() override { return *printer; }
};

// A started program with a store to import into, and the printing wired to a recording printer.
struct PrintFixture : ImportFixture {
    print::RecordingPrinter printer;
    ScriptedPrinterSource source;
    print::PrintState d;

    PrintFixture() {
        source.printer = &printer;
        d.source = &source;
    }
    void importSample() {
        dialogs.answers = {core::msg::vbYes};
        transfer::Upd_1_Start(
            g(), (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string());
        dialogs.shown.clear();
    }
    std::vector<std::string> texts() const {
        std::vector<std::string> out;
        for (const auto& c : printer.printed()) out.push_back(c.text);
        return out;
    }
    const Call& line(const std::string& text) const {
        const Call* c = printer.find(text);
        if (!c) throw std::runtime_error("not printed: " + text);
        return *c;
    }
    int boxes(const std::string& title) const {
        int n = 0;
        for (const auto& s : dialogs.shown) n += s.title == title;
        return n;
    }
    static double lineHeight(double size) { return print::RecordingPrinter::lineHeightOf(size); }
};

// A <betrieb> element with the keys and whatever else a test needs.
inline std::string businessElement(const std::string& nr, const std::string& hist,
                                   const std::string& more = "") {
    return "<gem-kz>01001000</gem-kz>\n<betr-nr>" + nr + "</betr-nr>\n<betr-hist-nr>" + hist +
           "</betr-hist-nr>\n" + more;
}

inline std::string personElement(const std::string& nr, const std::string& funktion,
                                 const std::string& more = "") {
    return "<personen>\n<person>\n<p-funktion>" + funktion + "</p-funktion>\n<pers-nr>" + nr +
           "</pers-nr>\n<p-art>NP</p-art>\n<fam-name>Person " + nr + "</fam-name>\n" + more +
           "</person>\n</personen>\n";
}

}  // namespace tolma::test
