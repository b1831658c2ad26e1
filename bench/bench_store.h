#pragma once

#include <filesystem>
#include <string>

#include "core/globals.h"

// What every benchmark needs first: a fresh directory, a generated transfer file, and the
// program started on a home of its own with questions answered Yes.
namespace tolma::bench {

class AnswerYes : public core::Dialogs {
  public:
    int MsgBox(const std::string& text, int style, const std::string& title) override;
    void openInViewer(const std::string& path) override;
    bool echo = false;  // print the messages that are no questions
};

// An empty directory below the temporary directory.
std::filesystem::path freshDirectory(const std::string& name);
// Writes a transfer file of n businesses; returns its size in MB.
double writeFile(const std::filesystem::path& file, long businesses);
// The same with every changedEvery-th business changed in the given round.
double writeFile(const std::filesystem::path& file, long businesses, long changedEvery,
                 unsigned changeRound);
// Starts the program on `home` with the default stores of the build.
void startProgram(core::Globals& g, AnswerYes& dialogs, const std::filesystem::path& home);
// Starts the program in a fresh directory `name` and imports n generated businesses.
void startWithBusinesses(core::Globals& g, AnswerYes& dialogs, const std::string& name,
                         long businesses);

}  // namespace tolma::bench
