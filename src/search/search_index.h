#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tolma::store {
class Connection;
}

// One search across businesses and persons, through a full-text index of the data store
// (SQLite FTS5) that holds every word three ways: as written (without regard to case), folded
// (ä/ae/a, ß/ss, accents) and, for names, by sound (Kölner Phonetik), beside what a hit shows.
// The index is two tables of its own, "tolma_suchtreffer" and "tolma_suchbegriffe" (for a store
// file in a file beside it); no routine of the system reads them.
namespace tolma::core {
struct Globals;
}

namespace tolma::search {

struct NewBusinesses;

enum class Kind { Both, Businesses, Persons };

struct Hit {
    bool person = false;
    std::string betrNr, betrHistNr, persNr, name, strasse, ort, gemKz;
    bool abgemeldet = false;
    int score = 0;  // 3 per word found as written, 2 folded, 1 by sound
};

// Whether the store has an index that follows it; one of an earlier form does not count.
bool hasIndex(store::Connection& c);
// Whether the store has an index at all, following it or marked as behind.
bool indexKept(store::Connection& c);
// Builds the index anew from the store; `progress` hears (done, total) now and then.
void buildIndex(store::Connection& c, const std::function<void(long, long)>& progress = {});
// Inside a change of the store that the index does not follow: an index that follows is
// marked as behind in the same transaction, so that the next search builds it anew however
// what comes after the change ends.
void markStale(store::Connection& c);
// Makes the index's tables, empty: built at the first search. For a server store's set-up,
// since its logins may write into tables but not create them.
void prepareIndexTables(store::Connection& c);
// After such a change has committed: the index is built anew where the store keeps one. Empty
// when it follows again; else the sentence for the clerk, with the failure logged.
std::string followChange(core::Globals& g);

// Which persons a change of businesses wrote: those named, or any linked to the businesses.
enum class Persons { Named, OfTheBusinesses };
// The hits of a query, best first: every word must match; the last one also as a beginning.
// It only reads: a store without the index gives no hits (see hasIndex and buildIndex).
std::vector<Hit> find(store::Connection& c, const std::string& query, Kind kind, int limit);
// The hits as text: tab-separated with a header line.
std::string hitsText(const std::vector<Hit>& hits);

}  // namespace tolma::search
