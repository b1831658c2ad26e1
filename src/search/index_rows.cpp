#include "search/index_rows.h"

#include <sqlite3.h>

#include <algorithm>
#include <exception>
#include <limits>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

#include "search/index_words.h"
#include "store/connection.h"

namespace tolma::search {
namespace {

using store::Variant;

constexpr const char* kBusinesses = "temp.tolma_such_betriebe";
constexpr const char* kPersons = "temp.tolma_such_personen";

// The rows of the store met by a list's numbers. Without statistics SQLite would rather read a
// whole table and look each row up in the short list; CROSS JOIN keeps the list outside.
std::string chosen(const char* list) {
    return std::string(" FROM ") + list + " c CROSS JOIN ";
}

bool isNull(store::Statement& st, int i) {
    return sqlite3_column_type(st.handle(), i) == SQLITE_NULL;
}

std::string_view textAt(store::Statement& st, int i) {
    const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(st.handle(), i));
    return p ? std::string_view(p, static_cast<size_t>(sqlite3_column_bytes(st.handle(), i)))
             : std::string_view();
}

// SQLite's trim(): blanks only.
std::string_view trimmed(std::string_view s) {
    const size_t b = s.find_first_not_of(' ');
    if (b == std::string_view::npos) return {};
    return s.substr(b, s.find_last_not_of(' ') - b + 1);
}

// The store joins a business state's rows by number and history number, both compared as
// NOCASE compares: ASCII letters without regard to case. Null joins nothing.
std::string stateKey(store::Statement& st, int nr, int hist) {
    std::string key;
    for (const int i : {nr, hist}) {
        for (const char ch : textAt(st, i))
            key += ch >= 'A' && ch <= 'Z' ? static_cast<char>(ch + 32) : ch;
        key += '\x1f';
    }
    return key;
}

void append(std::string& to, std::string_view text) {
    to += text;
    to += ' ';
}

// One row of the index, with the texts its words come from.
struct Row {
    bool person = false;
    std::string nr, hist, persNr, name, strasse, ort, gemKz;
    std::string names, others;  // names are also heard by sound
    std::string words;
};

// A business state: its own row and one for each person linked to it.
struct State {
    bool removed = false;
    long long firstAddress = std::numeric_limits<long long>::max();
    Row row;
    std::vector<Row> persons;
    int next = -1;  // the next state of the same key
};

class Reader {
  public:
    explicit Reader(store::Connection& c) : c_(c) {}

    std::vector<State> read() {
        readStates();
        readAddresses();
        readActivities();
        readPersons();
        return std::move(states_);
    }

  private:
    template <typename Each>
    void eachStateOf(store::Statement& st, int nr, int hist, Each&& each) {
        if (isNull(st, nr) || isNull(st, hist)) return;
        const auto it = byKey_.find(stateKey(st, nr, hist));
        if (it == byKey_.end()) return;
        for (int i = it->second; i >= 0; i = states_[static_cast<size_t>(i)].next)
            each(states_[static_cast<size_t>(i)]);
    }

    void readStates() {
        auto& st = c_.cached(
            std::string("SELECT b.[betr-nr], b.[betr-hist-nr], b.[b-eintr-name], b.[gem-kz], "
                        "b.[betr-ende]") +
            chosen(kBusinesses) +
            "betrieb b ON b.[betr-nr] = c.nr UNION ALL SELECT [betr-nr], [betr-hist-nr], "
            "[b-eintr-name], [gem-kz], [betr-ende] FROM betrieb WHERE [betr-nr] IS NULL AND "
            "EXISTS (SELECT 1 FROM " +
            kBusinesses + " WHERE nr = '')");
        while (st.step()) {
            State s;
            s.row.nr = textAt(st, 0);
            s.row.hist = textAt(st, 1);
            s.row.name = textAt(st, 2);
            s.row.gemKz = textAt(st, 3);
            s.removed = !trimmed(textAt(st, 4)).empty();
            append(s.row.names, s.row.name);
            // A state without number or history number meets no other row.
            if (!isNull(st, 0) && !isNull(st, 1)) {
                const auto [it, added] =
                    byKey_.try_emplace(stateKey(st, 0, 1), static_cast<int>(states_.size()));
                // Of states with one key, the first read leads the chain.
                if (!added) {
                    int last = it->second;
                    while (states_[static_cast<size_t>(last)].next >= 0)
                        last = states_[static_cast<size_t>(last)].next;
                    states_[static_cast<size_t>(last)].next = static_cast<int>(states_.size());
                }
            }
            states_.push_back(std::move(s));
        }
    }

    // The addresses' words, and the first address of kind 1 for the hit to show.
    void readAddresses() {
        auto& st = c_.cached(std::string("SELECT a.rowid, a.[betr-nr], a.[betr-hist-nr], "
                                         "a.[b-adr-art], a.[b-strasse], a.[b-ort], a.[b-plz]") +
                             chosen(kBusinesses) + "betrieb_adresse a ON a.[betr-nr] = c.nr");
        while (st.step()) {
            const long long rowid = sqlite3_column_int64(st.handle(), 0);
            const bool kind1 = !isNull(st, 3) && trimmed(textAt(st, 3)) == "1";
            eachStateOf(st, 1, 2, [&](State& s) {
                for (const int i : {4, 5, 6}) append(s.row.others, textAt(st, i));
                if (kind1 && rowid < s.firstAddress) {
                    s.firstAddress = rowid;
                    s.row.strasse = textAt(st, 4);
                    s.row.ort = textAt(st, 5);
                }
            });
        }
    }

    void readActivities() {
        auto& st =
            c_.cached(std::string("SELECT t.[betr-nr], t.[betr-hist-nr], t.[tk-originaltext]") +
                      chosen(kBusinesses) + "betrieb_taetigkeit t ON t.[betr-nr] = c.nr");
        while (st.step())
            eachStateOf(st, 0, 1, [&](State& s) { append(s.row.others, textAt(st, 2)); });
    }

    // A business is found by the names of its persons, a person by its business's name.
    void readPersons() {
        auto& st = c_.cached(
            std::string("SELECT z.[bez-betr-nr], z.[bez-betr-hist-nr], p.[pers-nr], p.[fam-name], "
                        "p.vornamen, p.[p-eintr-name], p.[p-strasse], p.[p-ort]") +
            chosen(kBusinesses) +
            "beziehung_betrieb_person z ON z.[bez-betr-nr] = c.nr CROSS JOIN person p ON "
            "p.[pers-nr] = z.[bez-pers-nr]");
        while (st.step()) {
            const std::string_view famName = textAt(st, 3), vornamen = textAt(st, 4),
                                   eintrName = textAt(st, 5);
            eachStateOf(st, 0, 1, [&](State& s) {
                for (const auto name : {famName, vornamen, eintrName}) append(s.row.names, name);
                Row p;
                p.person = true;
                p.nr = s.row.nr;
                p.hist = s.row.hist;
                p.persNr = textAt(st, 2);
                if (!famName.empty()) {
                    p.name = famName;
                    if (!vornamen.empty()) p.name += ", " + std::string(vornamen);
                } else {
                    p.name = eintrName;
                }
                p.strasse = textAt(st, 6);
                p.ort = textAt(st, 7);
                p.gemKz = s.row.gemKz;
                for (const auto name : {famName, vornamen, eintrName}) append(p.names, name);
                append(p.others, p.strasse);
                append(p.others, p.ort);
                append(p.others, s.row.name);
                s.persons.push_back(std::move(p));
            });
        }
    }

    store::Connection& c_;
    std::vector<State> states_;
    std::unordered_map<std::string, int> byKey_;
};

// The words of every row. They take as long as reading the rows from the store: half of the rows
// go to a second thread, since the words are worked out from the texts alone.
void workOutWords(std::vector<State>& states) {
    auto part = [&states](size_t from, size_t to) {
        RowWords words;
        auto of = [&](Row& row) {
            words.clear();
            words.add(row.names, true);
            words.add(row.others, false);
            row.words = words.text();
        };
        for (size_t i = from; i < to; ++i) {
            of(states[i].row);
            for (Row& p : states[i].persons) of(p);
        }
    };
    if (states.size() < 64) {
        part(0, states.size());
        return;
    }
    const size_t half = states.size() / 2;
    std::exception_ptr failed;
    std::thread other([&] {
        try {
            part(half, states.size());
        } catch (...) {
            failed = std::current_exception();
        }
    });
    try {
        part(0, half);
    } catch (...) {
        other.join();
        throw;
    }
    other.join();
    if (failed) std::rethrow_exception(failed);
}

// The first free row number for a current or a removed business.
long long nextRowNumber(store::Connection& c, bool removed) {
    auto& st = c.cached(std::string("SELECT max(zeile) FROM ") + kRowsTable +
                        " WHERE zeile >= ?1 AND zeile < ?2");
    st.bind(1, Variant(removed ? kRemoved : 0LL));
    st.bind(2, Variant(removed ? std::numeric_limits<long long>::max() : kRemoved));
    st.step();
    const long long last = isNull(st, 0) ? 0 : sqlite3_column_int64(st.handle(), 0);
    return std::max(last + 1, removed ? kRemoved : 1LL);
}

void bindText(store::Statement& st, int i, const std::string& text) {
    sqlite3_bind_text(st.handle(), i, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
}

// A list as a JSON array, for json_each(): one statement takes the whole list.
std::string jsonArray(const std::vector<std::string>& texts) {
    std::string json = "[";
    for (const auto& t : texts) {
        if (json.size() > 1) json += ',';
        json += '"';
        for (const char ch : t) {
            const auto u = static_cast<unsigned char>(ch);
            if (ch == '"' || ch == '\\') {
                json += '\\';
                json += ch;
            } else if (u < 0x20) {
                static const char hex[] = "0123456789abcdef";
                json += "\\u00";
                json += hex[u >> 4];
                json += hex[u & 15];
            } else {
                json += ch;
            }
        }
        json += '"';
    }
    return json + "]";
}

using Numbered = std::pair<long long, const Row*>;
using OldRow = std::pair<long long, std::string>;

}  // namespace

ChosenRows::ChosenRows(store::Connection& c) : c_(c) {
    for (const char* list : {kBusinesses, kPersons}) {
        c_.execute(std::string("CREATE TABLE IF NOT EXISTS ") + list +
                   " (nr TEXT COLLATE NOCASE PRIMARY KEY) WITHOUT ROWID");
        c_.execute(std::string("DELETE FROM ") + list);
    }
}

void ChosenRows::addBusinesses(const std::vector<std::string>& betrNrs) {
    auto& st = c_.cached(std::string("INSERT OR IGNORE INTO ") + kBusinesses +
                         " SELECT value FROM json_each(?1)");
    st.bind(1, Variant(jsonArray(betrNrs)));
    st.step();
}

void ChosenRows::addPersons(const std::vector<std::string>& persNrs) {
    auto& st = c_.cached(std::string("INSERT OR IGNORE INTO ") + kPersons +
                         " SELECT value FROM json_each(?1)");
    st.bind(1, Variant(jsonArray(persNrs)));
    st.step();
}

void ChosenRows::addPersonsOfBusinesses() {
    c_.execute(std::string("INSERT OR IGNORE INTO ") + kPersons + " SELECT z.[bez-pers-nr]" +
               chosen(kBusinesses) +
               "beziehung_betrieb_person z ON z.[bez-betr-nr] = c.nr WHERE z.[bez-pers-nr] IS "
               "NOT NULL");
}

void ChosenRows::addBusinessesOfPersons() {
    c_.cached(std::string("INSERT OR IGNORE INTO ") + kBusinesses + " SELECT z.[bez-betr-nr]" +
              chosen(kPersons) +
              "beziehung_betrieb_person z ON z.[bez-pers-nr] = c.nr WHERE z.[bez-betr-nr] IS "
              "NOT NULL")
        .step();
}

long ChosenRows::write(bool fresh) {
    std::vector<State> states = Reader(c_).read();
    workOutWords(states);

    // The rows that go, in the order of their numbers, and out of the rows table at once.
    std::vector<OldRow> old;
    if (!fresh) {
        auto& st = c_.cached(std::string("SELECT t.zeile, t.worte") + chosen(kBusinesses) +
                             kRowsTable + " t ON t.betr_nr = c.nr");
        while (st.step())
            old.emplace_back(sqlite3_column_int64(st.handle(), 0), std::string(textAt(st, 1)));
        std::sort(old.begin(), old.end());
    }
    long long next[2] = {nextRowNumber(c_, false), nextRowNumber(c_, true)};
    if (!old.empty())
        c_.cached(std::string("DELETE FROM ") + kRowsTable + " WHERE betr_nr IN (SELECT nr FROM " +
                  kBusinesses + ")")
            .step();

    // The full-text index takes its changes best in the order of the row numbers: a step back
    // makes it write out what it holds in memory. So the current rows go before the removed
    // ones, and of each kind the old rows before the new.
    const std::string rows = kRowsTable, words = kWordsTable;
    auto oldRow = old.begin();
    for (const bool removed : {false, true}) {
        // The index is told which words a row had when it goes. A statement of many rows
        // would cost the full-text index twice as much: it copies them first.
        auto& going = c_.cached("INSERT INTO " + words + " (" + words +
                                ", rowid, worte) VALUES ('delete', ?1, ?2)");
        for (; oldRow != old.end() && (oldRow->first >= kRemoved) == removed; ++oldRow) {
            going.reset();
            sqlite3_bind_int64(going.handle(), 1, oldRow->first);
            bindText(going, 2, oldRow->second);
            going.step();
        }
        long long& number = next[removed ? 1 : 0];
        std::vector<Numbered> coming;
        for (const State& s : states) {
            if (s.removed != removed) continue;
            coming.emplace_back(number++, &s.row);
            for (const Row& p : s.persons) coming.emplace_back(number++, &p);
        }
        auto& row = c_.cached("INSERT INTO " + rows +
                              " (zeile, art, betr_nr, hist, pers_nr, name, strasse, ort, gem_kz, "
                              "worte) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10)");
        for (const Numbered& n : coming) {
            const Row& r = *n.second;
            row.reset();
            sqlite3_bind_int64(row.handle(), 1, n.first);
            sqlite3_bind_text(row.handle(), 2, r.person ? "P" : "B", 1, SQLITE_STATIC);
            int i = 3;
            for (const std::string* text :
                 {&r.nr, &r.hist, &r.persNr, &r.name, &r.strasse, &r.ort, &r.gemKz, &r.words})
                bindText(row, i++, *text);
            row.step();
        }
        auto& index = c_.cached("INSERT INTO " + words + " (rowid, worte) VALUES (?1, ?2)");
        for (const Numbered& n : coming) {
            index.reset();
            sqlite3_bind_int64(index.handle(), 1, n.first);
            bindText(index, 2, n.second->words);
            index.step();
        }
    }
    return static_cast<long>(states.size());
}

}  // namespace tolma::search
