#pragma once

#include <stdexcept>
#include <string>

namespace tolma::store {

// The error of the data engine as the rest of the system sees it: a source, a number of the
// old engine where the system relies on it, and a German text.
class DaoError : public std::runtime_error {
  public:
    DaoError(std::string source, int number, std::string description);

    const std::string& source() const { return source_; }
    int number() const { return number_; }
    const std::string& description() const { return description_; }

  private:
    std::string source_;
    int number_;
    std::string description_;
};

// Numbers of the old engine that callers test or that show up in the error log.
namespace err {
inline constexpr int kObjectNotSet = 91;
inline constexpr int kInvalidArgument = 3001;
inline constexpr int kUpdateWithoutEdit = 3020;
inline constexpr int kNoCurrentRecord = 3021;
inline constexpr int kFileNotFound = 3024;
inline constexpr int kDiskFull = 3026;
inline constexpr int kReadOnly = 3027;
inline constexpr int kDiskError = 3043;
inline constexpr int kFileInUse = 3045;
inline constexpr int kCannotOpen = 3051;
inline constexpr int kTooFewParameters = 3061;
inline constexpr int kSyntaxError = 3075;
inline constexpr int kTableNotFound = 3078;
inline constexpr int kFieldTooSmall = 3163;
inline constexpr int kFieldNotUpdatable = 3164;
inline constexpr int kRecordDeleted = 3167;
inline constexpr int kDatabaseExists = 3204;
inline constexpr int kItemNotFound = 3265;
inline constexpr int kUnrecognizedFormat = 3343;
inline constexpr int kDatabaseInUse = 3356;
inline constexpr int kTypeMismatch = 3464;
inline constexpr int kEngineError = 3000;
inline constexpr int kObjectInvalid = 3420;
// The server store's failures, under the old engine's numbers of the same meaning.
inline constexpr int kLoginRefused = 3029;       // the account or the password is not valid
inline constexpr int kPasswordMissing = 3031;    // the server wants a password, none was given
inline constexpr int kNoPermission = 3033;       // the login lacks the right to the object
inline constexpr int kServerUnreachable = 3151;  // the connection to the server failed
// Whether an error tells that the store itself cannot be used or written (full disk, read-only,
// locked, not a store), rather than that one value or record was wrong.
bool isStoreFault(int number);
}  // namespace err

[[noreturn]] void throwDao(const std::string& source, int number, const std::string& description);

}  // namespace tolma::store
