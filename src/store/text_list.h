#pragma once

#include <string>
#include <vector>

namespace tolma::store {

// A list as a JSON array, for json_each(): one statement takes the whole list as one bound
// value, on a file and on a server alike.
std::string jsonArray(const std::vector<std::string>& texts);

}  // namespace tolma::store
