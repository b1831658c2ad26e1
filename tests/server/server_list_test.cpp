// The indexes a long list on a server store reads its rows in order by.
#include <gtest/gtest.h>

#include "model/server_schema.h"
#include "pg_cluster.h"
#include "store/server_session.h"

namespace tolma {
namespace {

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
