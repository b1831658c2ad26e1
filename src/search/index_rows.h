#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
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
// In a store file: the token that says its index file follows it (see markBehind()).
inline constexpr const char* kMarkTable = "tolma_suchstand";

// The tables as statements on this connection name them: a store file keeps them in a file of
// its own beside it (see store::Connection::holdIndexFile()).
std::string rowsTable(const store::Connection& c);
std::string wordsTable(const store::Connection& c);
// A connection that holds the index of this store: for a store file a connection of its own
// that holds the index file, made empty where `create`; none where the file is missing. For a
// server store the connection itself.
std::shared_ptr<store::Connection> indexConnection(store::Connection& c, bool create);

// Rows of removed businesses are numbered from here on: the index hands out its rows in the
// order of their numbers, so that of many hits the current businesses come first.
inline constexpr long long kRemoved = 1LL << 40;

// Businesses that a block of an import brought new to the store. Every row of theirs is one the
// block wrote, so it stands at or above the lowest row id the block took in its table: they are
// read in one pass over those rows rather than looked up by number.
struct NewBusinesses {
    std::vector<std::string> numbers;
    // The lowest row id the block took in each table whose rows give words, by the table's place
    // among model::relations().
    std::vector<long long> from;
    // Whether the store held a person number, or a link to it, before the block; a person it
    // did not hold has only rows of the block too.
    std::function<bool(std::string_view)> personHeld;
};

// Writes the index rows of these businesses, and of the new ones, anew: their earlier rows
// leave the index unless `fresh` says there are none; a row that comes again unchanged stays.
// The empty number also stands for businesses without one. Returns the business states read;
// `unchangedPersons` hears the persons (numberKey()) whose every row came again unchanged.
long writeRows(store::Connection& c, const std::vector<std::string>& betrNrs, bool fresh,
               const NewBusinesses* added = nullptr,
               std::unordered_set<std::string>* unchangedPersons = nullptr);

// The numbers of the businesses linked to these persons, and of the persons linked to these
// businesses.
std::vector<std::string> businessesOfPersons(store::Connection& c,
                                             const std::vector<std::string>& persNrs);
std::vector<std::string> personsOfBusinesses(store::Connection& c,
                                             const std::vector<std::string>& betrNrs);

// The rows a refresh of these businesses writes, and of every business linked to one of the
// persons (or, with Persons::OfTheBusinesses, to the businesses' persons), read and worked out, in
// the order they are to be written. The index's mark is not looked at.
struct RowsToWrite;
enum class Persons;
std::vector<RowsToWrite> readRefresh(store::Connection& c, const std::vector<std::string>& betrNrs,
                                     const std::vector<std::string>& persNrs, Persons persons,
                                     const NewBusinesses* added);

// The index's mark of not following the store: set, and taken away.
void markBehind(store::Connection& c);
void markFollowing(store::Connection& c);

// A number as the store compares it (NOCASE): ASCII letters in lower case.
std::string numberKey(std::string_view nr);

}  // namespace tolma::search
