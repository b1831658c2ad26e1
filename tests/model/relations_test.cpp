// The declared relations against the tables and indexes of the default stores.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "model/default_stores.h"
#include "model/relations.h"
#include "store/connection.h"
#include "store/database.h"

namespace tolma::model {
namespace {

const std::filesystem::path kStores = TOLMA_STORE_DIR;

std::vector<std::string> column(store::Connection& c, const std::string& sql,
                                const std::string& value = {}) {
    auto st = c.prepare(sql);
    if (!value.empty()) st->bind(1, store::Variant(value));
    std::vector<std::string> out;
    while (st->step()) out.push_back(st->column(0).toString());
    return out;
}

// Whether an index of the table begins with these columns, as a removal or a scan by the key
// needs one.
bool indexLeadsWith(store::Connection& c, const std::string& table,
                    const std::vector<std::string_view>& key) {
    for (const auto& index : column(c, "SELECT name FROM pragma_index_list(?1)", table)) {
        const auto columns =
            column(c, "SELECT name FROM pragma_index_info(?1) ORDER BY seqno", index);
        if (columns.size() >= key.size() && std::equal(key.begin(), key.end(), columns.begin()))
            return true;
    }
    return false;
}

void expectDeclared(const std::filesystem::path& file, StoreKind kind) {
    SCOPED_TRACE(file.filename().string());
    store::Database db = store::Database::OpenDatabase(file, false, true);
    store::Connection& c = *db.connection();
    const auto stored = column(c, "SELECT name FROM sqlite_master WHERE type = 'table'");
    for (const auto& table : stored) {
        const Relation* r = relationOf(table);
        ASSERT_NE(r, nullptr) << table << " is not declared";
        EXPECT_EQ(r->store, kind) << table;
    }
    for (const Relation& r : relations()) {
        if (r.store != kind) continue;
        const std::string table(r.table);
        ASSERT_EQ(std::count(stored.begin(), stored.end(), table), 1) << table << " is missing";
        const KeyColumns& k = r.keys;
        if (!k.number.empty()) {
            std::vector<std::string_view> key{k.number};
            if (!k.state.empty()) key.push_back(k.state);
            EXPECT_TRUE(indexLeadsWith(c, table, key)) << table << ": " << k.number;
        }
        for (const std::string_view single : {k.person, k.code}) {
            if (!single.empty()) {
                EXPECT_TRUE(indexLeadsWith(c, table, {single})) << table;
            }
        }
    }
}

TEST(Relations, EveryTableOfTheDefaultStoresIsDeclaredWithItsIndexedKeys) {
    expectDeclared(kStores / kSettingsStoreFile, StoreKind::Settings);
    expectDeclared(kStores / kBusinessStoreFile, StoreKind::Data);
    expectDeclared(kStores / kNotificationStoreFile, StoreKind::Data);
}

TEST(Relations, KeysFitWhatTheRowsBelongTo) {
    for (const Relation& r : relations()) {
        const KeyColumns& k = r.keys;
        switch (r.owner) {
            case Owner::BusinessState:
                EXPECT_FALSE(k.number.empty() || k.state.empty()) << r.table;
                break;
            case Owner::Link:
                EXPECT_FALSE(k.number.empty() || k.state.empty() || k.person.empty()) << r.table;
                break;
            case Owner::Person:
                EXPECT_FALSE(k.person.empty()) << r.table;
                EXPECT_TRUE(k.state.empty()) << r.table;
                break;
            case Owner::CodeTable:
                EXPECT_FALSE(k.code.empty()) << r.table;
                break;
            case Owner::Program:
                break;
        }
    }
}

TEST(Relations, ImportRemovesAndExportWritesEveryTableOfTheDataOnce) {
    std::set<std::string_view> data;
    for (const Relation& r : relations())
        if (r.store == StoreKind::Data) data.insert(r.table);
    for (const auto* order : {&removalOrder(), &exportOrder()}) {
        std::set<std::string_view> seen;
        for (const Relation* r : *order) EXPECT_TRUE(seen.insert(r->table).second) << r->table;
        EXPECT_EQ(seen, data);
    }
    // The business itself comes first in the file, before what hangs off it.
    EXPECT_EQ(exportOrder().front()->table, "betrieb");
}

}  // namespace
}  // namespace tolma::model
