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

// The rows of the index with what a hit shows beside their words, so that a query reads nothing
// else; the full-text index over them keeps no copy of its own (an external content table), and
// the rows of a business are found by its number.
void createIndex(store::Connection& c) {
    c.execute(
        "CREATE TABLE IF NOT EXISTS tolma_suchzeilen (zeile INTEGER PRIMARY KEY, art TEXT, "
        "betr_nr TEXT, hist TEXT, pers_nr TEXT, name TEXT, strasse TEXT, ort TEXT, gem_kz TEXT, "
        "exakt TEXT, gefaltet TEXT, klang TEXT)");
    c.execute("CREATE INDEX IF NOT EXISTS tolma_suchzeilen_nr ON tolma_suchzeilen (betr_nr)");
    c.execute(
        "CREATE VIRTUAL TABLE IF NOT EXISTS tolma_suchworte USING fts5(art UNINDEXED, betr_nr "
        "UNINDEXED, hist UNINDEXED, pers_nr UNINDEXED, name UNINDEXED, strasse UNINDEXED, ort "
        "UNINDEXED, gem_kz UNINDEXED, exakt, gefaltet, klang, tokenize = 'unicode61 "
        "remove_diacritics 0', content = 'tolma_suchzeilen', content_rowid = 'zeile', "
        "columnsize = 0)");
}

bool tableExists(store::Connection& c, const char* name) {
    auto st = c.prepare("SELECT 1 FROM sqlite_master WHERE name = ?1");
    st->bind(1, Variant(name));
    return st->step();
}

// The index of an earlier form, which kept a copy of its rows, under names of its own. It goes
// where no recordset of the program reads the store; otherwise it is emptied.
void dropEarlierIndex(store::Connection& c) {
    if (!tableExists(c, "tolma_suchindex")) return;
    try {
        c.execute("DROP TABLE tolma_suchindex");
        c.execute("DROP TABLE IF EXISTS tolma_suchindex_zeilen");
    } catch (const std::exception&) {
        c.execute("DELETE FROM tolma_suchindex");
        if (tableExists(c, "tolma_suchindex_zeilen"))
            c.execute("DELETE FROM tolma_suchindex_zeilen");
    }
}

// The first free row number for a current or a removed business.
struct RowNumbers {
    long long current = 1, removed = kRemoved;
    explicit RowNumbers(store::Connection& c) {
        auto st = c.prepare(
            "SELECT (SELECT max(zeile) FROM tolma_suchzeilen WHERE zeile < ?1), (SELECT "
            "max(zeile) FROM tolma_suchzeilen WHERE zeile >= ?1)");
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
    where += " AND b.rowid BETWEEN ?2 AND ?3";
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
// chosen), numbered on from the free row numbers in the order rowsOf() gives them; with `index`
// their words also go into the full-text index. The states are taken in parts, after each of
// which `progress` hears how far the work has come (0 to 1).
void insertRows(store::Connection& c, bool chosenOnly, bool index,
                const std::function<void(double)>& progress = {}) {
    registerWordFunction(c);
    auto range = c.prepare("SELECT min(rowid), max(rowid) FROM betrieb");
    range->step();
    const long long low = range->column(0).toInteger(), high = range->column(1).toInteger();
    range.reset();
    const int parts = progress ? 10 : 1;
    const long long step = (high - low) / parts + 1;
    for (const bool removed : {false, true}) {
        auto insert = c.prepare(
            "INSERT INTO tolma_suchzeilen (zeile, art, betr_nr, hist, pers_nr, name, "
            "strasse, ort, gem_kz, exakt, gefaltet, klang) SELECT ?1 - 1 + row_number() OVER (), "
            "art, nr, hist, pers_nr, name, strasse, ort, gem_kz, tolma_such_worte(0, vorn, texte, "
            "nachn), tolma_such_worte(1, vorn, texte, nachn), tolma_such_worte(2, vorn, nachn) "
            "FROM (" +
            rowsOf(removed, chosenOnly) + ")");
        const RowNumbers numbers(c);
        const long long first = removed ? numbers.removed : numbers.current;
        for (int part = 0; part < parts; ++part) {
            const RowNumbers next(c);
            insert->reset();
            insert->bind(1, Variant(removed ? next.removed : next.current));
            insert->bind(2, Variant(low + part * step));
            insert->bind(3, Variant(low + (part + 1) * step - 1));
            insert->step();
            if (progress) progress((removed ? 0.5 : 0.0) + (part + 1) / (2.0 * parts));
        }
        if (!index) continue;
        auto words = c.prepare(
            "INSERT INTO tolma_suchworte (rowid, exakt, gefaltet, klang) SELECT zeile, exakt, "
            "gefaltet, klang FROM tolma_suchzeilen WHERE zeile >= ?1 AND zeile < ?2");
        words->bind(1, Variant(first));
        words->bind(2, Variant(removed ? std::numeric_limits<long long>::max() : kRemoved));
        words->step();
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
    return tableExists(c, "tolma_suchworte");
}

void buildIndex(store::Connection& c, const std::function<void(long, long)>& progress) {
    c.execute("BEGIN");
    try {
        dropEarlierIndex(c);
        createIndex(c);
        // Emptied rather than dropped: a table cannot go while the program's recordsets read.
        c.execute("DELETE FROM tolma_suchzeilen");
        auto count = c.prepare("SELECT count(*) FROM betrieb");
        count->step();
        const long total = static_cast<long>(count->column(0).toInteger());
        count.reset();
        if (progress) progress(0, total);
        // The rows take about three quarters of the time, the full-text index the rest.
        insertRows(c, false, false, [&](double done) {
            if (progress)
                progress(static_cast<long>(done * 0.75 * static_cast<double>(total)), total);
        });
        // The full-text index anew from all rows at once.
        c.execute("INSERT INTO tolma_suchworte (tolma_suchworte) VALUES ('rebuild')");
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
        // The index keeps no copy of the words: it is told which words a row had when it goes.
        // In the order of the rows, else it writes out what it holds in memory at every step back.
        c.execute(std::string("INSERT INTO tolma_suchworte (tolma_suchworte, rowid, exakt, "
                              "gefaltet, klang) SELECT 'delete', zeile, exakt, gefaltet, klang "
                              "FROM tolma_suchzeilen WHERE betr_nr IN (SELECT nr FROM ") +
                  kChosen + ") ORDER BY zeile");
        c.execute(std::string("DELETE FROM tolma_suchzeilen WHERE betr_nr IN (SELECT nr FROM ") +
                  kChosen + ")");
        insertRows(c, true, true);
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
        "klang FROM tolma_suchworte WHERE tolma_suchworte MATCH ?1";
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
