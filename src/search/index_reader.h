#pragma once

#include <limits>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "search/index_rows.h"
#include "store/connection.h"
#include "store/text_list.h"

// Reading the business states whose index rows are written: from the store by a list of their
// numbers, and for businesses new to the store from the rows their block wrote.
namespace tolma::search {

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

// The rows of the index for some businesses, read and worked out, not yet written: the rows that
// go (their numbers and their words, which the full-text index must be told), and the states
// whose rows come, save those the index holds as they are.
using OldRow = std::pair<long long, std::string>;
struct RowsToWrite {
    std::vector<State> states;
    std::vector<OldRow> old;
};

// Reading and working out may take place on a connection of their own, writing on the one that
// holds the transaction; the writing must see the index as the reading saw it.
RowsToWrite readRows(store::Connection& c, const std::vector<std::string>& betrNrs, bool fresh,
                     const NewBusinesses* added = nullptr,
                     std::unordered_set<std::string>* unchangedPersons = nullptr);
void writeRows(store::Connection& c, const RowsToWrite& rows);

// The states of the numbers in `listed` (a JSON array, as jsonArray() gives it) and of the new
// businesses, whose keys (numberKey()) are `addedKeys`; the states of a key, and the rows that
// join them, as the store meets them.
std::vector<State> readStates(store::Connection& c, const std::string& listed,
                              const NewBusinesses* added,
                              const std::unordered_set<std::string>& addedKeys);

using store::jsonArray;
// The rows of the store met by a list's numbers bound to ?1 (a JSON array).
std::string byList(const std::string& table, const std::string& column);
inline bool isNull(store::Statement& st, int i) {
    return st.isNull(i);
}
inline std::string_view textAt(store::Statement& st, int i) {
    return st.columnText(i);
}

}  // namespace tolma::search
