// Checking a transfer file: the report tells what an import would do, and the store and the
// error log are exactly as before.
#include <gtest/gtest.h>

#include "import_fixture.h"
#include "model/schema.h"

namespace tolma::test {
namespace {

std::string business(const std::string& nr, const std::string& more = "") {
    return "<gem-kz>01001000</gem-kz>\n<betr-nr>" + nr +
           "</betr-nr>\n<betr-hist-nr>1</betr-hist-nr>\n" + more;
}

Strings dumpOf(ImportFixture& f) {
    Strings all;
    for (const auto& t : model::dataTables()) {
        Strings rows = f.rows("SELECT * FROM " + t.name);
        std::sort(rows.begin(), rows.end());
        all.insert(all.end(), rows.begin(), rows.end());
    }
    return all;
}

std::string text(const transfer::ImportCheck& report) {
    return transfer::checkReportText("pruefen.tml", report);
}

TEST(ImportCheckTest, TheReportTellsWhatTheImportWouldDoAndNothingIsKept) {
    ImportFixture f;
    TmlFile first;
    first.betriebe = {business("1001"), business("1002")};
    ASSERT_EQ(f.import(first), transfer::ImportOutcome::Finished);
    const Strings before = dumpOf(f);
    const auto storeSize = std::filesystem::file_size(f.g().settings.db_pfad_aktuell);
    std::filesystem::remove(f.home() / "Log" / "ERROR.LOG");

    TmlFile file;
    file.struktur = "MELDUNGSBEZOGEN";
    file.betriebe = {business("1001", "<meld-art>03</meld-art>\n<unbekannt>x</unbekannt>\n"),
                     business("1003",
                              "<personen>\n<person>\n<pers-nr>7</pers-nr>\n<p-art>NP</p-art>\n</"
                              "person>\n</personen>\n")};
    const std::string path = f.write(file.text(), "pruefen.tml");
    f.dialogs.shown.clear();
    transfer::ImportCheck report;
    EXPECT_EQ(transfer::checkTransferFile(f.g(), path, report), transfer::ImportOutcome::Finished)
        << (report.warnings.empty() ? "" : report.warnings.back());

    EXPECT_TRUE(f.dialogs.shown.empty())
        << f.dialogs.shown.front().text;  // nothing asked, nothing told
    EXPECT_EQ(report.struktur, "MELDUNGSBEZOGEN");
    EXPECT_EQ(report.businesses, 2);
    EXPECT_EQ(report.replacing, 1);  // 1001 with history number 1 is stored
    EXPECT_EQ(report.removals, 1);
    EXPECT_EQ(report.personsNew, 1);
    ASSERT_EQ(report.logEntries.size(), 1u);
    EXPECT_EQ(report.logEntries[0].procedure, "Upd_3_Betr");
    EXPECT_NE(report.logEntries[0].location.find("BetrNr: 1001"), std::string::npos);
    EXPECT_NE(text(report).find(
                  "  BetrNr: 1001 BetrHistNr: 1 (6): Element in dieser Auflistung nicht gefunden."),
              std::string::npos)
        << text(report);
    ASSERT_FALSE(report.warnings.empty());
    EXPECT_NE(report.warnings[0].find("MELDUNGSBEZOGEN"), std::string::npos);
    EXPECT_NE(text(report).find("Betriebe in der Datei: 2"), std::string::npos);
    EXPECT_NE(text(report).find("  Meldedaten: 2 / 1"), std::string::npos) << text(report);

    EXPECT_EQ(dumpOf(f), before);
    EXPECT_EQ(std::filesystem::file_size(f.g().settings.db_pfad_aktuell), storeSize);
    EXPECT_FALSE(std::filesystem::exists(f.home() / "Log" / "ERROR.LOG"));
    EXPECT_FALSE(f.g().log.fehler_vorhanden);

    // The same file of the store's own kind replaces what it names.
    file.struktur = "BETRIEBSBEZOGEN";
    EXPECT_EQ(transfer::checkTransferFile(f.g(), f.write(file.text(), "pruefen.tml"), report),
              transfer::ImportOutcome::Finished);
    EXPECT_EQ(report.replacing, 1);
    EXPECT_EQ(dumpOf(f), before);
    EXPECT_TRUE(report.warnings.empty());
    // And the import itself still runs as before the check.
    EXPECT_EQ(f.import(file), transfer::ImportOutcome::Finished);
    EXPECT_EQ(f.count("betrieb"), 3);
}

// The report names what would change: which businesses are new, which replaced ones differ and
// in what, how many come unchanged, and which of the store the file does not hold.
TEST(ImportCheckTest, TheReportNamesWhatWouldChange) {
    ImportFixture f;
    auto named = [](const std::string& nr, const std::string& name, const std::string& street) {
        return business(nr, "<b-eintr-name>" + name +
                                "</b-eintr-name>\n<adressen>\n<adresse art=\"1\">\n<b-adr-art>1</"
                                "b-adr-art>\n<b-strasse>" +
                                street + "</b-strasse>\n</adresse>\n</adressen>\n");
    };
    TmlFile stored;
    stored.betriebe = {named("1001", "Bäckerei Alt", "Markt 1"), named("1002", "Kiosk", "Deich 2"),
                       named("1003", "Schmiede", "Weg 3"), named("1004", "Fähre", "Hafen 4")};
    ASSERT_EQ(f.import(stored), transfer::ImportOutcome::Finished);
    TmlFile file;
    file.betriebe = {
        named("1001", "Bäckerei Neu", "Markt 1"), named("1002", "Kiosk", "Deich 2"),
        named("1003", "Schmiede", "Weg 33"),
        business("1005", "<b-eintr-name>Neubau</b-eintr-name>\n<meld-art>03</meld-art>\n")};
    transfer::ImportCheck report;
    ASSERT_EQ(transfer::checkTransferFile(f.g(), f.write(file.text(), "pruefen.tml"), report),
              transfer::ImportOutcome::Finished);
    EXPECT_EQ(report.added, 1);
    EXPECT_EQ(report.changed, 2);
    EXPECT_EQ(report.unchanged, 1);
    EXPECT_EQ(report.notInFile, 1);
    const std::string t = text(report);
    for (const char* part : {
             "  neu im Bestand: 1\n      1005  Neubau\n",
             "  ersetzen einen gespeicherten Stand mit anderen Daten: 2\n      1001  Bäckerei Neu\n"
             "          [b-eintr-name]: „Bäckerei Alt“ → „Bäckerei Neu“\n      1003  Schmiede\n"
             "          Betriebsadressen: 1 Zeile(n) neu oder anders, 1 entfallen\n",
             "  ersetzen einen gespeicherten Stand mit gleichen Daten: 1\n",
             "  darin gemeldete Abmeldungen (Meldeart 03): 1\n",
             "Betriebe im Bestand, die nicht in der Datei stehen: 1\n"
             "  (sie bleiben beim Einlesen unverändert gespeichert)\n      1004  Fähre\n",
             "  Betriebsadressen: 3 / 3\n",
         })
        EXPECT_NE(t.find(part), std::string::npos) << part << "\n---\n" << t;
    // The head's date as a clerk writes it.
    report.erstelldatum = "20261120";
    EXPECT_NE(text(report).find("Erstelldatum: 20.11.2026\n"), std::string::npos);
    EXPECT_EQ(text(report).find("betrieb_adresse"), std::string::npos);
}

// A file checked against the store it was just read into changes nothing: its businesses'
// persons and their links included, which a key of the wrong column once counted as gone.
TEST(ImportCheckTest, TheFileJustReadInComesBackUnchanged) {
    ImportFixture f;
    const std::string sample =
        (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string();
    f.dialogs.answers = {core::msg::vbYes};
    ASSERT_EQ(transfer::Upd_1_Start(f.g(), sample), transfer::ImportOutcome::Finished);
    transfer::ImportCheck report;
    ASSERT_EQ(transfer::checkTransferFile(f.g(), sample, report),
              transfer::ImportOutcome::Finished);
    EXPECT_EQ(report.changed, 0) << text(report);
    EXPECT_EQ(report.unchanged, report.businesses);
    EXPECT_EQ(text(report).find("entfallen"), std::string::npos);
}

TEST(ImportCheckTest, BusinessesOutsideTheFiltersMunicipalitiesAreNamed) {
    ImportFixture f;
    insert(f.g().stores.db_org, "aktuelleGemeinde",
           {{"gem-kz", "01001000"},
            {"gem-name", "Flensburg, Stadt"},
            {"markiert", store::Variant::boolean(true)}});
    auto in = [](const std::string& kz, const std::string& nr) {
        return "<gem-kz>" + kz + "</gem-kz>\n<betr-nr>" + nr +
               "</betr-nr>\n<betr-hist-nr>1</betr-hist-nr>\n";
    };
    TmlFile file;
    file.betriebe = {in("01054056", "1001"), in("01001000", "1002"), in("01003000", "1003"),
                     in("01054056", "1004")};
    const std::string path = f.write(file.text(), "pruefen.tml");
    const std::string warning =
        "Betriebe der Datei liegen außerhalb der Gemeinden des Filters: 01003000, 01054056";

    transfer::ImportCheck report;
    f.g().settings.filter_aktiv_flag = 0;  // the filter off: no municipality is outside
    ASSERT_EQ(transfer::checkTransferFile(f.g(), path, report), transfer::ImportOutcome::Finished);
    EXPECT_TRUE(report.warnings.empty()) << report.warnings.front();

    f.g().settings.filter_aktiv_flag = -1;
    ASSERT_EQ(transfer::checkTransferFile(f.g(), path, report), transfer::ImportOutcome::Finished);
    EXPECT_EQ(report.businesses, 4);
    ASSERT_EQ(report.warnings.size(), 1u);
    EXPECT_EQ(report.warnings[0], warning);
    EXPECT_NE(text(report).find("Hinweise\n  " + warning + "\n"), std::string::npos)
        << text(report);

    // A file wholly inside the filter warns of nothing.
    file.betriebe = {in("01001000", "1002")};
    ASSERT_EQ(transfer::checkTransferFile(f.g(), f.write(file.text(), "pruefen.tml"), report),
              transfer::ImportOutcome::Finished);
    EXPECT_TRUE(report.warnings.empty()) << report.warnings.front();
    EXPECT_EQ(f.count("betrieb"), 0);
}

TEST(ImportCheckTest, AFileThatCannotBeReadIsNoReport) {
    ImportFixture f;
    transfer::ImportCheck report;
    EXPECT_EQ(transfer::checkTransferFile(f.g(), (f.dir.path() / "fehlt.tml").string(), report),
              transfer::ImportOutcome::Failed);
    ASSERT_EQ(report.warnings.size(), 1u);
    EXPECT_NE(report.warnings[0].find("kann nicht gelesen werden"), std::string::npos);
}

}  // namespace
}  // namespace tolma::test
