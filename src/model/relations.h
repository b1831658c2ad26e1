#pragma once

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

// What each table of the stores belongs to and by which columns its rows are tied to it. The
// import's removals, its record and its check, the export's scans and the search index all
// read this one list.
namespace tolma::model {

// What the rows of a table belong to.
enum class Owner {
    BusinessState,  // a state of a business: its number and history number
    Person,         // a person, across businesses
    Link,           // a business state's tie to a person
    CodeTable,      // a list of codes the clerk picks from
    Program,        // the program's own settings
};

enum class StoreKind { Settings, Data };

// The columns that tie a row to what it belongs to; empty where the table has none.
struct KeyColumns {
    std::string_view number;  // the business number
    std::string_view state;   // the history number beside it: the business state
    std::string_view person;  // the person number
    std::string_view code;    // the code of a code table
};

struct Relation {
    std::string_view table;
    StoreKind store;
    Owner owner;
    KeyColumns keys;
    // The place in which an import removes a business's or a person's rows, and in which an
    // export writes them (the business itself first); -1 where neither touches the table.
    int removal = -1;
    int exported = -1;
    // The order of a key's rows where the export wants one of its own ("p-art DESC").
    std::string_view rowOrder = {};
    // Its rows give words to the search index.
    bool searched = false;
    // What a clerk calls its rows, in reports.
    std::string_view title = {};
};

// Every table of the stores: of the data store first the business state's, then its link and
// the persons' tables, then the settings store's.
std::span<const Relation> relations();
// The table's place in relations(), or relations().size() for a table not declared.
size_t relationIndex(std::string_view table);
const Relation* relationOf(std::string_view table);

// The data store's tables that an import removes from, in that order; and those the export
// writes, in that order.
const std::vector<const Relation*>& removalOrder();
const std::vector<const Relation*>& exportOrder();

}  // namespace tolma::model
