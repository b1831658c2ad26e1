#pragma once

#include <string>
#include <vector>

#include "store/jet_parser.h"
#include "store/jet_sql.h"

// SQLite's text for a statement of the old engine's language, generated from its syntax tree.
namespace tolma::store::jet {

struct Generated {
    std::string sql;                   // with the text's values as ?1..?n and its numbers as ?n+1..
    std::vector<bool> numeric;         // per parameter: bound as a number
    std::vector<std::string> numbers;  // the values of ?n+1.., as written
    SelectParts parts;                 // of a SELECT
    // A column is named by its expression as written, values included ("SELECT 'a' & x"):
    // the text differs from another of the same shape in more than its values.
    bool valuesInNames = false;
};

// `values` is the number of texts and dates the statement holds (its Text and Date tokens).
Generated generate(const ast::Statement& statement, const Catalog* catalog, int values);

}  // namespace tolma::store::jet
