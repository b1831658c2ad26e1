#include "search/index_rows.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <exception>
#include <limits>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "search/index_reader.h"
#include "search/index_words.h"
#include "store/connection.h"
#include "store/jet_sql.h"
#include "text/text.h"

namespace tolma::search {
namespace {

using store::Variant;

// The words of every row, worked out from the texts alone: on a second thread, which starts at
// once, and on this one when it is done with the store. Both take the states a part at a time.
class WordsOfRows {
  public:
    explicit WordsOfRows(std::vector<State>& states) : states_(states) {
        if (states.size() >= 2 * kPart) other_ = std::thread([this] { work(); });
    }
    ~WordsOfRows() {
        if (other_.joinable()) other_.join();
    }
    WordsOfRows(const WordsOfRows&) = delete;
    WordsOfRows& operator=(const WordsOfRows&) = delete;

    // Takes the parts left, then waits for the other thread.
    void finish() {
        work();
        if (other_.joinable()) other_.join();
        if (failed_) std::rethrow_exception(failed_);
    }

  private:
    static constexpr size_t kPart = 32;

    void work() {
        try {
            RowWords words;
            for (size_t from; (from = next_.fetch_add(kPart)) < states_.size();)
                for (size_t i = from; i < std::min(from + kPart, states_.size()); ++i)
                    of(states_[i], words);
        } catch (...) {
            const std::lock_guard lock(mutex_);
            if (!failed_) failed_ = std::current_exception();
        }
    }

    static void of(State& s, RowWords& words) {
        Row& business = s.row;
        words.clear();
        words.add(business.names, true);
        words.add(business.others, false);
        business.words = words.text();
        // A person's row: the names, the person's number and address and the business's name.
        for (Row& p : s.persons) {
            words.clear();
            words.add(p.names, true);
            for (const std::string* text : {&p.persNr, &p.strasse, &p.ort, &business.name})
                words.add(*text, false);
            p.words = words.text();
        }
    }

    std::vector<State>& states_;
    std::atomic<size_t> next_{0};
    std::mutex mutex_;
    std::exception_ptr failed_;
    std::thread other_;
};

// The first free row number for a current or a removed business.
long long nextRowNumber(store::Connection& c, bool removed) {
    auto& st =
        c.cached("SELECT max(zeile) FROM " + rowsTable(c) + " WHERE zeile >= ?1 AND zeile < ?2");
    st.bind(1, Variant(removed ? kRemoved : 0LL));
    st.bind(2, Variant(removed ? std::numeric_limits<long long>::max() : kRemoved));
    st.step();
    const long long last = isNull(st, 0) ? 0 : st.columnInteger(0);
    // A statement left standing would hold the index file as it was: another connection
    // writes it during an import.
    st.reset();
    return std::max(last + 1, removed ? kRemoved : 1LL);
}

void bindText(store::Statement& st, int i, const std::string& text) {
    st.bindTextStatic(i, text);
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

// A row as the index holds it: its texts one after the other, for a while.
struct HeldRow {
    long long zeile = 0;
    std::string texts;
    std::array<std::uint32_t, 9> ends{};  // of the kind and each text of Content but the second

    Content content() const {
        Content c;
        std::uint32_t from = 0;
        for (size_t i = 0, k = 0; i < c.size(); ++i) {
            if (i == 1) {
                c[i] = zeile >= kRemoved ? "1" : "0";
                continue;
            }
            c[i] = std::string_view(texts).substr(from, ends[k] - from);
            from = ends[k++];
        }
        return c;
    }
};

}  // namespace

std::string rowsTable(const store::Connection& c) {
    if (c.isServer()) return kRowsTable;
    return std::string(store::Connection::kIndexSchema) + "." + kRowsTable;
}

std::string wordsTable(const store::Connection& c) {
    if (c.isServer()) return kWordsTable;
    return std::string(store::Connection::kIndexSchema) + "." + kWordsTable;
}

std::string numberKey(std::string_view nr) {
    return text::lowerAscii(std::string(nr));
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

RowsToWrite readRows(store::Connection& c, const std::vector<std::string>& betrNrs, bool fresh,
                     const NewBusinesses* added,
                     std::unordered_set<std::string>* unchangedPersons) {
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
    RowsToWrite out;
    std::vector<State>& states = out.states;
    states = readStates(c, list, added, addedKeys);
    WordsOfRows working(states);

    // The rows as they stand. A business that comes again unchanged, as most of a delivery
    // that repeats the store does, keeps its rows: only the rows that differ go and come.
    std::vector<HeldRow> held;
    if (!fresh && !listed.empty()) {
        auto& st = c.cached(
            "SELECT t.zeile, t.art, t.betr_nr, t.hist, t.pers_nr, t.name, "
            "t.strasse, t.ort, t.gem_kz, t.worte" +
            byList(rowsTable(c) + " t", "t.betr_nr"));
        st.bind(1, Variant(list));
        while (st.step()) {
            HeldRow& h = held.emplace_back();
            h.zeile = st.columnInteger(0);
            for (int i = 1; i < 10; ++i) {
                h.texts += textAt(st, i);
                h.ends[static_cast<size_t>(i - 1)] = static_cast<std::uint32_t>(h.texts.size());
            }
        }
    }
    working.finish();
    std::vector<OldRow>& old = out.old;
    if (!held.empty()) {
        Unchanged unchanged(states);
        for (const HeldRow& h : held) {
            const Content content = h.content();
            if (!unchanged.meets(content)) old.emplace_back(h.zeile, content[9]);
        }
        std::sort(old.begin(), old.end());
        if (unchangedPersons) {
            std::unordered_map<std::string, bool> allKept;
            for (const State& s : states)
                for (const Row& p : s.persons) {
                    const auto [it, first] = allKept.try_emplace(numberKey(p.persNr), p.kept);
                    if (!first) it->second = it->second && p.kept;
                }
            for (const auto& [key, kept] : allKept)
                if (kept) unchangedPersons->insert(key);
        }
    }
    return out;
}

void writeRows(store::Connection& c, const RowsToWrite& rows) {
    const std::vector<State>& states = rows.states;
    const std::vector<OldRow>& old = rows.old;
    // The full-text index takes its changes best in the order of the row numbers: a step back
    // makes it write out what it holds in memory. So the current rows go before the removed
    // ones, and of each kind the old rows before the new.
    const std::string table = rowsTable(c), words = wordsTable(c);
    long long next[2] = {nextRowNumber(c, false), nextRowNumber(c, true)};
    auto oldRow = old.begin();
    for (const bool removed : {false, true}) {
        // The index is told which words a row had when it goes.
        // The server's index over the rows' words follows the rows by itself.
        const bool server = c.isServer();
        auto* going = server ? nullptr
                             : &c.cached("INSERT INTO " + words + " (" + kWordsTable +
                                         ", rowid, worte) VALUES ('delete', ?1, ?2)");
        auto& gone = c.cached("DELETE FROM " + table + " WHERE zeile = ?1");
        for (; oldRow != old.end() && (oldRow->first >= kRemoved) == removed; ++oldRow) {
            if (going) {
                going->reset();
                going->bindInteger(1, oldRow->first);
                bindText(*going, 2, oldRow->second);
                going->step();
            }
            gone.reset();
            gone.bindInteger(1, oldRow->first);
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
        // Many rows to a statement: running a statement costs more than a row's values.
        constexpr size_t kRowsAtOnce = 32;
        auto insert = [&](size_t rows) -> store::Statement& {
            std::string sql = "INSERT INTO " + table +
                              " (zeile, art, betr_nr, hist, pers_nr, name, strasse, ort, gem_kz, "
                              "worte) VALUES ";
            for (size_t i = 0; i < rows; ++i)
                sql += i ? ",(?,?,?,?,?,?,?,?,?,?)" : "(?,?,?,?,?,?,?,?,?,?)";
            return c.cached(sql);
        };
        for (size_t from = 0; from < coming.size(); from += kRowsAtOnce) {
            const size_t rows = std::min(kRowsAtOnce, coming.size() - from);
            store::Statement& st = insert(rows);
            int i = 1;
            for (size_t k = from; k < from + rows; ++k) {
                const Row& r = *coming[k].second;
                st.bindInteger(i++, coming[k].first);
                st.bindTextStatic(i++, r.person ? "P" : "B");
                for (const std::string* text :
                     {&r.nr, &r.hist, &r.persNr, &r.name, &r.strasse, &r.ort, &r.gemKz, &r.words})
                    bindText(st, i++, *text);
            }
            st.step();
        }
        if (server) continue;
        auto& index = c.cached("INSERT INTO " + words + " (rowid, worte) VALUES (?1, ?2)");
        for (const Numbered& n : coming) {
            index.reset();
            index.bindInteger(1, n.first);
            bindText(index, 2, n.second->words);
            index.step();
        }
    }
}

long writeRows(store::Connection& c, const std::vector<std::string>& betrNrs, bool fresh,
               const NewBusinesses* added, std::unordered_set<std::string>* unchangedPersons) {
    const RowsToWrite rows = readRows(c, betrNrs, fresh, added, unchangedPersons);
    writeRows(c, rows);
    return static_cast<long>(rows.states.size());
}

}  // namespace tolma::search
