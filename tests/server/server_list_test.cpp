// A long list on a server store shows its first screen while the rest of its keys is read
// behind it, in the snapshot of its opening: the rows, their order and the typed search are
// those of the whole list read at once.
#include <gtest/gtest.h>

#include "model/server_schema.h"
#include "pg_cluster.h"
#include "store/dao_error.h"
#include "store/database.h"
#include "store/server_session.h"

namespace tolma {
namespace {

constexpr int kBusinesses = 1500;

// Business numbers with gaps, repeats and a few without a number, which sort first.
std::vector<store::ServerRow> businesses() {
    std::vector<store::ServerRow> rows;
    for (int i = 0; i < kBusinesses; ++i) {
        const store::ServerValue number =
            i % 250 == 7 ? std::nullopt
                         : store::ServerValue(std::to_string(100000 + (i * 7919) % 1200));
        rows.push_back({number, "1", i == 1400 ? "Zebra" : "Betrieb " + std::to_string(i)});
    }
    return rows;
}

// Each place of the list: its business number, or that its row is gone since the opening.
std::vector<std::string> places(const store::Recordset& rs) {
    std::vector<std::string> out;
    const int number = rs.fieldIndex("betr-nr");
    for (long p = 0; p < rs.RecordCount(); ++p) {
        try {
            out.push_back(rs.rowAt(p)[static_cast<size_t>(number)].toString());
        } catch (const store::DaoError&) {
            out.push_back("gelöscht");
        }
    }
    return out;
}

TEST(ServerList, TheRestReadBehindIsTheListAsItStoodAtOpening) {
    const std::string text = testing::PgCluster::get().createDatabase("liste");
    model::setUpServerStore(text);
    auto other = store::ServerSession::connect(text);
    other->copyIn("betrieb", {"betr-nr", "betr-hist-nr", "b-eintr-name"}, businesses());
    other->execute("ANALYZE betrieb");
    // The whole list as one statement reads it, and the row ids that another workstation
    // deletes while the list is read: one of the first screen, one behind it.
    std::vector<std::string> expected, ids, names;
    for (const auto& row : other
                               ->query("SELECT \"betr-nr\", rowid, \"b-eintr-name\" FROM "
                                       "betrieb ORDER BY \"betr-nr\" NULLS FIRST, rowid")
                               .rows) {
        expected.push_back(row[0].value_or(""));
        ids.push_back(*row[1]);
        names.push_back(*row[2]);
    }
    ASSERT_EQ(expected.size(), static_cast<size_t>(kBusinesses));
    expected[3] = expected[900] = "gelöscht";
    const auto placeOf = [&](auto matches) {
        for (size_t p = 0; p < names.size(); ++p)
            if (expected[p] != "gelöscht" && matches(names[p])) return static_cast<long>(p);
        return -1L;
    };
    const long firstBetrieb1 =
        placeOf([](const std::string& n) { return n.rfind("Betrieb 1", 0) == 0; });
    const long zebra = placeOf([](const std::string& n) { return n == "Zebra"; });

    auto db = store::Database::OpenDatabase(text);
    auto rs = db.OpenRecordset("SELECT betrieb.* FROM betrieb ORDER BY betrieb.[betr-nr]");
    EXPECT_FALSE(rs.CountFinal());
    ASSERT_LT(firstBetrieb1, rs.KnownCount());
    ASSERT_GE(zebra, rs.KnownCount());
    other->execute("DELETE FROM betrieb WHERE rowid IN (" + ids[3] + ", " + ids[900] + ")");
    other->execute("INSERT INTO betrieb (\"betr-nr\", \"betr-hist-nr\") VALUES ('000001', '1')");

    // A name among the rows already read is found without waiting for the rest; one behind
    // them, at its place in the whole list.
    rs.FindFirst("betrieb.[b-eintr-name] LIKE 'Betrieb 1*'");
    EXPECT_EQ(rs.AbsolutePosition(), firstBetrieb1);
    EXPECT_FALSE(rs.CountFinal());
    rs.FindFirst("betrieb.[b-eintr-name] LIKE 'zebr*'");
    EXPECT_EQ(rs.AbsolutePosition(), zebra);
    EXPECT_TRUE(rs.CountFinal());

    EXPECT_EQ(places(rs), expected);
}

TEST(ServerList, ASetUpAgainMakesAnIndexThatSortedNullLastSortNullFirst) {
    const std::string text = testing::PgCluster::get().createDatabase("liste_index");
    model::setUpServerStore(text);
    auto s = store::ServerSession::connect(text);
    const std::string index = "idx_betrieb_betr_nr_betr_hist_nr";
    s->execute("DROP INDEX " + index);
    s->execute("CREATE INDEX " + index + " ON betrieb (\"betr-nr\", \"betr-hist-nr\")");
    model::setUpServerStore(text);
    const auto def = s->query("SELECT indexdef FROM pg_indexes WHERE indexname = $1", {index}).rows;
    ASSERT_EQ(def.size(), 1u);
    EXPECT_NE(def[0][0]->find("\"betr-nr\" NULLS FIRST, \"betr-hist-nr\" NULLS FIRST"),
              std::string::npos)
        << *def[0][0];
}

}  // namespace
}  // namespace tolma
