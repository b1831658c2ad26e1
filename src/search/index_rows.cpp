#include "search/index_rows.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <exception>
#include <limits>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "search/index_words.h"
#include "store/connection.h"

namespace tolma::search {
namespace {

using store::Variant;

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

// The store joins a business state's rows by number and history number as NOCASE compares them:
// ASCII letters without regard to case. Null joins nothing.
bool sameNumber(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        const char x = a[i] >= 'A' && a[i] <= 'Z' ? static_cast<char>(a[i] + 32) : a[i];
        const char y = b[i] >= 'A' && b[i] <= 'Z' ? static_cast<char>(b[i] + 32) : b[i];
        if (x != y) return false;
    }
    return true;
}

std::uint64_t keyHash(std::string_view nr, std::string_view hist) {
    std::uint64_t h = 14695981039346656037ull;
    for (const std::string_view part : {nr, hist}) {
        for (char ch : part) {
            if (ch >= 'A' && ch <= 'Z') ch = static_cast<char>(ch + 32);
            h = (h ^ static_cast<unsigned char>(ch)) * 1099511628211ull;
        }
        h = (h ^ 0x1f) * 1099511628211ull;
    }
    return h;
}

void append(std::string& to, std::string_view text) {
    to += text;
    to += ' ';
}

// The rows of the store met by a list's numbers (a JSON array). Without statistics SQLite would
// rather read a whole table and look each row up in the list; CROSS JOIN keeps the list outside.
std::string byList(const std::string& table, const std::string& column) {
    return " FROM json_each(?1) c CROSS JOIN " + table + " ON " + column + " = c.value";
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

// One row of the index, with the texts its words come from.
struct Row {
    bool person = false;
    std::string nr, hist, persNr, name, strasse, ort, gemKz;
    std::string names;   // the words heard also by sound
    std::string others;  // of a business: its addresses and activities
    std::string words;
    bool kept = false;  // the index holds the row as it is
};

// A business state: its own row and one for each person linked to it.
struct State {
    bool removed = false;
    bool added = false;  // new to the store: the index holds no rows of it
    long long firstAddress = std::numeric_limits<long long>::max();
    Row row;
    std::vector<Row> persons;
    int next = -1;  // the next state of the same key's hash
};

struct Person {
    std::string persNr, famName, vornamen, eintrName, strasse, ort;
};
struct PersonView {
    std::string_view persNr, famName, vornamen, eintrName, strasse, ort;
    PersonView(std::string_view nr, std::string_view fam, std::string_view vor,
               std::string_view eintr, std::string_view str, std::string_view o)
        : persNr(nr), famName(fam), vornamen(vor), eintrName(eintr), strasse(str), ort(o) {}
    explicit PersonView(const Person& p)
        : PersonView(p.persNr, p.famName, p.vornamen, p.eintrName, p.strasse, p.ort) {}
};

// Reads the business states of the numbers in a list, and of new businesses, with what their
// rows need from the other tables. The states of a key and the rows that join them are met as
// the store meets them.
class Reader {
  public:
    Reader(store::Connection& c, const std::string& listed, const NewBusinesses* added,
           const std::unordered_set<std::string>& addedKeys)
        : c_(c), listed_(listed), added_(added), addedKeys_(addedKeys) {}

    std::vector<State> read() {
        readStates();
        readAddresses();
        readActivities();
        readPersons();
        return std::move(states_);
    }

  private:
    // The listed rows of a table, then those of the new businesses among the rows the block
    // wrote; `each` takes a row of either statement, whose columns are the same.
    template <typename Each>
    void eachRow(const std::string& columns, const std::string& table, const std::string& key,
                 StoreTable written, int keyColumn, Each&& each) {
        auto& listed = c_.cached("SELECT " + columns + byList(table + " t", "t." + key));
        listed.bind(1, Variant(listed_));
        while (listed.step()) each(listed);
        if (!added_) return;
        auto& fresh = c_.cached("SELECT " + columns + " FROM " + table + " t WHERE t.rowid >= ?1");
        fresh.bind(1, Variant(added_->from[written]));
        freshPass_ = true;
        while (fresh.step())
            if (!isNull(fresh, keyColumn) && isAdded(textAt(fresh, keyColumn))) each(fresh);
        freshPass_ = false;
    }

    bool isAdded(std::string_view nr) {
        scratch_.assign(nr);
        for (char& ch : scratch_)
            if (ch >= 'A' && ch <= 'Z') ch = static_cast<char>(ch + 32);
        return addedKeys_.count(scratch_) > 0;
    }

    // The states of a key: those in the chain of its hash that have the key.
    template <typename Each>
    void eachStateOf(std::string_view nr, std::string_view hist, Each&& each) {
        const auto it = byKey_.find(keyHash(nr, hist));
        if (it == byKey_.end()) return;
        for (int i = it->second; i >= 0; i = states_[static_cast<size_t>(i)].next) {
            State& s = states_[static_cast<size_t>(i)];
            if (sameNumber(s.row.nr, nr) && sameNumber(s.row.hist, hist)) each(s);
        }
    }
    template <typename Each>
    void eachStateOf(store::Statement& st, int nr, int hist, Each&& each) {
        if (!isNull(st, nr) && !isNull(st, hist))
            eachStateOf(textAt(st, nr), textAt(st, hist), std::forward<Each>(each));
    }

    void readStates() {
        const std::string columns =
            "t.[betr-nr], t.[betr-hist-nr], t.[b-eintr-name], t.[gem-kz], t.[betr-ende]";
        // The businesses without a number go with the empty one.
        auto& unnumbered =
            c_.cached("SELECT " + columns +
                      " FROM betrieb t WHERE t.[betr-nr] IS NULL AND EXISTS (SELECT 1 FROM "
                      "json_each(?1) WHERE value = '')");
        unnumbered.bind(1, Variant(listed_));
        while (unnumbered.step()) addState(unnumbered);
        eachRow(columns, "betrieb", "[betr-nr]", kBetrieb, 0,
                [&](store::Statement& st) { addState(st); });
    }

    void addState(store::Statement& st) {
        State s;
        s.added = freshPass_;
        s.row.nr = textAt(st, 0);
        s.row.hist = textAt(st, 1);
        s.row.name = textAt(st, 2);
        s.row.gemKz = textAt(st, 3);
        s.removed = !trimmed(textAt(st, 4)).empty();
        append(s.row.names, s.row.name);
        // A state without number or history number meets no other row.
        if (!isNull(st, 0) && !isNull(st, 1)) {
            const auto [it, added] = byKey_.try_emplace(keyHash(textAt(st, 0), textAt(st, 1)),
                                                        static_cast<int>(states_.size()));
            if (!added) {  // of states with one hash, the first read leads the chain
                int last = it->second;
                while (states_[static_cast<size_t>(last)].next >= 0)
                    last = states_[static_cast<size_t>(last)].next;
                states_[static_cast<size_t>(last)].next = static_cast<int>(states_.size());
            }
        }
        states_.push_back(std::move(s));
    }

    // The addresses' words, and the first address of kind 1 for the hit to show.
    void readAddresses() {
        eachRow(
            "t.rowid, t.[betr-nr], t.[betr-hist-nr], t.[b-adr-art], t.[b-strasse], "
            "t.[b-ort], t.[b-plz]",
            "betrieb_adresse", "[betr-nr]", kAdresse, 1, [&](store::Statement& st) {
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
            });
    }

    void readActivities() {
        eachRow("t.[betr-nr], t.[betr-hist-nr], t.[tk-originaltext]", "betrieb_taetigkeit",
                "[betr-nr]", kTaetigkeit, 0, [&](store::Statement& st) {
                    eachStateOf(st, 0, 1, [&](State& s) { append(s.row.others, textAt(st, 2)); });
                });
    }

    // A business is found by the names of its persons, a person by its business's name.
    void readPersons() {
        auto& listed = c_.cached(
            "SELECT t.[bez-betr-nr], t.[bez-betr-hist-nr], p.[pers-nr], p.[fam-name], "
            "p.vornamen, p.[p-eintr-name], p.[p-strasse], p.[p-ort]" +
            byList("beziehung_betrieb_person t", "t.[bez-betr-nr]") +
            " CROSS JOIN person p ON p.[pers-nr] = t.[bez-pers-nr]");
        listed.bind(1, Variant(listed_));
        while (listed.step()) {
            const PersonView p{textAt(listed, 2), textAt(listed, 3), textAt(listed, 4),
                               textAt(listed, 5), textAt(listed, 6), textAt(listed, 7)};
            eachStateOf(listed, 0, 1, [&](State& s) { addPerson(s, p); });
        }
        if (added_) readNewPersons();
    }

    // The links the block wrote for new businesses, and their persons: those the store did not
    // hold before from the rows the block wrote, the others by their numbers.
    void readNewPersons() {
        struct Link {
            std::string nr, hist, person;
        };
        std::vector<Link> links;
        std::unordered_map<std::string, std::vector<Person>> persons;
        std::vector<std::string> held;
        std::unordered_set<std::string> fresh;
        auto& linked = c_.cached(
            "SELECT [bez-betr-nr], [bez-betr-hist-nr], [bez-pers-nr] FROM "
            "beziehung_betrieb_person WHERE rowid >= ?1");
        linked.bind(1, Variant(added_->from[kBeziehung]));
        while (linked.step()) {
            if (isNull(linked, 0) || isNull(linked, 1) || isNull(linked, 2) ||
                !isAdded(textAt(linked, 0)))
                continue;
            Link link{std::string(textAt(linked, 0)), std::string(textAt(linked, 1)),
                      numberKey(textAt(linked, 2))};
            if (!persons.count(link.person)) {
                persons[link.person];
                if (added_->personHeld(textAt(linked, 2)))
                    held.emplace_back(textAt(linked, 2));
                else
                    fresh.insert(link.person);
            }
            links.push_back(std::move(link));
        }
        auto take = [&](store::Statement& st) {
            persons[numberKey(textAt(st, 0))].push_back(
                {std::string(textAt(st, 0)), std::string(textAt(st, 1)), std::string(textAt(st, 2)),
                 std::string(textAt(st, 3)), std::string(textAt(st, 4)),
                 std::string(textAt(st, 5))});
        };
        const std::string columns =
            "p.[pers-nr], p.[fam-name], p.vornamen, p.[p-eintr-name], p.[p-strasse], p.[p-ort]";
        if (!fresh.empty()) {
            auto& st = c_.cached("SELECT " + columns + " FROM person p WHERE p.rowid >= ?1");
            st.bind(1, Variant(added_->from[kPerson]));
            while (st.step())
                if (!isNull(st, 0) && fresh.count(numberKey(textAt(st, 0)))) take(st);
        }
        if (!held.empty()) {
            auto& st = c_.cached("SELECT " + columns + byList("person p", "p.[pers-nr]"));
            st.bind(1, Variant(jsonArray(held)));
            while (st.step()) take(st);
        }
        for (const Link& link : links)
            for (const Person& p : persons[link.person])
                eachStateOf(link.nr, link.hist, [&](State& s) { addPerson(s, PersonView(p)); });
    }

    void addPerson(State& s, const PersonView& person) {
        for (const std::string_view name : {person.famName, person.vornamen, person.eintrName})
            append(s.row.names, name);
        Row p;
        p.person = true;
        p.nr = s.row.nr;
        p.hist = s.row.hist;
        p.persNr = person.persNr;
        if (person.famName.empty()) {
            p.name = person.eintrName;
        } else {
            p.name = person.famName;
            if (!person.vornamen.empty()) {
                p.name += ", ";
                p.name += person.vornamen;
            }
        }
        p.strasse = person.strasse;
        p.ort = person.ort;
        p.gemKz = s.row.gemKz;
        for (const std::string_view name : {person.famName, person.vornamen, person.eintrName})
            append(p.names, name);
        s.persons.push_back(std::move(p));
    }

    store::Connection& c_;
    const std::string& listed_;
    const NewBusinesses* added_;
    const std::unordered_set<std::string>& addedKeys_;
    std::vector<State> states_;
    std::unordered_map<std::uint64_t, int> byKey_;  // the first state of a key's hash
    std::string scratch_;
    bool freshPass_ = false;
};

// The words of every row. They take as long as reading the rows from the store: half of the rows
// go to a second thread, since the words are worked out from the texts alone.
void workOutWords(std::vector<State>& states) {
    auto part = [&states](size_t from, size_t to) {
        RowWords words;
        for (size_t i = from; i < to; ++i) {
            Row& business = states[i].row;
            words.clear();
            words.add(business.names, true);
            words.add(business.others, false);
            business.words = words.text();
            // A person's row: the names, the person's address and the business's name.
            for (Row& p : states[i].persons) {
                words.clear();
                words.add(p.names, true);
                for (const std::string* text : {&p.strasse, &p.ort, &business.name})
                    words.add(*text, false);
                p.words = words.text();
            }
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

using Numbered = std::pair<long long, const Row*>;

// A row's content as the rows table holds it: its kind, whether its business is removed, its
// texts.
using Content = std::array<std::string_view, 10>;

Content contentOf(const Row& row, bool removed) {
    return {row.person ? "P" : "B",
            removed ? "1" : "0",
            row.nr,
            row.hist,
            row.persNr,
            row.name,
            row.strasse,
            row.ort,
            row.gemKz,
            row.words};
}

std::uint64_t hashOf(const Content& content) {
    std::uint64_t h = 0;
    for (const std::string_view text : content)
        h = (h ^ std::hash<std::string_view>{}(text)) * 1099511628211ull;
    return h;
}

// The new rows by their content, to be met by the old rows of the same content.
class Unchanged {
  public:
    explicit Unchanged(std::vector<State>& states) {
        for (State& s : states) {
            if (s.added) continue;
            add(s.row, s.removed);
            for (Row& p : s.persons) add(p, s.removed);
        }
    }
    // Whether a new row has this content; that row is then kept as it is.
    bool meets(const Content& content) {
        const auto [from, to] = rows_.equal_range(hashOf(content));
        for (auto it = from; it != to; ++it)
            if (contentOf(*it->second.first, it->second.second) == content) {
                it->second.first->kept = true;
                rows_.erase(it);
                return true;
            }
        return false;
    }

  private:
    void add(Row& row, bool removed) {
        rows_.emplace(hashOf(contentOf(row, removed)), std::make_pair(&row, removed));
    }
    std::unordered_multimap<std::uint64_t, std::pair<Row*, bool>> rows_;
};

// A row that goes: its number, and its words, which the full-text index must be told.
using OldRow = std::pair<long long, std::string>;

}  // namespace

std::string numberKey(std::string_view nr) {
    std::string key(nr);
    for (char& ch : key)
        if (ch >= 'A' && ch <= 'Z') ch = static_cast<char>(ch + 32);
    return key;
}

std::vector<std::string> businessesOfPersons(store::Connection& c,
                                             const std::vector<std::string>& persNrs) {
    std::vector<std::string> numbers;
    if (persNrs.empty()) return numbers;
    auto& st = c.cached("SELECT DISTINCT t.[bez-betr-nr]" +
                        byList("beziehung_betrieb_person t", "t.[bez-pers-nr]") +
                        " WHERE t.[bez-betr-nr] IS NOT NULL");
    st.bind(1, Variant(jsonArray(persNrs)));
    while (st.step()) numbers.emplace_back(textAt(st, 0));
    return numbers;
}

std::vector<std::string> personsOfBusinesses(store::Connection& c,
                                             const std::vector<std::string>& betrNrs) {
    std::vector<std::string> numbers;
    if (betrNrs.empty()) return numbers;
    auto& st = c.cached("SELECT DISTINCT t.[bez-pers-nr]" +
                        byList("beziehung_betrieb_person t", "t.[bez-betr-nr]") +
                        " WHERE t.[bez-pers-nr] IS NOT NULL");
    st.bind(1, Variant(jsonArray(betrNrs)));
    while (st.step()) numbers.emplace_back(textAt(st, 0));
    return numbers;
}

long writeRows(store::Connection& c, const std::vector<std::string>& betrNrs, bool fresh,
               const NewBusinesses* added) {
    // Each business once, as the store tells numbers apart; a new one is not looked up.
    std::unordered_set<std::string> addedKeys, seen;
    if (added)
        for (const auto& nr : added->numbers) addedKeys.insert(numberKey(nr));
    std::vector<std::string> listed;
    for (const auto& nr : betrNrs) {
        const std::string key = numberKey(nr);
        if (!addedKeys.count(key) && seen.insert(key).second) listed.push_back(nr);
    }
    const std::string list = jsonArray(listed);
    std::vector<State> states = Reader(c, list, added, addedKeys).read();
    workOutWords(states);

    // The rows as they stand. A business that comes again unchanged, as most of a delivery
    // that repeats the store does, keeps its rows: only the rows that differ go and come.
    std::vector<OldRow> old;
    if (!fresh && !listed.empty()) {
        Unchanged unchanged(states);
        auto& st = c.cached(
            "SELECT t.zeile, t.art, t.betr_nr, t.hist, t.pers_nr, t.name, "
            "t.strasse, t.ort, t.gem_kz, t.worte" +
            byList(std::string(kRowsTable) + " t", "t.betr_nr"));
        st.bind(1, Variant(list));
        while (st.step()) {
            const long long zeile = sqlite3_column_int64(st.handle(), 0);
            Content content;
            content[1] = zeile >= kRemoved ? "1" : "0";
            content[0] = textAt(st, 1);
            for (int i = 2; i < 10; ++i) content[static_cast<size_t>(i)] = textAt(st, i);
            if (!unchanged.meets(content)) old.emplace_back(zeile, content[9]);
        }
        std::sort(old.begin(), old.end());
    }

    // The full-text index takes its changes best in the order of the row numbers: a step back
    // makes it write out what it holds in memory. So the current rows go before the removed
    // ones, and of each kind the old rows before the new.
    const std::string rows = kRowsTable, words = kWordsTable;
    long long next[2] = {nextRowNumber(c, false), nextRowNumber(c, true)};
    auto oldRow = old.begin();
    for (const bool removed : {false, true}) {
        // The index is told which words a row had when it goes.
        auto& going = c.cached("INSERT INTO " + words + " (" + words +
                               ", rowid, worte) VALUES ('delete', ?1, ?2)");
        auto& gone = c.cached("DELETE FROM " + rows + " WHERE zeile = ?1");
        for (; oldRow != old.end() && (oldRow->first >= kRemoved) == removed; ++oldRow) {
            going.reset();
            sqlite3_bind_int64(going.handle(), 1, oldRow->first);
            bindText(going, 2, oldRow->second);
            going.step();
            gone.reset();
            sqlite3_bind_int64(gone.handle(), 1, oldRow->first);
            gone.step();
        }
        long long& number = next[removed ? 1 : 0];
        std::vector<Numbered> coming;
        for (const State& s : states) {
            if (s.removed != removed) continue;
            if (!s.row.kept) coming.emplace_back(number++, &s.row);
            for (const Row& p : s.persons)
                if (!p.kept) coming.emplace_back(number++, &p);
        }
        auto& row = c.cached("INSERT INTO " + rows +
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
        auto& index = c.cached("INSERT INTO " + words + " (rowid, worte) VALUES (?1, ?2)");
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
