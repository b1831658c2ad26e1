#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "store/database.h"

namespace tolma::test {

// A directory of its own for one test, removed afterwards.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    const std::filesystem::path& path() const { return dir_; }

  private:
    std::filesystem::path dir_;
};

// An empty data store with every table of the schema.
store::Database makeDataStore(const std::filesystem::path& file);
// A copy of the generated default settings store, with its municipalities and legal forms.
store::Database copySettingsStore(const std::filesystem::path& file);

using Row = std::vector<std::pair<std::string, store::Variant>>;
void insert(const store::Database& db, const std::string& table, const Row& row);

// A small data store: businesses in two municipalities, addresses of two kinds, natural and
// legal persons, a representative, permits of a person with and without a business.
store::Database makeSampleStore(const std::filesystem::path& file);

}  // namespace tolma::test
