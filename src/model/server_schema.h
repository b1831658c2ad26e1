#pragma once

#include <string>
#include <vector>

#include "model/schema.h"

// A data store on a PostgreSQL server: the tables of dataTables() with a hidden row id, the
// folding of German text for comparisons, and the two roles that the clerks' logins join.
namespace tolma::model {

inline constexpr const char* kImportRole = "tolma_import";  // reads and writes every table
inline constexpr const char* kReadRole = "tolma_lesen";     // reads only

// The statements that make a table of a server store, each harmless when run again.
std::vector<std::string> serverTableSql(const TableDef& table);

struct ServerSetUp {
    int tablesCreated = 0;
    int tablesPresent = 0;
    int indexesCreated = 0;
    std::vector<std::string> rolesCreated;

    bool changedNothing() const {
        return tablesCreated == 0 && indexesCreated == 0 && rolesCreated.empty();
    }
};

// Sets up the store that a connection text names, in one transaction: what is there stays,
// what is missing is made. Failures are store::DaoError.
ServerSetUp setUpServerStore(const std::string& connectionText, const std::string& password = {});

// Grants the roles their rights on every table and sequence of the store, the program's own
// tables made after the data tables too. A reading login may still mark what it exported,
// write the protocol of a disclosure and build the search index anew: these belong to reading.
void grantServerRights(const std::string& connectionText, const std::string& password = {});

}  // namespace tolma::model
