// The query texts that the routines compose, collected while the routines run on a small store:
// each one prepares and runs, and where its rows tell right from wrong, they are the right ones.
#include <gtest/gtest.h>

#include <algorithm>

#include "../print/print_fixture.h"
#include "browse/list_form.h"
#include "browse/record_view.h"
#include "options/options_form.h"
#include "print/list_report.h"
#include "store/connection.h"
#include "store/jet_sql.h"
#include "text/text.h"
#include "transfer/export_form.h"

namespace tolma::test {
namespace {

using store::QueryTrace;

// The program started on the sample store, with names that sort differently in German than by
// their bytes, and the printing wired to the recording printer.
struct RoutineFixture : CoreFixture {
    print::RecordingPrinter printer;
    ScriptedPrinterSource source;
    print::PrintState d;
    browse::ListForm betr{false}, pers{true};

    RoutineFixture() {
        const auto db = home() / "DB";
        std::filesystem::create_directories(db);
        store::Database sample = makeSampleStore(db / "tl_4x_b.mdb");
        for (const auto& [nr, name] :
             {std::pair{"1005", "Boutique Am Markt"}, std::pair{"1006", "Bäckerei Petersen"},
              std::pair{"1007", "Blumenhaus Jensen"}}) {
            insert(sample, "betrieb",
                   {{"betr-nr", nr},
                    {"betr-hist-nr", "1"},
                    {"gem-kz", "01001000"},
                    {"b-eintr-name", name},
                    {"meld-art", "01"}});
            insert(sample, "betrieb_adresse",
                   {{"betr-nr", nr}, {"betr-hist-nr", "1"}, {"b-adr-art", "1"}});
        }
        sample.Close();
        start();
        source.printer = &printer;
        d.source = &source;
    }

    std::vector<std::string> printed() const {
        std::vector<std::string> out;
        for (const auto& c : printer.printed()) out.push_back(c.text);
        return out;
    }
};

// Every text of a trace prepares on its store; a query's rows are all read.
void expectEachRuns(const std::vector<QueryTrace::Entry>& entries) {
    for (const auto& e : entries) {
        SCOPED_TRACE(e.text);
        const store::Database db = store::Database::OpenDatabase(e.store);
        try {
            if (store::jet::bareTableName(e.text).empty()) {
                const auto p = store::jet::prepare(e.text, &db.connection()->catalog());
                db.connection()->prepare(p.shape->sql);
                if (!p.shape->parts.isSelect) continue;  // a change is not made twice
            }
            store::Recordset rs = db.OpenRecordset(e.text);
            for (long r = 0; r < rs.RecordCount(); ++r) rs.rowAt(r);
        } catch (const std::exception& error) {
            ADD_FAILURE() << error.what();
        }
    }
}

// Whether a trace opened a text that reads from `table`.
bool opened(const std::vector<QueryTrace::Entry>& entries, const std::string& table) {
    const std::string name = text::lower(table);
    const std::string from = "from " + name + " ", join = "join " + name + " ";
    return std::any_of(entries.begin(), entries.end(), [&](const QueryTrace::Entry& e) {
        const std::string t = text::lower(e.text) + " ";
        return t.find(from) != std::string::npos || t.find(join) != std::string::npos ||
               t == name + " ";
    });
}

std::vector<std::string> column(const store::Recordset& rs, const std::string& field) {
    std::vector<std::string> out;
    const int index = rs.fieldIndex(field);
    for (long r = 0; r < rs.RecordCount(); ++r)
        out.push_back(rs.rowAt(r)[static_cast<size_t>(index)].toString());
    return out;
}

TEST(RoutineQueriesTest, RecordLoadingOfABusinessAndOfItsPersons) {
    RoutineFixture f;
    auto& c = browse::dataControls(f.g());
    QueryTrace trace;
    browse::showFoundBusiness(f.g(), "01001000", "1001", "1", false);
    // Representatives of the legal person stay out of the persons.
    EXPECT_EQ(column(c.DATA_PERS.Recordset(), "pers-nr"), (Strings{"5001", "5002"}));
    EXPECT_EQ(c.DATA_ADR.Recordset().RecordCount(), 2);
    EXPECT_EQ(f.g().forms.startView.Text_136, "Flensburg, Stadt");

    browse::showFoundBusiness(f.g(), "01001000", "1001", "1", true);
    EXPECT_EQ(c.DATA_PERSStaat.fieldText("staat-text"), "deutsch");
    EXPECT_EQ(c.DATA_PERSErl.fieldText("p-erl-art"), "A");  // the permit of this business only
    c.DATA_PERS.Recordset().MoveNext();
    EXPECT_EQ(c.DATA_Bez_Betr_Pers.fieldText("p-funktion"), "2");
    EXPECT_EQ(f.g().forms.startView.TextPers_8, "Geschäftsführender Gesellschafter");
    // A person found by the search opens on that person, with its own rows.
    browse::showFoundBusiness(f.g(), "01001000", "1001", "1", true, "5002");
    EXPECT_EQ(c.DATA_PERS.fieldText("pers-nr"), "5002");
    EXPECT_EQ(c.DATA_Bez_Betr_Pers.fieldText("p-funktion"), "2");

    // The legal person's representatives, and one of them shown in the person tabs.
    browse::ListForm walk{true};
    ASSERT_TRUE(browse::Frm_Start_Command1_Click(f.g(), walk));
    EXPECT_EQ(column(walk.data.Recordset(), "pers-nr"), (Strings{"5004"}));
    EXPECT_TRUE(browse::Command1_Click(f.g(), walk, 0));
    EXPECT_EQ(column(c.DATA_PERS.Recordset(), "pers-nr"), (Strings{"5004"}));
    EXPECT_EQ(c.DATA_PERS.fieldText("p-funktion"), "3");
    EXPECT_FALSE(f.g().log.fehler_vorhanden) << f.logText();

    for (const char* table : {"betrieb", "gemeindekennzahlen", "betrieb_meldgrundsonst",
                              "betrieb_adresse", "betrieb_erlaubnis", "betrieb_taetigkeit",
                              "betrieb_handwerkskarte", "person", "beziehung_betrieb_person",
                              "person_staatsang", "person_erlaubnis", "person_handwerkskarte"})
        EXPECT_TRUE(opened(trace.entries(), table)) << table;
    const auto entries = trace.entries();
    expectEachRuns(entries);
}

TEST(RoutineQueriesTest, ListsAndReportsSortGermanAndMatchWithoutRegardToCase) {
    RoutineFixture f;
    QueryTrace trace;
    ASSERT_TRUE(browse::menue_suchen_betrieb(f.g(), f.betr));
    // Sorted by the name, downward as the column's first and last rows ran.
    browse::Text1_Click(f.g(), f.betr, 3);
    EXPECT_EQ(column(f.betr.data.Recordset(), "b-eintr-name"),
              (Strings{"Öztürk Imbiss", "Müller Bau GmbH", "Boutique Am Markt", "Blumenhaus Jensen",
                       "Bäckerei Petersen"}));
    f.betr.Text1[3] = "ÖZTÜRK";
    browse::Text1_Change(f.g(), f.betr, 3);
    EXPECT_EQ(f.betr.data.fieldText("b-eintr-name"), "Öztürk Imbiss");

    print::printList(f.g(), f.d, f.betr);
    const auto lines = f.printed();
    const auto first = std::find_if(lines.begin(), lines.end(), [](const std::string& l) {
        return l.find("Blumenhaus Jensen") != std::string::npos;
    });
    ASSERT_NE(first, lines.end());
    EXPECT_NE(first[1].find("Bäckerei Petersen"), std::string::npos);

    f.betr.data.Recordset().MoveFirst();
    print::printRecordOfRow(f.g(), f.d, f.betr);
    ASSERT_TRUE(browse::menue_suchen_person(f.g(), f.pers));
    print::printList(f.g(), f.d, f.pers);
    f.pers.data.Recordset().MoveFirst();
    print::printRecordOfRow(f.g(), f.d, f.pers);
    EXPECT_FALSE(f.g().log.fehler_vorhanden) << f.logText();

    for (const char* table : {"betrieb_adresse", "person", "person_staatsang", "person_erlaubnis",
                              "person_handwerkskarte"})
        EXPECT_TRUE(opened(trace.entries(), table)) << table;
    const auto entries = trace.entries();
    expectEachRuns(entries);
}

TEST(RoutineQueriesTest, ExportOfTheStoreWholeAndByKey) {
    RoutineFixture f;
    QueryTrace trace;
    transfer::VerwaltungsblockForm form = transfer::Frm_Verwaltungsblock_Load(f.g());
    EXPECT_TRUE(form.Check1[0].visible);  // the store holds keys
    EXPECT_EQ(transfer::Frm_Verwaltungsblock_Command1_Click(f.g(), form, 0).files.size(), 1u);
    form = transfer::Frm_Verwaltungsblock_Load(f.g());
    form.Check1[0].value = 1;
    // One file per key that is not empty: K1 and K2.
    EXPECT_EQ(transfer::Frm_Verwaltungsblock_Command1_Click(f.g(), form, 0).files.size(), 2u);
    // The selections are written through: the last state of a business is current or ended,
    // the ones before it historic.
    EXPECT_EQ(column(f.g().stores.db_daten.OpenRecordset(
                         "SELECT [bearb-status] FROM betrieb ORDER BY [betr-nr], [betr-hist-nr]"),
                     "bearb-status"),
              (Strings{"H", "A", "E", "A", "A", "A", "A", "A"}));
    EXPECT_FALSE(f.g().log.fehler_vorhanden) << f.logText();

    EXPECT_TRUE(opened(trace.entries(), "betrieb"));
    const auto entries = trace.entries();
    expectEachRuns(entries);
}

TEST(RoutineQueriesTest, MunicipalityFilterOfTheOptionsNarrowsTheLists) {
    RoutineFixture f;
    QueryTrace trace;
    options::OptionsForm form;
    options::Form_Activate(f.g(), form);
    form.Text7 = "0100100";
    options::Command8_Click(f.g(), form);
    ASSERT_EQ(form.List1, (Strings{"01001000  Flensburg, Stadt"}));
    form.selected[0] = true;
    options::Check1_Click(f.g(), form, true);
    ASSERT_TRUE(options::Command3_Click(f.g(), form, 0));

    ASSERT_TRUE(browse::menue_suchen_betrieb(f.g(), f.betr));
    Strings numbers = column(f.betr.data.Recordset(), "betrieb.betr-nr");
    EXPECT_EQ(numbers, (Strings{"1001", "1005", "1006", "1007"}));  // not 1002 of Kiel
    ASSERT_TRUE(browse::menue_suchen_person(f.g(), f.pers));
    EXPECT_EQ(column(f.pers.data.Recordset(), "pers-nr"), (Strings{"5001", "5002", "5004"}));
    EXPECT_FALSE(f.g().log.fehler_vorhanden) << f.logText();

    EXPECT_TRUE(opened(trace.entries(), "aktuelleGemeinde"));
    EXPECT_TRUE(opened(trace.entries(), "gemeindekennzahlen"));
    const auto entries = trace.entries();
    expectEachRuns(entries);
}

}  // namespace
}  // namespace tolma::test
