#pragma once

#include <string>
#include <vector>

namespace tolma::store {
class Connection;
}

// The rows of the search index for a list of businesses: read from the store by their numbers,
// their words worked out here, and written into the rows and the full-text index. Building the
// index and keeping it take the same way, so that both give the same rows.
namespace tolma::search {

// The rows, with what a hit shows beside their words, so that a query reads nothing else; and
// the full-text index over them, which keeps no copy of its own.
inline constexpr const char* kRowsTable = "tolma_suchtreffer";
inline constexpr const char* kWordsTable = "tolma_suchbegriffe";

// Rows of removed businesses are numbered from here on: the index hands out its rows in the
// order of their numbers, so that of many hits the current businesses come first.
inline constexpr long long kRemoved = 1LL << 40;

// The businesses whose rows are written anew, gathered in temporary lists of the connection.
class ChosenRows {
  public:
    explicit ChosenRows(store::Connection& c);  // the lists, empty
    ChosenRows(const ChosenRows&) = delete;
    ChosenRows& operator=(const ChosenRows&) = delete;

    // Business numbers; the empty one also stands for businesses without a number.
    void addBusinesses(const std::vector<std::string>& betrNrs);
    void addPersons(const std::vector<std::string>& persNrs);
    // The persons linked to the businesses chosen so far: for a change that wrote persons
    // unknown to the caller.
    void addPersonsOfBusinesses();
    // Every business linked to a person chosen: its rows show the person.
    void addBusinessesOfPersons();

    // Writes the rows of the chosen businesses anew: their earlier rows leave the index unless
    // `fresh` says there are none, the businesses' states are read as the store holds them now.
    // Returns the number of business states read.
    long write(bool fresh);

  private:
    store::Connection& c_;
};

}  // namespace tolma::search
