#include "store/dao_error.h"

namespace tolma::store {

DaoError::DaoError(std::string source, int number, std::string description)
    : std::runtime_error(description),
      source_(std::move(source)),
      number_(number),
      description_(std::move(description)) {}

void throwDao(const std::string& source, int number, const std::string& description) {
    throw DaoError(source, number, description);
}

bool err::isStoreFault(int number) {
    switch (number) {
        case kObjectNotSet:  // the store never opened
        case kFileNotFound:
        case kDiskFull:
        case kReadOnly:
        case kDiskError:
        case kFileInUse:
        case kCannotOpen:
        case kTableNotFound:  // a store without the system's tables
        case kUnrecognizedFormat:
        case kDatabaseInUse:
        case kLoginRefused:
        case kPasswordMissing:
        case kNoPermission:
        case kServerUnreachable:
            return true;
        default:
            return false;
    }
}

}  // namespace tolma::store
