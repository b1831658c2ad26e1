// The export's bytes on a generated store with every kind of subordinate row, in one file and
// in one file per key. The figures were taken from the export as it stood before it was made
// faster; a change to what the export writes must show here.
#include <gtest/gtest.h>

#include <sstream>

#include "import_fixture.h"
#include "store/connection.h"
#include "tml_generator.h"
#include "transfer/export_form.h"

namespace tolma::test {
namespace {

std::uint64_t fnv1a(const std::string& bytes) {
    std::uint64_t h = 1469598103934665603ull;
    for (unsigned char c : bytes) h = (h ^ c) * 1099511628211ull;
    return h;
}

std::string contentOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// What an export of the whole store and an export per key write: sizes, a hash over each.
struct Written {
    size_t size = 0;
    std::uint64_t hash = 0;
    size_t files = 0;
    size_t sizeByKey = 0;
    std::uint64_t hashByKey = 0;
};

Written exportBothWays(ImportFixture& f) {
    Written w;
    transfer::VerwaltungsblockForm form = transfer::Frm_Verwaltungsblock_Load(f.g());
    auto all = transfer::Frm_Verwaltungsblock_Command1_Click(f.g(), form, 0);
    EXPECT_EQ(all.files.size(), 1u);
    if (all.files.empty()) return w;
    const std::string whole = contentOf(all.files[0]);
    w.size = whole.size();
    w.hash = fnv1a(whole);

    std::filesystem::remove(all.files[0]);
    form = transfer::Frm_Verwaltungsblock_Load(f.g());
    form.Check1[0].value = 1;
    auto byKey = transfer::Frm_Verwaltungsblock_Command1_Click(f.g(), form, 0);
    w.files = byKey.files.size();
    for (const auto& path : byKey.files) {
        const std::string bytes = contentOf(path);
        w.hashByKey = w.hashByKey * 31 + fnv1a(bytes);
        w.sizeByKey += bytes.size();
        std::filesystem::remove(path);
    }
    return w;
}

void importGenerated(ImportFixture& f, long businesses) {
    std::ostringstream file;
    bench::GeneratorOptions options;
    options.businesses = businesses;
    options.seed = 11;
    bench::writeTransferFile(file, options);
    ASSERT_EQ(f.importBytes(file.str()), transfer::ImportOutcome::Finished);
}

TEST(ExportIdentityTest, AGeneratedStoreIsWrittenByteForByteAsBefore) {
    ImportFixture f;
    importGenerated(f, 400);
    for (const char* table :
         {"betrieb_meldgrundsonst", "betrieb_erlaubnis", "betrieb_handwerkskarte",
          "person_staatsang", "person_erlaubnis", "person_handwerkskarte"})
        ASSERT_GT(f.count(table), 0) << table;

    const Written w = exportBothWays(f);
    EXPECT_EQ(w.size, 1405715u);
    EXPECT_EQ(w.hash, 11577715037492655186ull);
    EXPECT_EQ(w.files, 42u);
    EXPECT_EQ(w.sizeByKey, 1437060u);
    EXPECT_EQ(w.hashByKey, 18095646420715752581ull);
}

// Rows that an import of a regular file does not leave: a person in two businesses and stored
// twice, keys in another case or missing, rows added late, links without a person, a person's
// permits of no, another or this business, a business stored twice.
TEST(ExportIdentityTest, OddRowsOfAStoreAreWrittenAsBefore) {
    ImportFixture f;
    importGenerated(f, 60);
    auto& c = *f.g().stores.db_daten.connection();
    for (const char* sql : {
             "INSERT INTO beziehung_betrieb_person VALUES "
             "('000000000010', '1', '000000000002', 9, 'Gesellschafter', '01.01.2020', NULL, "
             "NULL), ('000000000002', '1', '000000000050', 7, NULL, NULL, NULL, NULL), "
             "('000000000001', '1', '000000000005', 0, 'Prokurist', NULL, '31.12.2021', NULL), "
             "('000000000001', '1', 'niemand', 1, NULL, NULL, NULL, NULL), "
             "('000000000001', '1', NULL, 1, NULL, NULL, NULL, NULL)",
             "INSERT INTO person ([pers-nr], [p-art], [fam-name]) VALUES "
             "('000000000003', 'ZZ', 'Zweitname'), ('000000000005', '0', 'Drittname')",
             "UPDATE betrieb SET [betr-nr] = 'x11' WHERE [betr-nr] = '000000000011'",
             "UPDATE betrieb_adresse SET [betr-nr] = 'X11' WHERE [betr-nr] = '000000000011'",
             "UPDATE betrieb_taetigkeit SET [betr-nr] = 'X11' WHERE [betr-nr] = '000000000011'",
             "UPDATE beziehung_betrieb_person SET [bez-betr-nr] = 'X11' "
             "WHERE [bez-betr-nr] = '000000000011'",
             "INSERT INTO person_erlaubnis ([pers-nr], [betr-nr], [p-erl-art]) VALUES "
             "('000000000001', NULL, 'ohne'), ('000000000001', '', 'leer'), "
             "('000000000001', ' ', 'blank'), ('000000000001', '000000000001', 'eigene'), "
             "('000000000001', '000000000002', 'fremde')",
             "INSERT INTO person_handwerkskarte ([pers-nr], [betr-nr], [p-hwk-art]) VALUES "
             "('000000000002', '000000000010', 'dort'), ('000000000002', '000000000002', 'hier')",
             "INSERT INTO person_staatsang VALUES ('000000000002', '999', 'staatenlos')",
             "INSERT INTO betrieb SELECT * FROM betrieb WHERE [betr-nr] = '000000000004'",
             "INSERT INTO betrieb_taetigkeit ([betr-nr], [betr-hist-nr], [tk-schl]) VALUES "
             "('000000000001', '1', '99999'), ('000000000004', '1', '88888')",
             "INSERT INTO betrieb_adresse ([betr-nr], [betr-hist-nr], [b-adr-art], [b-ort]) "
             "VALUES ('000000000002', '1', '5', 'nirgends'), ('000000000003', '1', '1', 'dort')",
             "INSERT INTO betrieb ([betr-nr], [betr-hist-nr], [gem-kz]) VALUES "
             "('000000000007', NULL, '01234567'), (NULL, '5', '07654321')",
             "INSERT INTO betrieb_meldgrundsonst VALUES ('000000000007', '', 'ohne Stand'), "
             "('', '5', 'ohne Nummer'), (NULL, '5', 'nie')",
         })
        c.execute(sql);

    const Written w = exportBothWays(f);
    EXPECT_EQ(w.size, 225877u);
    EXPECT_EQ(w.hash, 1502675337761197422ull);
    EXPECT_EQ(w.files, 33u);
    EXPECT_EQ(w.sizeByKey, 249752u);
    EXPECT_EQ(w.hashByKey, 16114745529858771157ull);
}

}  // namespace
}  // namespace tolma::test
