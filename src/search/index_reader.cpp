#include "search/index_reader.h"

#include <cstdint>
#include <unordered_map>

#include "model/relations.h"
#include "store/connection.h"
#include "text/text.h"

namespace tolma::search {
namespace {

using store::Variant;

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
                 int keyColumn, Each&& each) {
        auto& listed = c_.cached("SELECT " + columns + byList(table + " t", "t." + key));
        listed.bind(1, Variant(listed_));
        while (listed.step()) each(listed);
        if (!added_) return;
        auto& fresh = c_.cached("SELECT " + columns + " FROM " + table + " t WHERE t.rowid >= ?1");
        fresh.bind(1, Variant(added_->from[model::relationIndex(table)]));
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
            "t.[betr-nr], t.[betr-hist-nr], t.[b-eintr-name], t.[gem-kz], t.[betr-ende], "
            "t.[b-reg-schl], t.[b-eintr-nr]";
        // The businesses without a number go with the empty one.
        auto& unnumbered =
            c_.cached("SELECT " + columns +
                      " FROM betrieb t WHERE t.[betr-nr] IS NULL AND EXISTS (SELECT 1 FROM "
                      "json_each(?1) WHERE value = '')");
        unnumbered.bind(1, Variant(listed_));
        while (unnumbered.step()) addState(unnumbered);
        eachRow(columns, "betrieb", "[betr-nr]", 0, [&](store::Statement& st) { addState(st); });
    }

    void addState(store::Statement& st) {
        State s;
        s.added = freshPass_;
        s.row.nr = textAt(st, 0);
        s.row.hist = textAt(st, 1);
        s.row.name = textAt(st, 2);
        s.row.gemKz = textAt(st, 3);
        s.removed = !text::trimmed(textAt(st, 4), " ").empty();
        append(s.row.names, s.row.name);
        // Found by its number and its register number ("HRB 8412") too.
        for (const int i : {0, 5, 6}) append(s.row.others, textAt(st, i));
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
            "betrieb_adresse", "[betr-nr]", 1, [&](store::Statement& st) {
                const long long rowid = st.columnInteger(0);
                const bool kind1 = !isNull(st, 3) && text::trimmed(textAt(st, 3), " ") == "1";
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
                "[betr-nr]", 0, [&](store::Statement& st) {
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
        linked.bind(1, Variant(added_->from[model::relationIndex("beziehung_betrieb_person")]));
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
            st.bind(1, Variant(added_->from[model::relationIndex("person")]));
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

}  // namespace

std::vector<State> readStates(store::Connection& c, const std::string& listed,
                              const NewBusinesses* added,
                              const std::unordered_set<std::string>& addedKeys) {
    return Reader(c, listed, added, addedKeys).read();
}

// The rows of the store met by a list's numbers (a JSON array). Without statistics SQLite would
// rather read a whole table and look each row up in the list; CROSS JOIN keeps the list outside.
std::string byList(const std::string& table, const std::string& column) {
    return " FROM json_each(?1) c CROSS JOIN " + table + " ON " + column + " = c.value";
}

}  // namespace tolma::search
