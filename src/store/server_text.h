#pragma once

#include <string>
#include <vector>

// German text on a server store, compared and sorted as the embedded store's collation does:
// equal when equal but for case (umlauts included, "Muller" is not "Müller"); ordered by the
// letters without their marks (ß as ss), and at equal letters the plain one first.
namespace tolma::store {

// The statements that create the server's functions: tolma_fold(text), the form that equality
// and LIKE compare, and tolma_primary(text), the letters an ORDER BY weighs first. Both are
// IMMUTABLE, so that indexes on them serve criteria and lists. ORDER BY tolma_primary(x)
// COLLATE "C", tolma_fold(x) COLLATE "C" gives the embedded store's order.
std::vector<std::string> serverTextFunctionSql();

}  // namespace tolma::store
