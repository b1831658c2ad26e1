#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "search/index_rows.h"

namespace tolma::store {
class Connection;
}

namespace tolma::search {

// Keeps the search index along the blocks of one import run, each block in its own
// transaction. A run that brings much against what the store holds learns once which numbers
// the store holds; a business new to it then has only rows its block wrote, which are read in
// one pass over the block's rows rather than looked up business by business. To find them, the
// run watches the rows the connection inserts (SQLite's update hook, which nothing else uses).
class IndexUpkeep {
  public:
    explicit IndexUpkeep(bool manyNew) : manyNew_(manyNew) {}
    ~IndexUpkeep();
    IndexUpkeep(const IndexUpkeep&) = delete;
    IndexUpkeep& operator=(const IndexUpkeep&) = delete;

    // At the end of a block, inside its transaction: the rows of the block's businesses, and of
    // those sharing one of its persons, anew. A failure is raised; the index is then left to
    // the next search to build anew.
    void keep(store::Connection& c, const std::vector<std::string>& betrNrs,
              const std::vector<std::string>& persNrs);

  private:
    // Numbers by a hash of their key: two numbers of one hash count as one, which costs at most
    // a lookup that finds nothing.
    class Numbers {
      public:
        void add(std::string_view nr);
        bool has(std::string_view nr) const;

      private:
        std::vector<std::uint64_t> sorted_;
        std::unordered_set<std::uint64_t> recent_;
    };

    void learn(store::Connection& c);
    void watch(store::Connection& c);
    bool watchedBlock(store::Connection& c);  // and stops watching
    static void inserted(void* self, int op, const char* database, const char* table,
                         long long rowid);

    bool manyNew_;
    bool learnt_ = false;
    Numbers businesses_, persons_;  // held by the store before the block
    std::weak_ptr<store::Connection> watched_;
    std::array<long long, kStoreTables> from_{};
};

}  // namespace tolma::search
