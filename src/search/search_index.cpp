#include "search/search_index.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <random>
#include <set>
#include <unordered_set>

#include "core/error_log.h"
#include "core/globals.h"
#include "model/codepage.h"
#include "search/index_reader.h"
#include "search/index_rows.h"
#include "search/index_words.h"
#include "search/phonetic.h"
#include "store/connection.h"
#include "store/dao_error.h"
#include "store/german_text.h"
#include "text/text.h"

namespace tolma::search {
namespace {

using store::Variant;

std::string text(store::Statement& st, int i) {
    return st.column(i).toString();
}

const std::string kRows = kRowsTable, kWords = kWordsTable;
const std::string kStand = kMarkTable;
// The words of an index row as the server's index takes them: each word a lexeme as it stands.
const std::string kServerWords = "array_to_tsvector(array_remove(string_to_array(worte, ' '), ''))";

// The words are split at blanks and are in lower case already, which the plain ASCII tokenizer
// does; every byte beyond ASCII is part of a word for it, as for wordsOf(), and so are the marks
// of folded spellings and sounds. The index keeps no positions: a query asks for single words.
void createIndex(store::Connection& c) {
    if (c.isServer()) {
        // The server keeps no second table of words: an index over the row's words, each one
        // a lexeme as the program wrote it, answers the questions by itself.
        c.createIfMissing(
            kRows,
            {"CREATE TABLE IF NOT EXISTS " + kRows +
                 " (zeile bigint PRIMARY KEY, art text, betr_nr text, hist text, pers_nr text, "
                 "name text, strasse text, ort text, gem_kz text, worte text)",
             "CREATE INDEX IF NOT EXISTS " + kRows + "_nr ON " + kRows + " (betr_nr)",
             "CREATE INDEX IF NOT EXISTS " + kRows + "_worte ON " + kRows + " USING gin (" +
                 kServerWords + ")"});
        return;
    }
    // On a connection that holds the index file (see indexConnection()).
    const std::string schema = store::Connection::kIndexSchema;
    c.execute("CREATE TABLE IF NOT EXISTS " + rowsTable(c) +
              " (zeile INTEGER PRIMARY KEY, art TEXT, betr_nr TEXT COLLATE NOCASE, hist TEXT, "
              "pers_nr TEXT, name TEXT, strasse TEXT, ort TEXT, gem_kz TEXT, worte TEXT)");
    c.execute("CREATE INDEX IF NOT EXISTS " + schema + "." + kRows + "_nr ON " + kRows +
              " (betr_nr)");
    const std::string marks{kFoldedMark, kSoundMark};
    c.execute("CREATE VIRTUAL TABLE IF NOT EXISTS " + wordsTable(c) +
              " USING fts5(art UNINDEXED, betr_nr UNINDEXED, hist UNINDEXED, pers_nr UNINDEXED, "
              "name UNINDEXED, strasse UNINDEXED, ort UNINDEXED, gem_kz UNINDEXED, worte, "
              "tokenize = 'ascii tokenchars ''" +
              marks + "''', content = '" + kRows +
              "', content_rowid = 'zeile', detail = none, columnsize = 0)");
}

bool tableExists(store::Connection& c, const std::string& name,
                 const std::string& schema = "main") {
    return c.hasTable(name, schema);
}

// The indexes of earlier forms, under names of their own: one that kept a copy of its rows, and
// one with a column for each form of the words. They go where no recordset of the program reads
// the store; otherwise they are emptied.
void dropEarlierIndex(store::Connection& c) {
    if (c.isServer()) return;  // the server never had one
    struct Form {
        std::string words, rows;
        bool external;  // the words' index reads its rows from the rows table
    };
    // The last one is this form's, in the store file itself before it had a file of its own.
    for (const Form& f :
         {Form{"tolma_suchindex", "tolma_suchindex_zeilen", false},
          Form{"tolma_suchworte", "tolma_suchzeilen", true}, Form{kWords, kRows, true}}) {
        if (!tableExists(c, f.words)) continue;
        try {
            c.execute("DROP TABLE main." + f.words);
            c.execute("DROP TABLE IF EXISTS main." + f.rows);
        } catch (const std::exception&) {
            if (f.external)
                c.execute("INSERT INTO main." + f.words + " (" + f.words +
                          ") VALUES ('delete-all')");
            else
                c.execute("DELETE FROM main." + f.words);
            if (tableExists(c, f.rows)) c.execute("DELETE FROM main." + f.rows);
        }
    }
}

// Runs `work` in a transaction of its own or, inside one, as a part of it that goes as a whole.
template <typename Work>
void inSavepoint(store::Connection& c, Work&& work) {
    // The server keeps a savepoint only inside a transaction.
    const bool own = c.isServer() && !c.inTransaction();
    if (own) c.execute("BEGIN");
    c.execute("SAVEPOINT tolma_suchindex");
    try {
        work();
        c.execute("RELEASE tolma_suchindex");
        if (own) c.execute("COMMIT");
    } catch (...) {
        // After a full disk SQLite may have rolled back the whole transaction itself; the
        // cause raised is the failure, never the savepoint that is gone with it.
        if (c.inTransaction()) {
            try {
                c.execute("ROLLBACK TO tolma_suchindex");
                c.execute("RELEASE tolma_suchindex");
            } catch (const std::exception&) {
                c.rollbackOpen();
            }
            if (own) c.rollbackOpen();
        }
        throw;
    }
}

// A question to the full-text index as the server asks it: "a"* AND ("b" OR "c") becomes
// 'a':* & ( 'b' | 'c' ), every word a lexeme as written.
std::string serverQuery(const std::string& fts) {
    std::string out;
    for (size_t i = 0; i < fts.size(); ++i) {
        const char ch = fts[i];
        if (ch == '"') {
            std::string word;
            for (++i; i < fts.size(); ++i) {
                if (fts[i] == '"' && i + 1 < fts.size() && fts[i + 1] == '"') {
                    word += '"';
                    ++i;
                } else if (fts[i] == '"') {
                    break;
                } else {
                    word += fts[i];
                }
            }
            out += "'";
            for (char w : word) out += w == '\'' ? "''" : w == '\\' ? "\\\\" : std::string(1, w);
            out += "'";
        } else if (ch == '*') {
            out += ":*";
        } else if (fts.compare(i, 5, " AND ") == 0) {
            out += " & ";
            i += 4;
        } else if (fts.compare(i, 4, " OR ") == 0) {
            out += " | ";
            i += 3;
        } else {
            out += ch;
        }
    }
    return out;
}

// An FTS5 string: the word in double quotes.
std::string phrase(const std::string& w) {
    std::string q = "\"";
    for (char c : w) q += c == '"' ? std::string("\"\"") : std::string(1, c);
    return q + "\"";
}

// The business numbers the build takes at a time, between two reports of its progress.
constexpr int kBuildPart = 2000;

}  // namespace

// On a server, row 0 holds no business: it marks an index that does not follow the store, which
// the next search builds anew. A store file and its index file cannot change in one step: the
// index follows while both hold the same token, the index file in its row -1 and the store in a
// table of its own. Taking the store's token marks the index as behind, in the transaction of
// the change; an emptied, copied or restored store file holds no token of its index.
void markBehind(store::Connection& c) {
    if (c.isServer())
        c.execute("INSERT INTO " + kRows + " (zeile) VALUES (0) ON CONFLICT DO NOTHING");
    else if (tableExists(c, kStand))
        c.execute("DELETE FROM main." + kStand);
}

namespace {

// The store's token, empty without one.
std::string storeToken(store::Connection& c) {
    if (!tableExists(c, kStand)) return {};
    auto st = c.prepare("SELECT kennung FROM main." + kStand);
    return st->step() ? text(*st, 0) : std::string();
}

}  // namespace

void markFollowing(store::Connection& c) {
    if (c.isServer()) {
        c.execute("DELETE FROM " + kRows + " WHERE zeile = 0");
        return;
    }
    const auto index = indexConnection(c, false);
    if (!index) return;
    // The index file first: a token the store holds alone is one the index lacks.
    std::random_device random;
    const std::string token =
        std::to_string(random()) + "-" + std::to_string(random()) + "-" +
        std::to_string(std::chrono::system_clock::now().time_since_epoch().count());
    index->execute("UPDATE " + rowsTable(*index) + " SET hist = ?1 WHERE zeile = -1",
                   {Variant(token)});
    inSavepoint(c, [&] {
        c.execute("CREATE TABLE IF NOT EXISTS main." + kStand + " (kennung TEXT)");
        c.execute("DELETE FROM main." + kStand);
        c.execute("INSERT INTO main." + kStand + " (kennung) VALUES (?1)", {Variant(token)});
    });
}

void prepareIndexTables(store::Connection& c) {
    createIndex(c);
}

void markStale(store::Connection& c) {
    if (hasIndex(c)) markBehind(c);
}

namespace {

// The connection that reads the index file of the store last searched, with the file it
// holds: one put in its place (emptying, a backup) is opened anew. Every statement on it runs
// to its end, so that each one sees what the writers have committed.
struct IndexReader {
    std::mutex mutex;
    std::string path;
    dev_t device = 0;
    ino_t inode = 0;
    std::shared_ptr<store::Connection> connection;
};

IndexReader& indexReader() {
    static IndexReader reader;
    return reader;
}

std::shared_ptr<store::Connection> readingConnection(store::Connection& c) {
    const std::string path = store::Connection::indexFileOf(c.file()).string();
    struct stat st {};
    IndexReader& r = indexReader();
    std::lock_guard lock(r.mutex);
    if (::stat(path.c_str(), &st) != 0) {
        r.connection.reset();
        return nullptr;
    }
    if (!r.connection || r.path != path || r.device != st.st_dev || r.inode != st.st_ino) {
        r.connection.reset();
        r.connection = store::Connection::openIndexReader(c.file());
        r.path = path;
        r.device = st.st_dev;
        r.inode = st.st_ino;
    }
    return r.connection;
}

// The connection that reads the index where the store keeps one, else none.
std::shared_ptr<store::Connection> keptIndex(store::Connection& c) {
    if (c.isServer()) return tableExists(c, kRows) ? c.shared_from_this() : nullptr;
    auto index = readingConnection(c);
    if (!index || !tableExists(*index, kWords, store::Connection::kIndexSchema)) return nullptr;
    return index;
}

}  // namespace

bool indexKept(store::Connection& c) {
    return keptIndex(c) != nullptr;
}

// Row -1 names the form of the words an index holds: an index of an earlier form (one without
// the numbers, say) does not follow the store either.
const char* const kWordsForm = "Worte 2";

bool hasIndex(store::Connection& c) {
    const std::string token = c.isServer() ? std::string() : storeToken(c);
    if (!c.isServer() && token.empty()) return false;
    const auto index = keptIndex(c);
    if (!index) return false;
    const std::string rows = rowsTable(*index);
    auto st = index->prepare(
        "SELECT EXISTS (SELECT 1 FROM " + rows + " WHERE zeile = 0), EXISTS (SELECT 1 FROM " +
        rows + " WHERE zeile = -1 AND art = ?1" + (c.isServer() ? ")" : " AND hist = ?2)"));
    st->bind(1, Variant(std::string(kWordsForm)));
    if (!c.isServer()) st->bind(2, Variant(token));
    st->step();
    return st->column(0).toInteger() == 0 && st->column(1).toInteger() == 1;
}

// The server gathers the new words of its index in a list that each query reads from end to
// end; after a build they go into the index itself, and the planner learns the table anew. Only
// the owner of the index may do the first: for another login the list is left to the server.
void tidyServerIndex(store::Connection& c) {
    c.execute("ANALYZE " + kRows);
    c.execute("SAVEPOINT tolma_suchindex_ordnen");
    try {
        c.execute("SELECT gin_clean_pending_list(?1::regclass)", {Variant(kRows + "_worte")});
    } catch (const std::exception&) {
        c.execute("ROLLBACK TO tolma_suchindex_ordnen");
    }
    c.execute("RELEASE tolma_suchindex_ordnen");
}

namespace {

// The rows of the whole index anew, on a connection that holds it.
void fillIndex(store::Connection& c, const std::function<void(long, long)>& progress) {
    createIndex(c);
    {
        const std::string rows = rowsTable(c), words = wordsTable(c);
        // Emptied rather than dropped: a table cannot go while the program's recordsets read.
        // What the index held goes from the file, not only from its tables: after a deletion
        // it would otherwise keep names and addresses of what was deleted.
        const std::string secure =
            std::string("PRAGMA ") + store::Connection::kIndexSchema + ".secure_delete = ";
        if (!c.isServer()) c.execute(secure + "ON");
        c.execute("DELETE FROM " + rows);
        if (!c.isServer())
            c.execute("INSERT INTO " + words + " (" + kWords + ") VALUES ('delete-all')");
        if (!c.isServer()) c.execute(secure + "OFF");
        c.execute("INSERT INTO " + rows + " (zeile, art) VALUES (-1, ?1)",
                  {Variant(std::string(kWordsForm))});
        auto count = c.prepare("SELECT count(*) FROM betrieb");
        count->step();
        const long total = static_cast<long>(count->column(0).toInteger());
        count.reset();
        if (progress) progress(0, total);
        long done = 0;
        // The businesses without a number first, then by their numbers, a part at a time.
        auto unnumbered =
            c.prepare("SELECT 1 FROM betrieb WHERE [betr-nr] IS NULL OR [betr-nr] = ''");
        if (unnumbered->step()) done += writeRows(c, {""}, true);
        unnumbered.reset();
        auto numbers =
            c.prepare("SELECT DISTINCT [betr-nr] FROM betrieb WHERE [betr-nr] > ?1 ORDER BY " +
                      c.orderTerm("betrieb", "betr-nr", false, false) + " LIMIT ?2");
        for (std::string last;;) {
            numbers->reset();
            numbers->bind(1, Variant(last));
            numbers->bind(2, Variant(kBuildPart));
            std::vector<std::string> part;
            while (numbers->step()) part.push_back(text(*numbers, 0));
            if (part.empty()) break;
            last = part.back();
            done += writeRows(c, part, true);
            if (progress) progress(std::min(done, total), total);
        }
        if (c.isServer()) tidyServerIndex(c);
        if (progress) progress(total, total);
    }
}

}  // namespace

std::shared_ptr<store::Connection> indexConnection(store::Connection& c, bool create) {
    if (c.isServer()) return c.shared_from_this();
    // A store held by one connection alone keeps its index on that one.
    auto index = c.exclusive() ? c.shared_from_this() : store::Connection::openBeside(c.file());
    if (!index->holdIndexFile(create)) return nullptr;
    return index;
}

void buildIndex(store::Connection& c, const std::function<void(long, long)>& progress) {
    if (c.isServer()) {
        inSavepoint(c, [&] {
            fillIndex(c, progress);
            markFollowing(c);
        });
        return;
    }
    // The store first forgets its token; the index file is filled on a connection of its own,
    // and the store takes the token only once the index file holds it.
    inSavepoint(c, [&] {
        dropEarlierIndex(c);
        markBehind(c);
    });
    const auto index = indexConnection(c, true);
    inSavepoint(*index, [&] { fillIndex(*index, progress); });
    // The log of the index file goes too: its earlier pages hold what the index held before.
    if (!index->inTransaction())
        index->execute(std::string("PRAGMA ") + store::Connection::kIndexSchema +
                       ".wal_checkpoint(TRUNCATE)");
    // The building connection does not stay as the reader: it holds the store's file too, and
    // a connection kept open on the store keeps the store's log beside it when the store is
    // compacted and replaced.
    markFollowing(c);
}

std::vector<RowsToWrite> readRefresh(store::Connection& c, const std::vector<std::string>& betrNrs,
                                     const std::vector<std::string>& persNrs, Persons persons,
                                     const NewBusinesses* added) {
    std::vector<RowsToWrite> parts;
    if (persons == Persons::OfTheBusinesses) {
        std::vector<std::string> businesses = betrNrs;
        const auto sharing = businessesOfPersons(c, personsOfBusinesses(c, betrNrs));
        businesses.insert(businesses.end(), sharing.begin(), sharing.end());
        parts.push_back(readRows(c, businesses, false, added));
        return parts;
    }
    // A person whose rows all came again unchanged shows no other business anything new;
    // the businesses sharing the other persons follow. Their rows are apart from the first
    // ones, so that both may be read before either is written.
    std::unordered_set<std::string> unchanged, done;
    parts.push_back(readRows(c, betrNrs, false, added, &unchanged));
    std::vector<std::string> changed;
    for (const auto& nr : persNrs)
        if (!unchanged.count(numberKey(nr))) changed.push_back(nr);
    for (const auto& nr : betrNrs) done.insert(numberKey(nr));
    if (added)
        for (const auto& nr : added->numbers) done.insert(numberKey(nr));
    std::vector<std::string> sharing;
    for (auto& nr : businessesOfPersons(c, changed))
        if (!done.count(numberKey(nr))) sharing.push_back(std::move(nr));
    if (!sharing.empty()) parts.push_back(readRows(c, sharing, false));
    return parts;
}

namespace {

// A word of the query in the forms the index holds.
struct Forms {
    std::string written, folded;
    bool foldedAsWritten;  // a folded spelling that is also found among the written words
};

// Two questions to the index: every word as written (`exact`), then every word in any of the
// three ways (`any`); the last word also as a beginning.
std::vector<Forms> formsOf(const std::vector<std::string>& words, std::string& exact,
                           std::string& any) {
    std::vector<Forms> forms;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string star = i + 1 == words.size() ? "*" : "";
        Forms f{text::lower(words[i]), fold(words[i]), false};
        // A row keeps a folded spelling apart only where it differs from the word as written;
        // a written word that folds to itself stands for its folded spelling too.
        f.foldedAsWritten = fold(f.folded) == f.folded;
        const std::string asWritten = phrase(f.written) + star;
        std::string term = asWritten + " OR " + phrase(kFoldedMark + f.folded) + star;
        if (f.foldedAsWritten && f.folded != f.written) term += " OR " + phrase(f.folded) + star;
        if (const std::string code = koelnerPhonetik(words[i]); !code.empty())
            term += " OR " + phrase(kSoundMark + code);
        exact += (i ? " AND " : "") + asWritten;
        any += (i ? " AND (" : "(") + term + ")";
        forms.push_back(std::move(f));
    }
    return forms;
}

// The row the statement stands on as a hit, scored by how each word matched it: as written,
// folded, or by sound only.
Hit hitOf(store::Statement& st, long long rowid, const std::vector<Forms>& forms) {
    Hit h;
    h.person = text(st, 1) == "P";
    h.betrNr = text(st, 2);
    h.betrHistNr = text(st, 3);
    h.persNr = text(st, 4);
    h.name = text(st, 5);
    h.strasse = text(st, 6);
    h.ort = text(st, 7);
    h.gemKz = text(st, 8);
    h.abgemeldet = rowid >= kRemoved;
    const std::string worte = " " + text(st, 9);
    for (size_t i = 0; i < forms.size(); ++i) {
        const bool last = i + 1 == forms.size();
        auto has = [&](const std::string& w) {
            return worte.find(" " + w + (last ? "" : " ")) != std::string::npos;
        };
        const Forms& f = forms[i];
        if (has(f.written))
            h.score += 3;
        else if (has(kFoldedMark + f.folded) || (f.foldedAsWritten && has(f.folded)))
            h.score += 2;
        else
            h.score += 1;
    }
    return h;
}

}  // namespace

std::vector<Hit> find(store::Connection& data, const std::string& query, Kind kind, int limit) {
    // A stray byte of a broken text is no word: as a beginning it would find every word that
    // starts with an umlaut.
    const std::vector<std::string> words = wordsOf(model::blankInvalidUtf8(query));
    // A search only reads: without an index it finds nothing, and building one is a step of
    // its own, with progress, that the window, the command line or the import takes.
    if (words.empty()) return {};
    const auto index = keptIndex(data);
    if (!index) return {};
    store::Connection& c = *index;
    // Of many hits each question answers only its first rows, the current businesses first;
    // asking for the written words on their own keeps those hits among them however many others
    // agree by spelling or sound.
    std::string exact, any;
    const std::vector<Forms> forms = formsOf(words, exact, any);
    std::string sql =
        c.isServer()
            ? "SELECT zeile, art, betr_nr, hist, pers_nr, name, strasse, ort, gem_kz, worte FROM " +
                  kRows + " WHERE " + kServerWords + " @@ ?1::tsquery AND zeile > 0"
            : "SELECT rowid, art, betr_nr, hist, pers_nr, name, strasse, ort, gem_kz, worte FROM " +
                  wordsTable(c) + " WHERE " + kWords + " MATCH ?1";
    if (kind == Kind::Businesses) sql += " AND art = 'B'";
    if (kind == Kind::Persons) sql += " AND art = 'P'";
    // The first rows by their numbers, as the full-text index gives them.
    auto st = c.prepare(sql + (c.isServer() ? " ORDER BY zeile" : "") + " LIMIT 2000");
    std::vector<Hit> hits;
    std::set<long long> seen;
    for (const std::string* match : {&exact, &any}) {
        // Rows with every word as written rank highest, and the second question finds no more
        // of them: when they fill the list, it is not asked.
        if (match == &any && limit > 0 && static_cast<int>(hits.size()) >= limit) break;
        st->reset();
        st->bind(1, Variant(c.isServer() ? serverQuery(*match) : *match));
        while (st->step()) {
            const long long rowid = st->column(0).toInteger();
            if (seen.insert(rowid).second) hits.push_back(hitOf(*st, rowid, forms));
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

std::string followChange(core::Globals& g) {
    try {
        store::Connection& c = *g.stores.db_daten.connection();
        if (indexKept(c)) buildIndex(c);
        return {};
    } catch (const std::exception& e) {
        core::logTrapped(g, "Suchindex", e);
        return "Der Suchindex wird bei der nächsten Suche neu aufgebaut.";
    }
}

}  // namespace tolma::search
