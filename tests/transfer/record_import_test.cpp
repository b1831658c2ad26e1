// What one <betrieb> element leaves in the store.
#include <gtest/gtest.h>

#include "import_fixture.h"
#include "transfer/import_context.h"

namespace tolma::test {
namespace {

std::string business(const std::string& nr, const std::string& hist, const std::string& more = "") {
    return "<gem-kz>01001000</gem-kz>\n<betr-nr>" + nr + "</betr-nr>\n<betr-hist-nr>" + hist +
           "</betr-hist-nr>\n<b-eintr-name>Betrieb " + nr + "/" + hist + "</b-eintr-name>\n" + more;
}

std::string address(const std::string& art, const std::string& ort) {
    return "<adressen>\n<adresse art=\"" + art + "\">\n<b-adr-art>" + art +
           "</b-adr-art>\n<b-ort>" + ort + "</b-ort>\n</adresse>\n</adressen>\n";
}

std::string person(const std::string& nr, const std::string& art, const std::string& funktion,
                   const std::string& more = "") {
    return "<person>\n<p-funktion>" + funktion + "</p-funktion>\n<pers-nr>" + nr +
           "</pers-nr>\n<p-art>" + art + "</p-art>\n<fam-name>Person " + nr + "</fam-name>\n" +
           more + "</person>\n";
}

std::string permit(const std::string& art) {
    return "<p-erlaubnisse>\n<p-erlaubnis>\n<p-erl-art>" + art +
           "</p-erl-art>\n<p-erl-datum>20200102</p-erl-datum>\n"
           "</p-erlaubnis>\n</p-erlaubnisse>\n";
}

TEST(RecordImportTest, BusinessWithItsSectionsAndSkippedElements) {
    ImportFixture f;
    TmlFile file;
    file.betriebe = {
        business("1001", "1",
                 "<gem-name>Flensburg</gem-name>\n<wirtschafts-nr>9</wirtschafts-nr>\n"
                 "<inhaber-vname>Max</inhaber-vname>\n<inhaber-nname>Muster</inhaber-nname>\n"
                 "<betr-beginn>20011231</betr-beginn>\n<meld-gruende-sonst>\n<meld-grund-sonst>\n"
                 "<meld-grund-sonst-text>Umzug</meld-grund-sonst-text>\n</meld-grund-sonst>\n</"
                 "meld-gruende-sonst>\n" +
                     address("1", "Flensburg") +
                     "<taetigkeiten>\n<taetigkeit>\n<tk-schl>47.24</tk-schl>\n<tk-ende>88888888</"
                     "tk-ende>\n</taetigkeit>\n"
                     "<taetigkeit>\n<tk-schl>56.10</tk-schl>\n</taetigkeit>\n</taetigkeiten>\n"
                     "<b-handwerkskarten>\n<b-handwerkskarte>\n<b-hwk-art>Bäcker</b-hwk-art>\n</"
                     "b-handwerkskarte>\n</b-handwerkskarten>\n"
                     "<b-erlaubnisse>\n<b-erlaubnis>\n<b-erl-art>§ "
                     "34c</b-erl-art>\n<b-erl-datum>99999999</b-erl-datum>\n</b-erlaubnis>\n</"
                     "b-erlaubnisse>\n")};
    EXPECT_EQ(f.import(file), transfer::ImportOutcome::Finished);
    EXPECT_EQ(f.lastMessage(), "Die Daten wurden übertragen!");
    EXPECT_EQ(f.rows("SELECT [betr-nr], [b-eintr-name], [betr-beginn], [gem-kz] FROM betrieb"),
              (Strings{"1001|Betrieb 1001/1|31.12.2001|01001000"}));
    EXPECT_EQ(f.rows("SELECT [betr-nr], [betr-hist-nr], [b-adr-art], [b-ort] FROM betrieb_adresse"),
              (Strings{"1001|1|1|Flensburg"}));
    EXPECT_EQ(f.rows("SELECT [tk-schl], [tk-ende], [betr-nr] FROM betrieb_taetigkeit"),
              (Strings{"47.24|unbekannt|1001", "56.10||1001"}));
    EXPECT_EQ(f.rows("SELECT [b-hwk-art] FROM betrieb_handwerkskarte"), (Strings{"Bäcker"}));
    EXPECT_EQ(f.rows("SELECT [b-erl-art], [b-erl-datum] FROM betrieb_erlaubnis"),
              (Strings{"§ 34c|unbegrenzt"}));
    EXPECT_EQ(f.rows("SELECT [meld-grund-sonst-text] FROM betrieb_meldgrundsonst"),
              (Strings{"Umzug"}));
    EXPECT_FALSE(f.g().log.fehler_vorhanden) << f.logText();
}

TEST(RecordImportTest, UnknownElementCostsOneEntryEachAndTheBusinessIsSaved) {
    ImportFixture f;
    TmlFile file;
    file.betriebe = {business(
        "1001", "1", "<unbekannt>x</unbekannt>\n<unbekannt>y</unbekannt>\n<b-ort>z</b-ort>\n")};
    f.import(file, {core::msg::vbYes, core::msg::vbNo});
    EXPECT_EQ(f.entries("Upd_3_Betr"), 3);
    EXPECT_NE(f.logText().find("Fehlernummer:           3265\r\n"), std::string::npos);
    EXPECT_EQ(f.count("betrieb"), 1);
    // The log was offered, and the success message follows all the same.
    EXPECT_EQ(f.dialogs.shown[1].title, "Achtung!");
    EXPECT_EQ(f.lastMessage(), "Die Daten wurden übertragen!");
    EXPECT_FALSE(f.g().log.fehler_vorhanden);
}

TEST(RecordImportTest, EmptyAddressPairMakesOneAddressOfKindOne) {
    ImportFixture f;
    TmlFile file;
    file.betriebe = {business("1001", "1", "<adressen>\n</adressen>\n")};
    f.import(file);
    EXPECT_EQ(f.rows("SELECT [betr-nr], [betr-hist-nr], [b-adr-art], [b-ort] FROM betrieb_adresse"),
              (Strings{"1001|1|1|"}));
}

TEST(RecordImportTest, RecordWithoutFieldsIsDroppedButItsSectionsStay) {
    ImportFixture f;
    TmlFile file;
    file.betriebe = {address("2", "Kiel")};
    f.import(file);
    EXPECT_EQ(f.count("betrieb"), 0);
    EXPECT_EQ(f.rows("SELECT [betr-nr], [b-ort] FROM betrieb_adresse"), (Strings{"|Kiel"}));
}

TEST(RecordImportTest, BusinessRelatedStoreKeepsOneStatePerBusiness) {
    ImportFixture f;
    TmlFile first;
    first.betriebe = {business("1001", "1",
                               address("1", "Alt") + "<personen>\n" +
                                   person("5001", "NP", "1", permit("A")) + "</personen>\n"),
                      business("2002", "1")};
    f.import(first);
    TmlFile second;
    second.betriebe = {business("1001", "2", address("1", "Neu"))};
    f.import(second);
    EXPECT_EQ(f.rows("SELECT [betr-nr], [betr-hist-nr] FROM betrieb ORDER BY [betr-nr]"),
              (Strings{"1001|2", "2002|1"}));
    EXPECT_EQ(f.rows("SELECT [b-ort] FROM betrieb_adresse"), (Strings{"Neu"}));
    EXPECT_EQ(f.count("beziehung_betrieb_person"), 0);
    EXPECT_EQ(f.count("person_erlaubnis"), 0);
    EXPECT_EQ(f.count("person"), 1);  // persons are not removed with their business
}

// Removals are left out for tables that hold no row of the number; rows that the same run
// stored before must still be found by a later state of the business or person.
TEST(RecordImportTest, ALaterStateRemovesWhatTheSameRunStoredInTablesTheStoreLacked) {
    ImportFixture f;
    TmlFile first;
    first.betriebe = {business("1001", "1"), business("2002", "1", address("1", "Bleibt"))};
    f.import(first);
    TmlFile second;
    const std::string activity =
        "<taetigkeiten>\n<taetigkeit>\n<tk-schl>56.10.3</tk-schl>\n</taetigkeit>\n"
        "</taetigkeiten>\n";
    second.betriebe = {
        business(
            "1001", "2",
            activity + "<personen>\n" + person("5001", "NP", "1", permit("A")) + "</personen>\n"),
        business("3003", "1", "<personen>\n" + person("5001", "NP", "1") + "</personen>\n"),
        business("1001", "3", address("1", "Neu"))};
    f.import(second);
    EXPECT_EQ(f.rows("SELECT [betr-nr], [betr-hist-nr] FROM betrieb ORDER BY [betr-nr]"),
              (Strings{"1001|3", "2002|1", "3003|1"}));
    EXPECT_EQ(f.count("betrieb_taetigkeit"), 0);
    EXPECT_EQ(f.rows("SELECT [betr-nr], [b-ort] FROM betrieb_adresse ORDER BY [betr-nr]"),
              (Strings{"1001|Neu", "2002|Bleibt"}));
    EXPECT_EQ(f.count("person_erlaubnis"), 0);
    EXPECT_EQ(f.rows("SELECT [bez-betr-nr], [bez-pers-nr] FROM beziehung_betrieb_person"),
              (Strings{"3003|5001"}));
    EXPECT_EQ(f.count("person"), 1);
}

TEST(RecordImportTest, NotificationRelatedStoreKeepsStatesSideBySide) {
    ImportFixture f;
    TmlFile file;
    file.struktur = "MELDUNGSBEZOGEN";
    file.betriebe = {business(
        "1001", "1", "<personen>\n" + person("5001", "NP", "1", permit("A")) + "</personen>\n")};
    f.import(file,
             {core::msg::vbYes, core::msg::vbYes});  // consent, and the switch to the other store
    EXPECT_EQ(f.g().settings.caption, "TOLMA_4x_Access (meldungsbezogene Daten)");
    EXPECT_EQ(f.g().settings.db_pfad_aktuell, f.g().paths.pfad_db + "tl_4x_m.mdb");
    EXPECT_EQ(f.g().settings.datenart_wert,
              "BETRIEBSBEZOGEN");  // the in-memory kind stays until read again
    file.betriebe = {
        business("1001", "2",
                 "<personen>\n" + person("5001", "NP", "1", permit("B")) + "</personen>\n"),
        business("1001", "1", "<b-ort>x</b-ort>\n")};
    f.import(file, {core::msg::vbYes,
                    core::msg::vbNo});  // asked again: No keeps the store, ends the import
    EXPECT_EQ(f.lastMessage(), "Der Vorgang wurde abgebrochen!");
    f.g().settings.datenart_wert = "MELDUNGSBEZOGEN";
    file.betriebe = {business(
        "1001", "2", "<personen>\n" + person("5001", "NP", "1", permit("B")) + "</personen>\n")};
    f.import(file);
    EXPECT_EQ(f.rows("SELECT [betr-nr], [betr-hist-nr] FROM betrieb ORDER BY [betr-hist-nr]"),
              (Strings{"1001|1", "1001|2"}));
    EXPECT_EQ(
        f.rows(
            "SELECT [bez-betr-hist-nr] FROM beziehung_betrieb_person ORDER BY [bez-betr-hist-nr]"),
        (Strings{"1", "2"}));
    // The person permits of the earlier state are gone: they carry no history number.
    EXPECT_EQ(f.rows("SELECT [p-erl-art], [betr-nr] FROM person_erlaubnis"), (Strings{"B|1001"}));
}

TEST(RecordImportTest, KindInOtherCaseIsAcceptedButRemovesNothing) {
    ImportFixture f;
    TmlFile file;
    file.betriebe = {business("1001", "1")};
    f.import(file);
    file.struktur = "betriebsbezogen";
    f.import(file);
    EXPECT_EQ(f.dialogs.shown.size(),
              4u);  // consent and message, twice: no question about the kind
    EXPECT_EQ(f.count("betrieb"), 2);
}

TEST(RecordImportTest, PersonsWithNationalitiesPermitsCraftCardsAndLinks) {
    ImportFixture f;
    TmlFile file;
    const std::string nat =
        "<staatsangehoerigkeiten>\n<staatsangehoerigkeit>\n<staat-text>deutsch</staat-text>\n"
        "<staat-schl>000</staat-schl>\n</staatsangehoerigkeit>\n<staatsangehoerigkeit>\n"
        "<staat-text>türkisch</staat-text>\n<staat-schl>163</staat-schl>\n</staatsangehoerigkeit>\n"
        "</staatsangehoerigkeiten>\n";
    const std::string hwk =
        "<p-handwerkskarten>\n<p-handwerkskarte>\n<p-hwk-art>Meister</p-hwk-art>\n"
        "</p-handwerkskarte>\n</p-handwerkskarten>\n";
    file.betriebe = {
        business("1001", "1",
                 "<personen>\n" +
                     person("5001", "NP", "1", "<p-austr-datum>20201231</p-austr-datum>\n") +
                     person("5001", "NP", "1", nat + permit("A") + hwk) + "</personen>\n"),
        business("2002", "1",
                 "<personen>\n" + person("5001", "NP", "4", permit("C")) + "</personen>\n")};
    f.import(file);
    EXPECT_EQ(f.count("person"), 1);
    EXPECT_EQ(f.rows("SELECT [staat-text], [staat-schl], [pers-nr] FROM person_staatsang"),
              (Strings{}));
    EXPECT_EQ(f.rows("SELECT [p-erl-art], [p-erl-datum], [betr-nr] FROM person_erlaubnis ORDER BY "
                     "[betr-nr]"),
              (Strings{"A|02.01.2020|1001", "C|02.01.2020|2002"}));
    EXPECT_EQ(f.rows("SELECT [p-hwk-art], [betr-nr] FROM person_handwerkskarte"),
              (Strings{"Meister|1001"}));
    // The same person twice with the same function in one business: one link.
    EXPECT_EQ(
        f.rows("SELECT [bez-betr-nr], [bez-sort-nr], [p-funktion], [p-austr-datum], [pers-nr-jp] "
               "FROM beziehung_betrieb_person ORDER BY [bez-betr-nr]"),
        (Strings{"1001|1|1|31.12.2020|", "2002|1|4||"}));
}

TEST(RecordImportTest, LastRecordNamingAPersonDeterminesItsRowAndNationalities) {
    ImportFixture f;
    TmlFile file;
    const std::string nat =
        "<staatsangehoerigkeiten>\n<staatsangehoerigkeit>\n<staat-text>deutsch</staat-text>\n"
        "<staat-schl>000</staat-schl>\n</staatsangehoerigkeit>\n</staatsangehoerigkeiten>\n";
    file.betriebe = {
        business("1001", "1", "<personen>\n" + person("5001", "NP", "1", nat) + "</personen>\n")};
    f.import(file);
    EXPECT_EQ(f.rows("SELECT [staat-text], [pers-nr] FROM person_staatsang"),
              (Strings{"deutsch|5001"}));
}

TEST(RecordImportTest, PersonWithoutNumberIsDroppedAndCountedInTheSortNumber) {
    ImportFixture f;
    TmlFile file;
    file.betriebe = {business(
        "1001", "1",
        "<personen>\n<person>\n<pers-nr></pers-nr>\n<fam-name>Niemand</fam-name>\n</person>\n" +
            person("5002", "np", "1") + "</personen>\n")};
    f.import(file);
    EXPECT_EQ(f.rows("SELECT [pers-nr], [fam-name] FROM person"), (Strings{"5002|Person 5002"}));
    // "np" counts as NP: the natural person gets the (empty) legal person of the chain.
    EXPECT_EQ(
        f.rows("SELECT [bez-pers-nr], [bez-sort-nr], [pers-nr-jp] FROM beziehung_betrieb_person"),
        (Strings{"5002|2|"}));
    EXPECT_FALSE(f.g().log.fehler_vorhanden);
}

TEST(RecordImportTest, ChainOfLegalPersonsFollowsTheLegalForm) {
    for (const std::string rechtsform : {"230", "350"}) {
        ImportFixture f;
        TmlFile file;
        file.betriebe = {business("1001", "1",
                                  "<b-rechtsform>" + rechtsform + "</b-rechtsform>\n<personen>\n" +
                                      person("A", "JP", "2") + person("x", "NP", "3") +
                                      person("B", "jp", "3") + person("y", "NP", "3") +
                                      "</personen>\n")};
        f.import(file);
        const auto links = f.rows(
            "SELECT [bez-pers-nr], [pers-nr-jp] FROM beziehung_betrieb_person ORDER BY "
            "[bez-sort-nr]");
        if (rechtsform == "230")  // a partnership: B hangs under A and is no anchor
            EXPECT_EQ(links, (Strings{"A|", "x|A", "B|A", "y|A"}));
        else
            EXPECT_EQ(links, (Strings{"A|", "x|A", "B|", "y|B"}));
    }
}

TEST(RecordImportTest, CharacterAfterTheClosingTagIsLost) {
    ImportFixture f;
    const std::string b1 = "<betrieb>\n<betr-nr>1</betr-nr>\n<b-ort>x</b-ort>\n</betrieb>";
    const std::string b2 = "<betrieb>\n<betr-nr>2</betr-nr>\n<b-ort>x</b-ort>\n</betrieb>";
    const std::string b3 = "<betrieb>\n<betr-nr>3</betr-nr>\n<b-ort>x</b-ort>\n</betrieb>";
    f.importBytes("<struktur>BETRIEBSBEZOGEN</struktur><tml-version>151</tml-version>\n" + b1 +
                  " " + b2 + "\n" + b1 + b3 + "\n");
    // With one blank between, both are read; with none, the second loses its "<" and is gone.
    EXPECT_EQ(f.rows("SELECT [betr-nr] FROM betrieb ORDER BY [betr-nr]"), (Strings{"1", "2"}));
}

}  // namespace
}  // namespace tolma::test

namespace tolma::test {
namespace {

// The list of numbers that decides which removals run: a number it forgets would leave old
// rows behind, so it must answer for every number loaded or stored, also past its merges.
TEST(RecordImportTest, TheKeyListAnswersForEveryNumberLoadedOrStored) {
    transfer::ImportContext::KeyTables keys;
    keys.add(7, 1u);
    keys.add(3, 2u);
    keys.seal();
    keys.add(7, 4u);
    keys.seal();
    EXPECT_EQ(keys.tablesOf(7), 5u);
    EXPECT_EQ(keys.tablesOf(3), 2u);
    EXPECT_EQ(keys.tablesOf(5), 0u);
    for (std::uint64_t h = 1000; h < 1000 + 200000; h += 2) keys.note(h);  // past three merges
    EXPECT_EQ(keys.tablesOf(1000), ~0u);
    EXPECT_EQ(keys.tablesOf(1000 + 199998), ~0u);
    EXPECT_EQ(keys.tablesOf(1001), 0u);
    EXPECT_EQ(keys.tablesOf(7), 5u);
    EXPECT_EQ(keys.tablesOf(3), 2u);
}

}  // namespace
}  // namespace tolma::test
