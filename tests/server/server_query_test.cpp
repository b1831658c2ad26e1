// The query language answers on a server store as on the embedded store: the same rows, in the
// same order, for the same texts.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "model/default_stores.h"
#include "model/schema.h"
#include "model/server_schema.h"
#include "pg_cluster.h"
#include "store/connection.h"
#include "store/database.h"
#include "store/jet_sql.h"
#include "store/server_session.h"

namespace tolma {
namespace {

using Rows = std::vector<std::vector<std::string>>;

const std::vector<std::vector<std::optional<std::string>>> kBusinesses = {
    {"1001", "1", "Müller GmbH", "01", "5"},    {"1002", "1", "Muller KG", "03", "12"},
    {"1003", "1", "MÜLLER & Söhne", "01", "7"}, {"1004", "1", "Straße 1", "02", ""},
    {"1005", "1", "Bäckerei Öz", "01", "9"},    {"1006", "1", "apfel", "01", std::nullopt},
    {"1007", "2", "Äpfel_50%", "03", "3"},      {"1008", "1", "Zander[1]", "01", "10"},
    {"1009", "1", "Strasse 2", "02", " 4 2"},   {"1010", "1", "zander", "03", "x"}};
const std::vector<std::string> kColumns = {"betr-nr", "betr-hist-nr", "b-eintr-name", "meld-art",
                                           "besch-zahl-vollzeit"};

Rows embeddedRows(store::Connection& c, const std::string& query) {
    const auto p = store::jet::prepare(query, &c.catalog());
    auto st = c.prepare(p.shape->sql);
    st->bindValues(p.values, p.shape->numeric);
    Rows rows;
    while (st->step()) {
        rows.emplace_back();
        for (int i = 0; i < st->columnCount(); ++i) rows.back().push_back(st->column(i).toString());
    }
    return rows;
}

Rows serverRows(store::ServerSession& s, const store::jet::Catalog& catalog,
                const std::string& query) {
    const auto p = store::jet::prepare(query, &catalog);
    std::vector<store::ServerValue> params(p.values.begin(), p.values.end());
    const auto result = s.query(p.shape->sql, params);
    Rows rows;
    for (const auto& row : result.rows) {
        rows.emplace_back();
        for (const auto& v : row) rows.back().push_back(v.value_or(""));
    }
    return rows;
}

TEST(ServerQueries, TheQueryLanguageAnswersAsOnTheEmbeddedStore) {
    const auto dir = std::filesystem::temp_directory_path() /
                     ("tolma-server-query-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    const auto file = dir / "tl_4x_b.mdb";
    model::writeEmptyStore(file, model::dataTables());
    auto db = store::Database::OpenDatabase(file);
    auto& c = *db.connection();
    for (const auto& row : kBusinesses) {
        std::vector<store::Variant> values;
        for (const auto& v : row) values.push_back(v ? store::Variant(*v) : store::Variant());
        c.execute(
            "INSERT INTO betrieb (\"betr-nr\", \"betr-hist-nr\", \"b-eintr-name\", "
            "\"meld-art\", \"besch-zahl-vollzeit\") VALUES (?1, ?2, ?3, ?4, ?5)",
            values);
    }
    const std::string text = testing::PgCluster::get().createDatabase("abfragen");
    model::setUpServerStore(text);
    auto s = store::ServerSession::connect(text);
    s->copyIn("betrieb", kColumns, kBusinesses);
    store::jet::Catalog server = c.catalog();
    server.server = true;
    server.fingerprint += "|server";
    server.id = std::hash<std::string>{}(server.fingerprint);

    const std::string names = "SELECT [betr-nr] FROM betrieb WHERE ";
    const std::string byNumber = " ORDER BY [betr-nr]";
    const std::vector<std::string> queries = {
        names + "[b-eintr-name] = 'müller gmbh'" + byNumber,
        names + "[B-Eintr-Name] <> 'MULLER KG'" + byNumber,
        names + "[b-eintr-name] LIKE 'mü*'" + byNumber,
        names + "[b-eintr-name] NOT LIKE '*[!a-m]'" + byNumber,
        names + "[b-eintr-name] LIKE 'Stra?e*'" + byNumber,
        names + "[b-eintr-name] LIKE '*#*'" + byNumber,
        names + "[b-eintr-name] LIKE 'äpfel_50%'" + byNumber,
        names + "[b-eintr-name] LIKE 'Zander[[]1]'" + byNumber,
        names + "[b-eintr-name] > 'm'" + byNumber,
        names + "[b-eintr-name] BETWEEN 'a' AND 'muller kg'" + byNumber,
        names + "[meld-art] IN ('01', '02')" + byNumber,
        names + "[betr-nr] BETWEEN '1002' AND '1004'" + byNumber,
        names + "InStr([b-eintr-name], 'LLER') > 0" + byNumber,
        names + "Len([b-eintr-name]) > '9'" + byNumber,
        "SELECT [b-eintr-name] FROM betrieb ORDER BY [b-eintr-name]",
        "SELECT [b-eintr-name] AS Name FROM betrieb ORDER BY name DESC, [betr-nr]",
        "SELECT UCase([b-eintr-name]) AS u, LCase([b-eintr-name]) AS l FROM betrieb" + byNumber,
        "SELECT Len([b-eintr-name]) AS n, Val([besch-zahl-vollzeit]) AS v FROM betrieb" + byNumber,
        "SELECT [betr-nr] & '-' & [betr-hist-nr] AS k FROM betrieb ORDER BY 1",
        "SELECT Nz([besch-zahl-vollzeit], '0') AS z FROM betrieb" + byNumber,
        "SELECT [meld-art], Count(*) AS n FROM betrieb GROUP BY [meld-art] ORDER BY [meld-art]",
        "SELECT TOP 2 [betr-nr] AS [Betr-Nr] FROM betrieb ORDER BY [betr-nr] DESC",
        "SELECT IIf([meld-art] = '03', 'ab', 'an') AS s FROM betrieb" + byNumber,
        "SELECT Right([b-eintr-name], 3) AS r, Mid([b-eintr-name], 2, 3) AS m, "
        "Left([b-eintr-name], 2) AS l FROM betrieb" +
            byNumber,
        "SELECT 7 \\ 2 AS a, 7 MOD 3 AS b, 2 ^ 3 AS c FROM betrieb WHERE [betr-nr] = '1001'",
        "SELECT InStr(3, [b-eintr-name], 'L') AS a, InStr([b-eintr-name], '') AS b FROM betrieb" +
            byNumber,
        "SELECT Format('2024-03-05 07:08:09', 'dd.mm.yyyy hh:nn:ss (yy)') AS f, Format([betr-nr]) "
        "AS g, Format('x', 'yyyy') AS h FROM betrieb WHERE [betr-nr] = '1001'",
        "SELECT Min([b-eintr-name]) AS a, Max([b-eintr-name]) AS b FROM betrieb",
        "SELECT Count(*) AS n FROM betrieb WHERE [betr-nr] IN (SELECT [betr-nr] FROM betrieb "
        "WHERE [meld-art] = '03')",
    };
    for (const auto& q : queries) {
        const Rows expected = embeddedRows(c, q);
        Rows got;
        try {
            got = serverRows(*s, server, q);
        } catch (const std::exception& e) {
            ADD_FAILURE() << q << "\n" << e.what();
            continue;
        }
        EXPECT_EQ(got, expected) << q << "\n" << store::jet::prepare(q, &server).shape->sql;
        EXPECT_FALSE(expected.empty()) << q;
    }
    db.Close();
    std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace tolma
