#include "search/search_index.h"

#include <algorithm>
#include <set>

#include "model/values.h"
#include "search/phonetic.h"
#include "store/connection.h"
#include "store/german_text.h"

namespace tolma::search {
namespace {

using store::Variant;

// The words of a text: runs of letters and digits; bytes of UTF-8 sequences count as letters.
std::vector<std::string> wordsOf(const std::string& text) {
    std::vector<std::string> words;
    std::string w;
    for (char ch : text) {
        const auto c = static_cast<unsigned char>(ch);
        if (std::isalnum(c) || c >= 0x80) {
            w += ch;
        } else if (!w.empty()) {
            words.push_back(std::move(w));
            w.clear();
        }
    }
    if (!w.empty()) words.push_back(std::move(w));
    return words;
}

// The three columns of an index row from its texts; the sound only of names.
struct Columns {
    std::string exakt, gefaltet, klang;
    void add(const std::string& text, bool name) {
        for (const auto& w : wordsOf(text)) {
            exakt += store::german::lower(w) + " ";
            gefaltet += fold(w) + " ";
            if (name)
                if (const std::string code = koelnerPhonetik(w); !code.empty()) klang += code + " ";
        }
    }
};

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

// What a business state shows in the hit list.
struct Shown {
    std::string nr, hist, name, gemKz;
    bool abgemeldet = false;
};

// The rows of one business state and of the persons linked to it.
void indexBusiness(store::Connection& c, RowNumbers& numbers, const Shown& b) {
    Columns business;
    business.add(b.name, true);
    std::string strasse, ort;
    auto& adr = c.cached(
        "SELECT [b-strasse], [b-ort], [b-plz], [b-adr-art] FROM betrieb_adresse WHERE [betr-nr] = "
        "?1 AND [betr-hist-nr] = ?2");
    adr.bind(1, Variant(b.nr));
    adr.bind(2, Variant(b.hist));
    bool shownAddress = false;
    while (adr.step()) {
        business.add(text(adr, 0) + " " + text(adr, 1) + " " + text(adr, 2), false);
        // The hit shows the business's first address of kind 1, as the lists do.
        if (!shownAddress && model::trimBlanks(text(adr, 3)) == "1") {
            strasse = text(adr, 0);
            ort = text(adr, 1);
            shownAddress = true;
        }
    }
    adr.reset();
    auto& act = c.cached(
        "SELECT [tk-originaltext] FROM betrieb_taetigkeit WHERE [betr-nr] = ?1 AND [betr-hist-nr] "
        "= ?2");
    act.bind(1, Variant(b.nr));
    act.bind(2, Variant(b.hist));
    while (act.step()) business.add(text(act, 0), false);
    act.reset();
    struct Person {
        std::string nr, name, strasse, ort;
        Columns words;
    };
    std::vector<Person> persons;
    auto& pers = c.cached(
        "SELECT p.[pers-nr], p.[fam-name], p.[vornamen], p.[p-eintr-name], p.[p-strasse], "
        "p.[p-ort] FROM "
        "beziehung_betrieb_person b INNER JOIN person p ON p.[pers-nr] = b.[bez-pers-nr] WHERE "
        "b.[bez-betr-nr] = ?1 AND "
        "b.[bez-betr-hist-nr] = ?2");
    pers.bind(1, Variant(b.nr));
    pers.bind(2, Variant(b.hist));
    while (pers.step()) {
        const std::string fam = text(pers, 1), vor = text(pers, 2), jp = text(pers, 3);
        Person p{text(pers, 0),
                 !fam.empty() ? fam + (vor.empty() ? "" : ", " + vor) : jp,
                 text(pers, 4),
                 text(pers, 5),
                 {}};
        p.words.add(fam + " " + vor + " " + jp, true);
        p.words.add(p.strasse + " " + p.ort, false);
        business.add(fam + " " + vor + " " + jp, true);
        persons.push_back(std::move(p));
    }
    pers.reset();
    auto& insert = c.cached(
        "INSERT INTO tolma_suchindex (rowid, art, betr_nr, hist, pers_nr, name, strasse, ort, "
        "gem_kz, exakt, gefaltet, klang) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, "
        "?12)");
    auto& row = c.cached("INSERT INTO tolma_suchindex_zeilen VALUES (?1, ?2)");
    auto put = [&](const char* art, const std::string& persNr, const std::string& name,
                   const std::string& str, const std::string& place, const Columns& w) {
        const long long number = b.abgemeldet ? numbers.removed++ : numbers.current++;
        insert.reset();
        insert.bind(1, Variant(number));
        insert.bind(2, Variant(art));
        insert.bind(3, Variant(b.nr));
        insert.bind(4, Variant(b.hist));
        insert.bind(5, Variant(persNr));
        insert.bind(6, Variant(name));
        insert.bind(7, Variant(str));
        insert.bind(8, Variant(place));
        insert.bind(9, Variant(b.gemKz));
        insert.bind(10, Variant(w.exakt));
        insert.bind(11, Variant(w.gefaltet));
        insert.bind(12, Variant(w.klang));
        insert.step();
        row.reset();
        row.bind(1, Variant(number));
        row.bind(2, Variant(b.nr));
        row.step();
    };
    put("B", "", b.name, strasse, ort, business);
    // A person is found by its own words and by its business's name.
    for (auto& p : persons) {
        p.words.add(b.name, false);
        put("P", p.nr, p.name, p.strasse, p.ort, p.words);
    }
}

// The business states as the index shows them, from a query of betrieb.
constexpr const char* kStates =
    "SELECT [betr-nr], [betr-hist-nr], [b-eintr-name], [gem-kz], [betr-ende] FROM betrieb";

Shown shownOf(store::Statement& st) {
    return {text(st, 0), text(st, 1), text(st, 2), text(st, 3),
            !model::trimBlanks(text(st, 4)).empty()};
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
        RowNumbers numbers(c);
        auto rows = c.prepare(kStates);
        long done = 0;
        while (rows->step()) {
            indexBusiness(c, numbers, shownOf(*rows));
            if (progress && ++done % 1000 == 0) progress(done, total);
        }
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
    // The businesses whose persons are among those of the named ones change with them.
    std::set<std::string> businesses(betrNrs.begin(), betrNrs.end());
    auto& linked = c.cached(
        "SELECT DISTINCT o.[bez-betr-nr] FROM beziehung_betrieb_person b INNER JOIN "
        "beziehung_betrieb_person o ON "
        "o.[bez-pers-nr] = b.[bez-pers-nr] WHERE b.[bez-betr-nr] = ?1");
    for (const auto& nr : betrNrs) {
        linked.reset();
        linked.bind(1, Variant(nr));
        while (linked.step()) businesses.insert(text(linked, 0));
    }
    linked.reset();
    c.execute("BEGIN");
    try {
        RowNumbers numbers(c);
        auto& drop = c.cached(
            "DELETE FROM tolma_suchindex WHERE rowid IN (SELECT zeile FROM tolma_suchindex_zeilen "
            "WHERE betr_nr = ?1)");
        auto& dropRows = c.cached("DELETE FROM tolma_suchindex_zeilen WHERE betr_nr = ?1");
        auto& states = c.cached(std::string(kStates) + " WHERE [betr-nr] = ?1");
        for (const auto& nr : businesses) {
            drop.reset();
            drop.bind(1, Variant(nr));
            drop.step();
            dropRows.reset();
            dropRows.bind(1, Variant(nr));
            dropRows.step();
            states.reset();
            states.bind(1, Variant(nr));
            std::vector<Shown> rows;
            while (states.step()) rows.push_back(shownOf(states));
            states.reset();
            for (const auto& b : rows) indexBusiness(c, numbers, b);
        }
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
