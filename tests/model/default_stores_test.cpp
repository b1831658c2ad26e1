// The default stores that the build generates.
#include <gtest/gtest.h>

#include "model/default_stores.h"
#include "model/schema.h"
#include "store/database.h"

namespace tolma::model {
namespace {

const std::filesystem::path kStores = TOLMA_STORE_DIR;

void expectSchema(const std::filesystem::path& file, const std::vector<TableDef>& tables) {
    store::Database db = store::Database::OpenDatabase(file, false, true);
    for (const auto& t : tables) {
        store::Recordset rs = db.OpenRecordset(t.name);
        ASSERT_EQ(rs.FieldCount(), static_cast<int>(t.fields.size())) << t.name;
        for (size_t i = 0; i < t.fields.size(); ++i) {
            const auto f = rs.Fields(static_cast<int>(i));
            EXPECT_EQ(f.Name(), t.fields[i].name);
            if (t.fields[i].type == FieldType::Text) {
                EXPECT_GT(f.Size(), 0) << f.Name();
            }
        }
    }
}

TEST(DefaultStores, EachHoldsEveryTableAndField) {
    expectSchema(kStores / kSettingsStoreFile, settingsTables());
    expectSchema(kStores / kBusinessStoreFile, dataTables());
    expectSchema(kStores / kNotificationStoreFile, dataTables());
    EXPECT_EQ(dataTables().size(), 11u);
    EXPECT_EQ(findTable("BETRIEB")->fields.size(), 34u);
    EXPECT_EQ(findTable("person")->field("geb-datum")->size, 10);
}

TEST(DefaultStores, SettingsStoreHoldsTheCodeLists) {
    store::Database db = store::Database::OpenDatabase(kStores / kSettingsStoreFile, false, true);
    EXPECT_EQ(db.OpenRecordset("gemeindekennzahlen").RecordCount(), 11004);
    EXPECT_EQ(db.OpenRecordset("Optionen").RecordCount(), 0);
    EXPECT_EQ(db.OpenRecordset("aktuelleGemeinde").RecordCount(), 0);
    auto rf = db.OpenRecordset("SELECT * FROM Rechtsformen WHERE [schluessel] = '170'");
    EXPECT_EQ(rf.Fields("bezeichnung").Value().toString(),
              "eingetragenes Einzelunternehmen (e.K.; e.Kfm.; e.Kfr.)");
    EXPECT_EQ(rf.Fields("typ").Value().toString(), "E");
    auto gem = db.OpenRecordset("SELECT * FROM gemeindekennzahlen WHERE [gem-kz] = '01003000'");
    EXPECT_EQ(gem.Fields("gem-name").Value().toString(), "Lübeck, Hansestadt");
}

TEST(DefaultStores, DataStoresAreEmpty) {
    store::Database db = store::Database::OpenDatabase(kStores / kBusinessStoreFile, false, true);
    for (const auto& t : dataTables())
        EXPECT_EQ(db.OpenRecordset(t.name).RecordCount(), 0) << t.name;
}

}  // namespace
}  // namespace tolma::model
