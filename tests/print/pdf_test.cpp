// Reports as PDF: tolma-cli prints without a display, and what it writes reads back as text.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <QGuiApplication>
#include <QPdfWriter>
#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "../store/test_db.h"
#include "print/qt/painter_printer.h"

namespace tolma::test {
namespace {

struct Output {
    int code;
    std::string text;
};

// Runs a shell command without a display; its output, error output included.
Output run(const std::string& command) {
    const std::string line =
        "env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM " + command + " 2>&1";
    FILE* pipe = ::popen(line.c_str(), "r");
    if (!pipe) return {-1, {}};
    std::string text;
    std::array<char, 4096> buffer;
    for (size_t n; (n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;)
        text.append(buffer.data(), n);
    const int status = ::pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text};
}

// pdftotext in reading order, with every run of blanks as one.
std::string pdfText(const std::filesystem::path& pdf) {
    const std::string raw = run("pdftotext -raw '" + pdf.string() + "' -").text;
    std::string out;
    for (char c : raw) {
        if (c == ' ' && !out.empty() && out.back() == ' ') continue;
        out += c;
    }
    return out;
}

struct CliHome {
    TempDir dir;
    std::string cli(const std::string& args) const {
        return std::string(TOLMA_CLI) + " --home '" + (dir.path() / "home").string() + "' " + args;
    }
    CliHome() {
        run(cli("import --yes '" + std::string(TOLMA_SOURCE_DIR) + "/data/beispiel.tml'"));
    }
};

TEST(PdfTest, CliPrintsRecordAndListWithoutADisplay) {
    CliHome home;
    const auto record = home.dir.path() / "betrieb.pdf";
    const Output out = run(home.cli("print record --betr-nr 010540001037 --betr-hist-nr 3 --pdf '" +
                                    record.string() + "'"));
    ASSERT_EQ(out.code, 0) << out.text;
    EXPECT_EQ(out.text, record.string() + "\n");  // no noise from Qt
    const std::string text = pdfText(record);
    EXPECT_NE(text.find("Betriebsnummer: 010540001037 Seite: 1"), std::string::npos) << text;
    EXPECT_NE(text.find("Betriebsnummer: 010540001037 Seite: 2"), std::string::npos);
    EXPECT_NE(text.find("b-eintr-name: Bäckerei Petersen e.K."), std::string::npos);

    const auto list = home.dir.path() / "liste.pdf";
    ASSERT_EQ(run(home.cli("print list personen --pdf '" + list.string() + "'")).code, 0);
    EXPECT_NE(pdfText(list).find("Personenliste Seite: 1"), std::string::npos);
}

TEST(PdfTest, ReportsWithPersonalDataAreTheOwnersAloneUnderAnOpenUmask) {
    CliHome home;
    const mode_t umask = ::umask(022);
    const auto record = home.dir.path() / "betrieb.pdf", list = home.dir.path() / "personen.pdf",
               counts = home.dir.path() / "auswertung.pdf";
    const Output printed = run(home.cli(
        "print record --betr-nr 010540001037 --betr-hist-nr 3 --pdf '" + record.string() + "'"));
    const Output listed = run(home.cli("print list personen --pdf '" + list.string() + "'"));
    const Output evaluated = run(home.cli("auswertung --pdf '" + counts.string() + "'"));
    ::umask(umask);
    ASSERT_EQ(printed.code, 0) << printed.text;
    ASSERT_EQ(listed.code, 0) << listed.text;
    ASSERT_EQ(evaluated.code, 0) << evaluated.text;
    namespace fs = std::filesystem;
    const auto rights = [](const fs::path& p) {
        return fs::status(p).permissions() & fs::perms::all;
    };
    const auto mine = fs::perms::owner_read | fs::perms::owner_write;
    EXPECT_EQ(rights(record), mine);
    EXPECT_EQ(rights(list), mine);
    // Counts by municipality name nobody: readable as the umask allows.
    EXPECT_EQ(rights(counts), mine | fs::perms::group_read | fs::perms::others_read);
}

TEST(PdfTest, CliRefusesUnknownBusinessAndUnwritableFile) {
    CliHome home;
    const auto pdf = home.dir.path() / "x.pdf";
    Output out =
        run(home.cli("print record --betr-nr 999 --betr-hist-nr 1 --pdf '" + pdf.string() + "'"));
    EXPECT_EQ(out.code, 1);
    EXPECT_NE(
        out.text.find("Betrieb nicht gefunden: Betriebsnummer 999, Betriebshistoriennummer 1."),
        std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(pdf));

    out = run(
        home.cli("print record --betr-nr 010540001037 --betr-hist-nr 3 --pdf /nonexistent/x.pdf"));
    EXPECT_EQ(out.code, 1);
    EXPECT_NE(out.text.find("Die PDF-Datei kann nicht geschrieben werden: /nonexistent/x.pdf"),
              std::string::npos);

    std::ifstream log(home.dir.path() / "home" / "Log" / "ERROR.LOG", std::ios::binary);
    std::stringstream s;
    s << log.rdbuf();
    EXPECT_NE(s.str().find("Fehler in Sub/Function: tolma-cli print\r\n"), std::string::npos);
    EXPECT_EQ(run(home.cli("print list firmen --pdf x.pdf")).code, 2);
}

TEST(PdfTest, CourierNewIsDrawnInLiberationMonoWithItsWidths) {
    TempDir dir;
    const auto pdf = dir.path() / "schrift.pdf";
    {
        QPdfWriter writer(QString::fromStdString(pdf.string()));
        print::setUpPdfPage(writer);
        print::PainterPrinter printer(writer);
        printer.font = {"Courier New", 8, false, false};
        // Courier New's characters are 0.6 of the size wide: 96 twips at 8 points.
        EXPECT_NEAR(printer.TextWidth(std::string(100, 'x')), 9600, 5);
        EXPECT_NEAR(printer.TextWidth("Großstraße"), 960, 1);
        printer.Print("Zeile");
        EXPECT_GT(printer.CurrentY(), 170);
        printer.EndDoc();
    }
    EXPECT_NE(run("pdffonts '" + pdf.string() + "'").text.find("LiberationMono"),
              std::string::npos);
}

}  // namespace
}  // namespace tolma::test

int main(int argc, char** argv) {
    const auto app = tolma::print::ensureGuiApplication();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
