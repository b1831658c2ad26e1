#include "search/search_index.h"

#include <algorithm>
#include <map>
#include <set>

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

void createIndex(store::Connection& c) {
    // Which index rows belong to a business: the index cannot look up its unindexed columns.
    c.execute("CREATE TABLE IF NOT EXISTS tolma_suche_zeilen (betr_nr TEXT, zeile INTEGER)");
    c.execute("CREATE INDEX IF NOT EXISTS tolma_suche_zeilen_nr ON tolma_suche_zeilen (betr_nr)");
    c.execute(
        "CREATE VIRTUAL TABLE IF NOT EXISTS tolma_suche USING fts5(art UNINDEXED, betr_nr "
        "UNINDEXED, hist UNINDEXED, "
        "pers_nr UNINDEXED, exakt, gefaltet, klang, tokenize = 'unicode61 remove_diacritics 0')");
}

// The rows of one business state and of the persons linked to it.
void indexBusiness(store::Connection& c, const std::string& nr, const std::string& hist,
                   const std::string& name) {
    Columns business;
    business.add(name, true);
    auto& adr = c.cached(
        "SELECT [b-strasse], [b-ort], [b-plz] FROM betrieb_adresse WHERE [betr-nr] = ?1 AND "
        "[betr-hist-nr] = ?2");
    adr.bind(1, Variant(nr));
    adr.bind(2, Variant(hist));
    while (adr.step()) business.add(text(adr, 0) + " " + text(adr, 1) + " " + text(adr, 2), false);
    adr.reset();
    auto& act = c.cached(
        "SELECT [tk-originaltext] FROM betrieb_taetigkeit WHERE [betr-nr] = ?1 AND [betr-hist-nr] "
        "= ?2");
    act.bind(1, Variant(nr));
    act.bind(2, Variant(hist));
    while (act.step()) business.add(text(act, 0), false);
    act.reset();
    struct Person {
        std::string nr;
        Columns words;
    };
    std::vector<Person> persons;
    auto& pers = c.cached(
        "SELECT p.[pers-nr], p.[fam-name], p.[vornamen], p.[p-eintr-name], p.[p-strasse], "
        "p.[p-ort] FROM "
        "beziehung_betrieb_person b INNER JOIN person p ON p.[pers-nr] = b.[bez-pers-nr] WHERE "
        "b.[bez-betr-nr] = ?1 AND "
        "b.[bez-betr-hist-nr] = ?2");
    pers.bind(1, Variant(nr));
    pers.bind(2, Variant(hist));
    while (pers.step()) {
        Person p{text(pers, 0), {}};
        p.words.add(text(pers, 1) + " " + text(pers, 2) + " " + text(pers, 3), true);
        p.words.add(text(pers, 4) + " " + text(pers, 5), false);
        business.add(text(pers, 1) + " " + text(pers, 2) + " " + text(pers, 3), true);
        persons.push_back(std::move(p));
    }
    pers.reset();
    auto& insert = c.cached("INSERT INTO tolma_suche VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7)");
    auto& row = c.cached("INSERT INTO tolma_suche_zeilen VALUES (?1, last_insert_rowid())");
    auto put = [&](const char* art, const std::string& persNr, const Columns& w) {
        insert.reset();
        insert.bind(1, Variant(art));
        insert.bind(2, Variant(nr));
        insert.bind(3, Variant(hist));
        insert.bind(4, Variant(persNr));
        insert.bind(5, Variant(w.exakt));
        insert.bind(6, Variant(w.gefaltet));
        insert.bind(7, Variant(w.klang));
        insert.step();
        row.reset();
        row.bind(1, Variant(nr));
        row.step();
    };
    put("B", "", business);
    // A person is found by its own words and by its business's name.
    for (auto& p : persons) {
        p.words.add(name, false);
        put("P", p.nr, p.words);
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
    auto st = c.prepare("SELECT 1 FROM sqlite_master WHERE name = 'tolma_suche'");
    return st->step();
}

void buildIndex(store::Connection& c, const std::function<void(long, long)>& progress) {
    c.execute("BEGIN");
    try {
        // Emptied rather than dropped: a table cannot go while the program's recordsets read.
        createIndex(c);
        c.execute("DELETE FROM tolma_suche");
        c.execute("DELETE FROM tolma_suche_zeilen");
        auto count = c.prepare("SELECT count(*) FROM betrieb");
        count->step();
        const long total = static_cast<long>(count->column(0).toInteger());
        auto rows = c.prepare("SELECT [betr-nr], [betr-hist-nr], [b-eintr-name] FROM betrieb");
        long done = 0;
        while (rows->step()) {
            indexBusiness(c, text(*rows, 0), text(*rows, 1), text(*rows, 2));
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
        createIndex(c);  // an index of an older kind gets its table of rows
        auto& drop = c.cached(
            "DELETE FROM tolma_suche WHERE rowid IN (SELECT zeile FROM tolma_suche_zeilen WHERE "
            "betr_nr = ?1)");
        auto& dropRows = c.cached("DELETE FROM tolma_suche_zeilen WHERE betr_nr = ?1");
        auto& states =
            c.cached("SELECT [betr-hist-nr], [b-eintr-name] FROM betrieb WHERE [betr-nr] = ?1");
        for (const auto& nr : businesses) {
            drop.reset();
            drop.bind(1, Variant(nr));
            drop.step();
            dropRows.reset();
            dropRows.bind(1, Variant(nr));
            dropRows.step();
            states.reset();
            states.bind(1, Variant(nr));
            std::vector<std::pair<std::string, std::string>> rows;
            while (states.step()) rows.emplace_back(text(states, 0), text(states, 1));
            states.reset();
            for (const auto& [hist, name] : rows) indexBusiness(c, nr, hist, name);
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
    std::string match;
    for (size_t i = 0; i < words.size(); ++i) {
        const bool last = i + 1 == words.size();
        const std::string star = last ? "*" : "";
        std::string term = "exakt : " + phrase(store::german::lower(words[i])) + star +
                           " OR gefaltet : " + phrase(fold(words[i])) + star;
        if (const std::string code = koelnerPhonetik(words[i]); !code.empty())
            term += " OR klang : " + phrase(code);
        match += (i ? " AND (" : "(") + term + ")";
    }
    std::string sql =
        "SELECT s.art, s.betr_nr, s.hist, s.pers_nr, s.exakt, s.gefaltet, s.klang FROM tolma_suche "
        "s WHERE tolma_suche MATCH ?1";
    if (kind == Kind::Businesses) sql += " AND s.art = 'B'";
    if (kind == Kind::Persons) sql += " AND s.art = 'P'";
    auto st = c.prepare(sql + " LIMIT 2000");
    st->bind(1, Variant(match));
    std::vector<Hit> hits;
    while (st->step()) {
        Hit h;
        h.person = text(*st, 0) == "P";
        h.betrNr = text(*st, 1);
        h.betrHistNr = text(*st, 2);
        h.persNr = text(*st, 3);
        const std::string exakt = " " + text(*st, 4), gefaltet = " " + text(*st, 5),
                          klang = " " + text(*st, 6);
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
    // What is shown of each hit.
    auto& business = c.cached(
        "SELECT b.[b-eintr-name], b.[gem-kz], b.[betr-ende], a.[b-strasse], a.[b-ort] FROM betrieb "
        "b LEFT JOIN "
        "betrieb_adresse a ON a.[betr-nr] = b.[betr-nr] AND a.[betr-hist-nr] = b.[betr-hist-nr] "
        "AND a.[b-adr-art] = '1' "
        "WHERE b.[betr-nr] = ?1 AND b.[betr-hist-nr] = ?2 LIMIT 1");
    auto& person = c.cached(
        "SELECT [fam-name], [vornamen], [p-eintr-name], [p-strasse], [p-ort] FROM person WHERE "
        "[pers-nr] = ?1");
    for (auto& h : hits) {
        business.reset();
        business.bind(1, Variant(h.betrNr));
        business.bind(2, Variant(h.betrHistNr));
        if (business.step()) {
            h.name = text(business, 0);
            h.gemKz = text(business, 1);
            h.abgemeldet = !text(business, 2).empty();
            h.strasse = text(business, 3);
            h.ort = text(business, 4);
        }
        business.reset();
        if (!h.person) continue;
        person.reset();
        person.bind(1, Variant(h.persNr));
        if (person.step()) {
            const std::string fam = text(person, 0), vor = text(person, 1), jp = text(person, 2);
            h.name = !fam.empty() ? fam + (vor.empty() ? "" : ", " + vor) : jp;
            h.strasse = text(person, 3);
            h.ort = text(person, 4);
        }
        person.reset();
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
