#include "store/dao_error.h"

namespace tolma::store {

DaoError::DaoError(std::string source, int number, std::string description)
    : std::runtime_error(description), source_(std::move(source)), number_(number),
      description_(std::move(description)) {}

void throwDao(const std::string& source, int number, const std::string& description) {
    throw DaoError(source, number, description);
}

}  // namespace tolma::store
