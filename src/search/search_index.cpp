#include "search/search_index.h"

#include <algorithm>
#include <limits>
#include <set>

#include "search/index_words.h"
#include "search/phonetic.h"
#include "store/connection.h"
#include "store/german_text.h"

namespace tolma::search {
namespace {

using store::Variant;

std::string text(store::Statement& st, int i) {
    return st.column(i).toString();
}

// Rows of removed businesses are numbered from here on: the index hands out its rows in the order
// of their numbers, so that of many hits the current businesses come first.
constexpr long long kRemoved = 1LL << 40;

void createIndex(store::Connection& c) {
    // Which index rows belong to a business: the index cannot look up its unindexed columns.
    c.execute(
        "CREATE TABLE IF NOT EXISTS tolma_suchindex_zeilen (zeile INTEGER PRIMARY KEY, betr_nr "
        "TEXT)");
    c.execute(
        "CREATE INDEX IF NOT EXISTS tolma_suchindex_zeilen_nr ON tolma_suchindex_zeilen (betr_nr)");
    // What a hit shows is kept beside its words, so that a query reads nothing else.
    c.execute(
        "CREATE VIRTUAL TABLE IF NOT EXISTS tolma_suchindex USING fts5(art UNINDEXED, betr_nr "
        "UNINDEXED, hist UNINDEXED, pers_nr UNINDEXED, name UNINDEXED, strasse UNINDEXED, ort "
        "UNINDEXED, gem_kz UNINDEXED, exakt, gefaltet, klang, tokenize = 'unicode61 "
        "remove_diacritics 0')");
}

// The first free row number for a current or a removed business.
struct RowNumbers {
    long long current = 1, removed = kRemoved;
    explicit RowNumbers(store::Connection& c) {
        auto st = c.prepare(
            "SELECT (SELECT max(zeile) FROM tolma_suchindex_zeilen WHERE zeile < ?1), (SELECT "
            "max(zeile) FROM tolma_suchindex_zeilen WHERE zeile >= ?1)");
        st->bind(1, Variant(kRemoved));
        if (st->step()) {
            if (!st->column(0).isNull()) current = st->column(0).toInteger() + 1;
            if (!st->column(1).isNull()) removed = st->column(1).toInteger() + 1;
        }
    }
};

// The businesses a refresh writes anew, while it runs.
constexpr const char* kChosen = "temp.tolma_such_betriebe";

// The index rows of the business states that are current (or removed), each state followed by
// the persons linked to it, in the order of the states: one row each with what the hit shows and
// its texts, the names (also heard by sound) before and after the others. A business is found by
// the names of its persons, a person by its business's name. The hit shows the business's first
// address of kind 1, as the lists do.
std::string rowsOf(bool removed, bool chosenOnly) {
    std::string where =
        std::string("trim(ifnull(b.[betr-ende], '')) ") + (removed ? "<> ''" : "= ''");
    if (chosenOnly) where += std::string(" AND b.[betr-nr] IN (SELECT nr FROM ") + kChosen + ")";
    return "SELECT b.rowid AS br, 0 AS zr, 0 AS pr, 'B' AS art, ifnull(b.[betr-nr], '') AS nr, "
           "ifnull(b.[betr-hist-nr], '') AS hist, '' AS pers_nr, ifnull(b.[b-eintr-name], '') AS "
           "name, ifnull(s.[b-strasse], '') AS strasse, ifnull(s.[b-ort], '') AS ort, "
           "ifnull(b.[gem-kz], '') AS gem_kz, b.[b-eintr-name] AS vorn, "
           // texts: the addresses, then the activities
           "ifnull((SELECT group_concat(ifnull(a.[b-strasse], '') || ' ' || ifnull(a.[b-ort], '') "
           "|| ' ' "
           "|| ifnull(a.[b-plz], ''), ' ') FROM betrieb_adresse a WHERE a.[betr-nr] = b.[betr-nr] "
           "AND a.[betr-hist-nr] = b.[betr-hist-nr]), '') || ' ' || ifnull((SELECT "
           "group_concat(t.[tk-originaltext], ' ') FROM betrieb_taetigkeit t WHERE t.[betr-nr] = "
           "b.[betr-nr] AND t.[betr-hist-nr] = b.[betr-hist-nr]), '') AS texte, "
           // names after the texts: the persons'
           "(SELECT group_concat(ifnull(p.[fam-name], '') || ' ' || ifnull(p.vornamen, '') || ' ' "
           "|| ifnull(p.[p-eintr-name], ''), ' ') FROM beziehung_betrieb_person z JOIN person p ON "
           "p.[pers-nr] = z.[bez-pers-nr] WHERE z.[bez-betr-nr] = b.[betr-nr] AND "
           "z.[bez-betr-hist-nr] = b.[betr-hist-nr]) AS nachn "
           "FROM betrieb b LEFT JOIN betrieb_adresse s ON s.rowid = (SELECT min(a.rowid) FROM "
           "betrieb_adresse a WHERE a.[betr-nr] = b.[betr-nr] AND a.[betr-hist-nr] = "
           "b.[betr-hist-nr] AND trim(a.[b-adr-art]) = '1') WHERE " +
           where +
           " UNION ALL "
           "SELECT b.rowid, z.rowid, p.rowid, 'P', ifnull(b.[betr-nr], ''), "
           "ifnull(b.[betr-hist-nr], ''), ifnull(p.[pers-nr], ''), CASE WHEN ifnull(p.[fam-name], "
           "'') <> '' THEN p.[fam-name] || CASE WHEN ifnull(p.vornamen, '') <> '' THEN ', ' || "
           "p.vornamen ELSE '' END ELSE ifnull(p.[p-eintr-name], '') END, ifnull(p.[p-strasse], "
           "''), ifnull(p.[p-ort], ''), ifnull(b.[gem-kz], ''), ifnull(p.[fam-name], '') || ' ' || "
           "ifnull(p.vornamen, '') || ' ' || ifnull(p.[p-eintr-name], ''), ifnull(p.[p-strasse], "
           "'') || ' ' || ifnull(p.[p-ort], '') || ' ' || ifnull(b.[b-eintr-name], ''), NULL "
           "FROM betrieb b JOIN beziehung_betrieb_person z ON z.[bez-betr-nr] = b.[betr-nr] AND "
           "z.[bez-betr-hist-nr] = b.[betr-hist-nr] JOIN person p ON p.[pers-nr] = z.[bez-pers-nr] "
           "WHERE " +
           where + " ORDER BY 1, 2, 3";
}

// Writes the index rows of the current, then of the removed business states (all, or those
// chosen), numbered on from the free row numbers in the order rowsOf() gives them.
void insertRows(store::Connection& c, bool chosenOnly) {
    registerWordFunction(c);
    const RowNumbers numbers(c);
    for (const bool removed : {false, true}) {
        const long long first = removed ? numbers.removed : numbers.current;
        auto insert = c.prepare(
            "INSERT INTO tolma_suchindex (rowid, art, betr_nr, hist, pers_nr, name, strasse, ort, "
            "gem_kz, exakt, gefaltet, klang) SELECT ?1 - 1 + row_number() OVER (), art, nr, hist, "
            "pers_nr, name, strasse, ort, gem_kz, tolma_such_worte(0, vorn, texte, nachn), "
            "tolma_such_worte(1, vorn, texte, nachn), tolma_such_worte(2, vorn, nachn) FROM (" +
            rowsOf(removed, chosenOnly) + ")");
        insert->bind(1, Variant(first));
        insert->step();
        auto rows = c.prepare(
            "INSERT INTO tolma_suchindex_zeilen SELECT rowid, betr_nr FROM tolma_suchindex WHERE "
            "rowid >= ?1 AND rowid < ?2");
        rows->bind(1, Variant(first));
        rows->bind(2, Variant(removed ? std::numeric_limits<long long>::max() : kRemoved));
        rows->step();
    }
}

// An FTS5 string: the word in double quotes.
std::string phrase(const std::string& w) {
    std::string q = "\"";
    for (char c : w) q += c == '"' ? std::string("\"\"") : std::string(1, c);
    return q + "\"";
}

}  // namespace

bool hasIndex(store::Connection& c) {
    auto st = c.prepare("SELECT 1 FROM sqlite_master WHERE name = 'tolma_suchindex'");
    return st->step();
}

void buildIndex(store::Connection& c, const std::function<void(long, long)>& progress) {
    c.execute("BEGIN");
    try {
        // Emptied rather than dropped: a table cannot go while the program's recordsets read.
        createIndex(c);
        c.execute("DELETE FROM tolma_suchindex");
        c.execute("DELETE FROM tolma_suchindex_zeilen");
        auto count = c.prepare("SELECT count(*) FROM betrieb");
        count->step();
        const long total = static_cast<long>(count->column(0).toInteger());
        count.reset();
        if (progress) progress(0, total);
        insertRows(c, false);
        if (progress) progress(total, total);
        c.execute("COMMIT");
    } catch (...) {
        c.execute("ROLLBACK");
        throw;
    }
}

void refreshIndex(store::Connection& c, const std::vector<std::string>& betrNrs) {
    if (!hasIndex(c) || betrNrs.empty()) return;
    // Where a run touched a good part of the store, building anew costs less than row by row.
    auto count = c.prepare("SELECT count(*) FROM betrieb");
    count->step();
    if (static_cast<long long>(betrNrs.size()) * 4 > count->column(0).toInteger()) {
        count.reset();
        buildIndex(c);
        return;
    }
    count.reset();
    c.execute("BEGIN");
    try {
        c.execute(std::string("CREATE TEMP TABLE IF NOT EXISTS ") + kChosen +
                  " (nr TEXT PRIMARY KEY) WITHOUT ROWID");
        c.execute(std::string("DELETE FROM ") + kChosen);
        auto add = c.prepare(std::string("INSERT OR IGNORE INTO ") + kChosen + " VALUES (?1)");
        for (const auto& nr : betrNrs) {
            add->reset();
            add->bind(1, Variant(nr));
            add->step();
        }
        add.reset();
        // The businesses whose persons are among those of the named ones change with them.
        c.execute(std::string("INSERT OR IGNORE INTO ") + kChosen +
                  " SELECT DISTINCT o.[bez-betr-nr] FROM beziehung_betrieb_person b INNER JOIN "
                  "beziehung_betrieb_person o ON o.[bez-pers-nr] = b.[bez-pers-nr] WHERE "
                  "b.[bez-betr-nr] IN (SELECT nr FROM " +
                  kChosen + ") AND o.[bez-betr-nr] IS NOT NULL");
        c.execute(std::string("DELETE FROM tolma_suchindex WHERE rowid IN (SELECT zeile FROM "
                              "tolma_suchindex_zeilen WHERE betr_nr IN (SELECT nr FROM ") +
                  kChosen + "))");
        c.execute(
            std::string("DELETE FROM tolma_suchindex_zeilen WHERE betr_nr IN (SELECT nr FROM ") +
            kChosen + ")");
        insertRows(c, true);
        c.execute(std::string("DELETE FROM ") + kChosen);
        c.execute("COMMIT");
    } catch (...) {
        c.execute("ROLLBACK");
        throw;
    }
}

std::vector<Hit> find(store::Connection& c, const std::string& query, Kind kind, int limit) {
    const std::vector<std::string> words = wordsOf(query);
    if (words.empty()) return {};
    if (!hasIndex(c)) buildIndex(c);
    // Two questions to the index: every word as written, then every word in any of the three
    // ways. Of many hits each answers only its first rows, the current businesses first; asking
    // for the written words on their own keeps those hits among them however many others agree
    // by spelling or sound.
    std::string exact, any;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string star = i + 1 == words.size() ? "*" : "";
        const std::string asWritten = "exakt : " + phrase(store::german::lower(words[i])) + star;
        std::string term = asWritten + " OR gefaltet : " + phrase(fold(words[i])) + star;
        if (const std::string code = koelnerPhonetik(words[i]); !code.empty())
            term += " OR klang : " + phrase(code);
        exact += (i ? " AND " : "") + asWritten;
        any += (i ? " AND (" : "(") + term + ")";
    }
    std::string sql =
        "SELECT rowid, art, betr_nr, hist, pers_nr, name, strasse, ort, gem_kz, exakt, gefaltet, "
        "klang FROM tolma_suchindex WHERE tolma_suchindex MATCH ?1";
    if (kind == Kind::Businesses) sql += " AND art = 'B'";
    if (kind == Kind::Persons) sql += " AND art = 'P'";
    auto st = c.prepare(sql + " LIMIT 2000");
    std::vector<Hit> hits;
    std::set<long long> seen;
    for (const std::string* match : {&exact, &any}) {
        st->reset();
        st->bind(1, Variant(*match));
        while (st->step()) {
            const long long rowid = st->column(0).toInteger();
            if (!seen.insert(rowid).second) continue;
            Hit h;
            h.person = text(*st, 1) == "P";
            h.betrNr = text(*st, 2);
            h.betrHistNr = text(*st, 3);
            h.persNr = text(*st, 4);
            h.name = text(*st, 5);
            h.strasse = text(*st, 6);
            h.ort = text(*st, 7);
            h.gemKz = text(*st, 8);
            h.abgemeldet = rowid >= kRemoved;
            const std::string exakt = " " + text(*st, 9), gefaltet = " " + text(*st, 10);
            for (size_t i = 0; i < words.size(); ++i) {
                const bool last = i + 1 == words.size();
                auto has = [&](const std::string& column, const std::string& w) {
                    return column.find(" " + w + (last ? "" : " ")) != std::string::npos;
                };
                if (has(exakt, store::german::lower(words[i])))
                    h.score += 3;
                else if (has(gefaltet, fold(words[i])))
                    h.score += 2;
                else
                    h.score += 1;
            }
            hits.push_back(std::move(h));
        }
    }
    std::stable_sort(hits.begin(), hits.end(), [](const Hit& a, const Hit& b) {
        if (a.score != b.score) return a.score > b.score;
        if (a.abgemeldet != b.abgemeldet) return !a.abgemeldet;
        return store::german::compare(a.name, b.name) < 0;
    });
    if (limit > 0 && static_cast<int>(hits.size()) > limit) hits.resize(static_cast<size_t>(limit));
    return hits;
}

std::string hitsText(const std::vector<Hit>& hits) {
    std::string t = "Art\tBetriebsnummer\tHist.-Nr.\tName\tStraße\tOrt\tGemeinde-KZ\tStatus\n";
    for (const auto& h : hits)
        t += std::string(h.person ? "Person" : "Betrieb") + "\t" + h.betrNr + "\t" + h.betrHistNr +
             "\t" + h.name + "\t" + h.strasse + "\t" + h.ort + "\t" + h.gemKz + "\t" +
             (h.abgemeldet ? "abgemeldet" : "") + "\n";
    return t;
}

}  // namespace tolma::search
