// What the export writes, line for line, and that the import reads it back.
#include <gtest/gtest.h>

#include "import_fixture.h"
#include "transfer/export_form.h"

namespace tolma::test {
namespace {

// The lines of a written file, decoded, without their CR LF.
Strings lines(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    const std::string text = model::cp1252ToUtf8(s.str());
    Strings out;
    size_t pos = 0;
    for (size_t crlf; (crlf = text.find("\r\n", pos)) != std::string::npos; pos = crlf + 2)
        out.push_back(text.substr(pos, crlf - pos));
    EXPECT_EQ(pos, text.size()) << "every line ends with CR LF";
    return out;
}

struct ExportFixture : ImportFixture {
    transfer::ExportResult exportAll(bool byKey = false) {
        transfer::VerwaltungsblockForm form = transfer::Frm_Verwaltungsblock_Load(g());
        if (byKey) form.Check1[0].value = 1;
        return transfer::Frm_Verwaltungsblock_Command1_Click(g(), form, 0);
    }
    void addBusiness(const std::string& nr, const std::string& hist, const Row& more = {}) {
        Row row{{"betr-nr", nr}, {"betr-hist-nr", hist}, {"gem-kz", "01001000"}};
        row.insert(row.end(), more.begin(), more.end());
        insert(g().stores.db_daten, "betrieb", row);
    }
    Strings between(const Strings& all, const std::string& from, const std::string& to) {
        auto a = std::find(all.begin(), all.end(), from);
        auto b = std::find(a, all.end(), to);
        return a == all.end() ? Strings{} : Strings(a, b == all.end() ? b : b + 1);
    }
};

TEST(ExportTest, FormDefaultsAndTheHeadOfTheFile) {
    ExportFixture f;
    transfer::VerwaltungsblockForm form = transfer::Frm_Verwaltungsblock_Load(f.g());
    EXPECT_EQ(form.Text1[0].text, "MIGRATION");
    EXPECT_EQ(form.Text1[1].text, "BETRIEBSBEZOGEN");
    EXPECT_EQ(form.Text1[2].text, "14.11.2023");
    EXPECT_EQ(form.Text1[3].text, "22.13.20");
    EXPECT_EQ(form.Text1[6].text, "MIGRATION ACCESS");
    EXPECT_EQ(form.Text1[9].text, "14.11.2023");
    EXPECT_EQ(form.Text1[14].text, "1.5.1");
    EXPECT_EQ(form.Text1[10].text, "keine Sätze vorhanden!");
    EXPECT_TRUE(form.Text1_10_red);
    EXPECT_TRUE(form.Text1[10].grey);
    EXPECT_FALSE(form.Text1[4].grey);
    EXPECT_EQ(form.Text1[8].label, "Berichtszeitraum von: ");
    EXPECT_TRUE(form.Check1[3].visible && !form.Check1[3].enabled && form.Check1[3].value == 1);
    EXPECT_FALSE(form.Check1[0].visible);

    // An empty store: no file, the message.
    auto result = transfer::Frm_Verwaltungsblock_Command1_Click(f.g(), form, 0);
    EXPECT_TRUE(result.files.empty());
    EXPECT_EQ(f.lastMessage(), "Es wurden keine Daten in der Betriebsdatenbank gefunden!");

    f.addBusiness("1", "1", {{"schluesselfeld", "K"}});
    form = transfer::Frm_Verwaltungsblock_Load(f.g());
    EXPECT_EQ(form.Text1[10].text, "1");
    EXPECT_TRUE(form.Check1[0].visible);
    form.Text1[4].text = "  Frau Meier  ";
    form.Text1[8].text = "01.02.2023";
    form.Text1[9].text = "Ende Januar";
    result = transfer::Frm_Verwaltungsblock_Command1_Click(f.g(), form, 0);
    ASSERT_EQ(result.files.size(), 1u);
    EXPECT_EQ(result.files[0], f.g().paths.pfad_dat + "14-11-2023_22-13-20.tml");
    EXPECT_EQ(f.lastMessage(), "Die Datei '14-11-2023_22-13-20.tml' wurde im Verzeichnis '" +
                                   f.g().paths.pfad_dat + "' erstellt!");
    const Strings written = lines(result.files[0]);
    const Strings head(written.begin(), written.begin() + 23);
    EXPECT_EQ(head, (Strings{"<gewerbedatei xmlns:tolmaML='http://www.tolma.de/tolma.htm'>",
                             "<verwaltungsblock>",
                             "<verarbeitungsart>MIGRATION</verarbeitungsart>",
                             "<struktur>BETRIEBSBEZOGEN</struktur>",
                             "<tml-version>1.5.1</tml-version>",
                             "<erstelldatum>20231114</erstelldatum>",
                             "<erstellzeit>22.13.20</erstellzeit>",
                             "<ersteller>Frau Meier</ersteller>",
                             "<ersteller-id></ersteller-id>",
                             "<erstellquelle>MIGRATION ACCESS</erstellquelle>",
                             "<ersteller-email></ersteller-email>",
                             "<berichts-zeitraum-von>20230201</berichts-zeitraum-von>",
                             "<berichts-zeitraum-bis>Ende Januar</berichts-zeitraum-bis>",
                             "<zahl-betriebe-gesamt>1</zahl-betriebe-gesamt>",
                             "<gemeinden>",
                             "<gemeinde>",
                             "<gem-name></gem-name>",
                             "<gem-kz></gem-kz>",
                             "<gem-telefon></gem-telefon>",
                             "</gemeinde>",
                             "</gemeinden>",
                             "</verwaltungsblock>",
                             "<datenblock>"}));
    EXPECT_EQ(written.back(), "</gewerbedatei>");
    EXPECT_FALSE(f.g().forms.marks.menue_export_textdatei);
    EXPECT_EQ(f.g().forms.startView.Label2, "Auswahl von Gewerbedaten!");
}

TEST(ExportTest, FieldsAreCleanedDatesConvertedBlanksAndKeysLeftOut) {
    ExportFixture f;
    f.addBusiness("1", "1",
                  {{"b-eintr-name", ";abc;"},
                   {"b-gew-zusatz", " ;abc"},
                   {"betr-art-text", "a<b>c"},
                   {"b-bemerkung", "Zeile 1\r\nZeile 2"},
                   {"meld-art-text", "   "},
                   {"betr-ende", "unbekannt"},
                   {"betr-beginn", "1.1.2001"},
                   {"b-reg-datum", "31.12.2001"},
                   {"vertreter-nname", "Ømega Čech"}});
    insert(f.g().stores.db_daten, "betrieb_taetigkeit",
           {{"betr-nr", "1"}, {"betr-hist-nr", "1"}, {"tk-ende", "unbegrenzt"}});
    insert(f.g().stores.db_daten, "betrieb_adresse",
           {{"betr-nr", "1"}, {"betr-hist-nr", "1"}, {"b-adr-art", "5"}});
    const auto file = f.exportAll().files.at(0);
    const Strings betrieb = f.between(lines(file), "<betrieb>", "</betrieb>");
    EXPECT_EQ(
        betrieb,
        (Strings{"<betrieb>", "<gem-kz>01001000</gem-kz>", "<betr-nr>1</betr-nr>",
                 "<betr-hist-nr>1</betr-hist-nr>", "<b-eintr-name>abc</b-eintr-name>",
                 "<b-bemerkung>Zeile 1  Zeile 2</b-bemerkung>", "<b-gew-zusatz>;abc</b-gew-zusatz>",
                 "<betr-art-text>a b c</betr-art-text>", "<betr-beginn>01.21.</betr-beginn>",
                 "<betr-ende>88888888</betr-ende>", "<vertreter-nname>Ømega ?ech</vertreter-nname>",
                 "<b-reg-datum>20011231</b-reg-datum>", "<bearb-status>E</bearb-status>",
                 // an address of kind 5 is not written; its wrapper stands empty
                 "<adressen>", "</adressen>", "<taetigkeiten>", "<taetigkeit>",
                 "<tk-ende>99999999</tk-ende>", "</taetigkeit>", "</taetigkeiten>", "</betrieb>"}));
    // The character Windows-1252 cannot hold is logged.
    EXPECT_NE(f.logText().find("als '?' ausgegeben"), std::string::npos);
}

TEST(ExportTest, PersonsWithLinkFieldsNationalitiesAndPermitsOfThisBusinessOrNone) {
    ExportFixture f;
    f.addBusiness("1", "1");
    insert(
        f.g().stores.db_daten, "person",
        {{"pers-nr", "P1"}, {"p-art", "NP"}, {"fam-name", "Öztürk"}, {"geb-datum", "02.03.1970"}});
    insert(f.g().stores.db_daten, "beziehung_betrieb_person",
           {{"bez-betr-nr", "1"},
            {"bez-betr-hist-nr", "1"},
            {"bez-pers-nr", "P1"},
            {"bez-sort-nr", 1},
            {"p-funktion", " 1 "},
            {"p-eintr-datum", " unbegrenzt "},
            {"p-austr-datum", "31.12.2020"}});
    insert(f.g().stores.db_daten, "beziehung_betrieb_person",
           {{"bez-betr-nr", "1"},
            {"bez-betr-hist-nr", "1"},
            {"bez-pers-nr", "FEHLT"},
            {"bez-sort-nr", 2}});
    insert(f.g().stores.db_daten, "person_staatsang",
           {{"pers-nr", "P1"}, {"staat-text", ""}, {"staat-schl", " 163 "}});
    insert(f.g().stores.db_daten, "person_erlaubnis",
           {{"pers-nr", "P1"}, {"betr-nr", "1"}, {"p-erl-art", "eigene"}});
    insert(f.g().stores.db_daten, "person_erlaubnis",
           {{"pers-nr", "P1"}, {"betr-nr", ""}, {"p-erl-art", "ohne Betrieb"}});
    insert(f.g().stores.db_daten, "person_erlaubnis",
           {{"pers-nr", "P1"}, {"betr-nr", "2"}, {"p-erl-art", "fremde"}});
    const Strings all = lines(f.exportAll().files.at(0));
    EXPECT_EQ(f.between(all, "<personen>", "</personen>"),
              (Strings{"<personen>",
                       "<person>",
                       "<p-funktion>1</p-funktion>",
                       "<p-eintr-datum>99999999</p-eintr-datum>",
                       "<p-austr-datum>20201231</p-austr-datum>",
                       "<pers-nr>P1</pers-nr>",
                       "<p-art>NP</p-art>",
                       "<fam-name>Öztürk</fam-name>",
                       "<geb-datum>19700302</geb-datum>",
                       "<staatsangehoerigkeiten>",
                       "<staatsangehoerigkeit>",
                       "<staat-text></staat-text>",
                       "<staat-schl>163</staat-schl>",
                       "</staatsangehoerigkeit>",
                       "</staatsangehoerigkeiten>",
                       "<p-erlaubnisse>",
                       "<p-erlaubnis>",
                       "<p-erl-art>eigene</p-erl-art>",
                       "</p-erlaubnis>",
                       "<p-erlaubnis>",
                       "<p-erl-art>ohne Betrieb</p-erl-art>",
                       "</p-erlaubnis>",
                       "</p-erlaubnisse>",
                       "</person>",
                       "</personen>"}));
}

TEST(ExportTest, ProcessingStatusOverSeveralStatesOfOneBusiness) {
    ExportFixture f;
    f.addBusiness("1", "1", {{"bearb-status", "h"}});
    f.addBusiness("1", "2", {{"bearb-status", "H"}});
    f.addBusiness("1", "3", {{"betr-ende", "01.01.2020"}, {"bearb-status", "E "}});
    f.addBusiness("2", "1", {{"betr-ende", " "}});
    // Numbers that differ in case only are states of two businesses.
    f.addBusiness("3a", "1", {{"bearb-status", "A"}});
    f.addBusiness("3A", "2", {{"bearb-status", "a"}});
    f.exportAll();
    // A status that is right in all but its case or blanks is written anew.
    EXPECT_EQ(f.rows("SELECT [betr-nr], [betr-hist-nr], '[' & [bearb-status] & ']' FROM betrieb "
                     "ORDER BY [betr-nr], [betr-hist-nr]"),
              (Strings{"1|1|[H]", "1|2|[H]", "1|3|[E]", "2|1|[A]", "3a|1|[A]", "3A|2|[A]"}));
}

TEST(ExportTest, ExportByKeyWritesOneFilePerKey) {
    ExportFixture f;
    f.addBusiness("1", "1", {{"schluesselfeld", "4711"}});
    f.addBusiness("2", "1", {{"schluesselfeld", "0815"}});
    f.addBusiness("3", "1", {{"schluesselfeld", "4711"}});
    f.addBusiness("4", "1");
    const auto result = f.exportAll(true);
    ASSERT_EQ(result.files.size(), 2u);
    EXPECT_EQ(result.files[0], f.g().paths.pfad_dat + "0815_14-11-2023_22-13-20.tml");
    EXPECT_EQ(result.files[1], f.g().paths.pfad_dat + "4711_14-11-2023_22-13-20.tml");
    Strings numbers;
    const Strings written = lines(result.files[1]);
    for (const auto& line : written)
        if (line.rfind("<betr-nr>", 0) == 0) numbers.push_back(line);
    EXPECT_EQ(numbers, (Strings{"<betr-nr>1</betr-nr>", "<betr-nr>3</betr-nr>"}));
    EXPECT_NE(
        std::find(written.begin(), written.end(), "<zahl-betriebe-gesamt>2</zahl-betriebe-gesamt>"),
        written.end());

    ExportFixture none;
    none.addBusiness("1", "1");
    EXPECT_TRUE(none.exportAll(true).files.empty());
    EXPECT_EQ(none.lastMessage(), "In der Datenbank wurden keine Schlüsselnummern gefunden!");
}

TEST(ExportTest, EscLeavesTheHalfWrittenFile) {
    ExportFixture f;
    for (int i = 1; i <= 5; ++i) f.addBusiness(std::to_string(i), "1");
    int calls = 0;
    f.shell.onEvents = [&] {
        if (++calls == 3) f.g().view.taste = 27;
    };
    const auto result = f.exportAll();
    EXPECT_EQ(result.outcome, transfer::ExportResult::Outcome::Cancelled);
    ASSERT_EQ(result.files.size(), 1u);
    const Strings all = lines(result.files[0]);
    EXPECT_EQ(std::count(all.begin(), all.end(), "<betrieb>"), 2);
    EXPECT_EQ(all.back(), "</betrieb>");
    EXPECT_EQ(f.lastMessage(), "Der Vorgang wurde abgebrochen!");
}

TEST(ExportTest, TheNextExportRemovesWhatAKilledOneLeftAndNothingElse) {
    ExportFixture f;
    f.addBusiness("1", "1");
    const std::filesystem::path dat = f.g().paths.pfad_dat;
    for (const char* name : {"x.tml.unvollstaendig", "notiz.txt.unvollstaendig", "alt.tml"})
        std::ofstream(dat / name) << "halb";
    ASSERT_EQ(f.exportAll().outcome, transfer::ExportResult::Outcome::Finished);
    EXPECT_FALSE(std::filesystem::exists(dat / "x.tml.unvollstaendig"));
    EXPECT_TRUE(std::filesystem::exists(dat / "notiz.txt.unvollstaendig"));
    EXPECT_TRUE(std::filesystem::exists(dat / "alt.tml"));
}

TEST(ExportTest, ImportOfTheExportGivesTheSameRows) {
    ExportFixture original;
    original.dialogs.answers = {core::msg::vbYes};
    ASSERT_EQ(transfer::Upd_1_Start(
                  original.g(),
                  (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string()),
              transfer::ImportOutcome::Finished);
    const auto file = original.exportAll().files.at(0);
    ExportFixture copy;
    copy.dialogs.answers = {core::msg::vbYes};
    ASSERT_EQ(transfer::Upd_1_Start(copy.g(), file), transfer::ImportOutcome::Finished);
    EXPECT_FALSE(copy.g().log.fehler_vorhanden) << copy.logText();
    for (const char* table :
         {"betrieb", "betrieb_adresse", "betrieb_taetigkeit", "betrieb_erlaubnis",
          "betrieb_handwerkskarte", "betrieb_meldgrundsonst", "person", "person_staatsang",
          "person_erlaubnis", "person_handwerkskarte", "beziehung_betrieb_person"}) {
        const std::string q = std::string("SELECT * FROM ") + table;
        Strings a = original.rows(q), b = copy.rows(q);
        if (std::string(table) ==
            "betrieb")  // the status is the export's own, the import leaves it empty
            for (auto* rows : {&a, &b})
                for (auto& r : *rows) r = r.substr(0, r.rfind('|'));
        std::sort(a.begin(), a.end());
        std::sort(b.begin(), b.end());
        EXPECT_EQ(a, b) << table;
        EXPECT_FALSE(a.empty()) << table;
    }
}

TEST(ExportTest, HeadDates) {
    EXPECT_EQ(transfer::headDate("31.12.2001"), "20011231");
    EXPECT_EQ(transfer::headDate("1.2.2001"), "20010201");
    EXPECT_EQ(transfer::headDate("29.02.2001"), "29.02.2001");
    EXPECT_EQ(transfer::headDate("2001-12-31"), "2001-12-31");
    EXPECT_EQ(transfer::headDate(""), "");
}

}  // namespace
}  // namespace tolma::test
