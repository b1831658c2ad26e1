#pragma once

#include <exception>
#include <stdexcept>
#include <string>

#include "core/globals.h"

namespace tolma::core {

// Writes one entry to "ERROR.LOG" in the log directory: the head of three lines at the first
// entry of a run, then seven lines; Windows-1252, CR LF, opened and closed for each entry.
void A_Error_Log(Globals& g, const std::string& procedure, const std::string& source,
                 const std::string& number, const std::string& text, const std::string& location,
                 const std::string& locationValue);

// At the way down: asks whether to show the log, if this run wrote to it.
void A_Log_anbieten(Globals& g);

std::string errorLogPath(const Directories& paths);

// Why a write failed, in the words of a message: "der Datenträger ist voll", ...
std::string writeFailure(int errnoCode);

// The old platform's errors of files that tell the disk or the rights, not the data, failed:
// 61 disk full, 70 access denied.
inline constexpr long kDiskFullError = 61, kAccessDeniedError = 70, kPathNotFoundError = 76;

// A run-time error of the program itself, with the old platform's number: 5 invalid call,
// 9 index out of range, 13 type mismatch.
class RuntimeError : public std::runtime_error {
  public:
    RuntimeError(long number, const std::string& text)
        : std::runtime_error(text), number_(number) {}
    long number() const { return number_; }

  private:
    long number_;
};
RuntimeError indexOutOfRange();
RuntimeError typeMismatch();
RuntimeError invalidCall();

// Source, number and text of a failure, as a trap reads them.
struct ErrorInfo {
    std::string source;
    long number = 0;
    std::string text;
};
ErrorInfo describeError(const std::exception& e);

// The usual trap: an entry with the procedure, the error, "Fehlerortung: " and akt_schritt.
void logTrapped(Globals& g, const std::string& procedure, const std::exception& e);

}  // namespace tolma::core
