#pragma once

#include <functional>
#include <string>
#include <vector>

#include "store/connection.h"

// Moving a store's rows from one store to another: a file to a server and back.
namespace tolma::store {

struct CopiedTable {
    std::string table;
    long long rows = 0;
};

// The tables of a store, in the store's own order of names; the server's and the embedded
// store's own catalogues are none of them.
std::vector<std::string> tableNames(Connection& c);

// Rows in those of the tables the store has.
long long rowsIn(Connection& c, const std::vector<std::string>& tables);

// Copies every row of the tables, row ids and order kept, into the same tables of the target,
// all in one transaction there: a failure leaves the target as it was. `prepareTarget` runs
// first in that transaction, to make tables the target lacks; tables it still lacks then go
// into `left` where given. The copy is checked by counting the rows per table on both sides;
// a difference raises and keeps nothing.
std::vector<CopiedTable> copyTables(Connection& from, Connection& to,
                                    const std::vector<std::string>& tables,
                                    const std::function<void()>& prepareTarget = {},
                                    std::vector<std::string>* left = nullptr);

}  // namespace tolma::store
