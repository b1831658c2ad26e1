#pragma once

#include <optional>
#include <string>

// What the core needs of the user's side: message boxes with the system's styles and
// answers, and a viewer for the error log. The GUI answers with Qt dialogs, the CLI on the
// terminal, the tests from a script.
namespace tolma::core {

namespace msg {
inline constexpr int vbOKOnly = 0;
inline constexpr int vbCritical = 16;         // critical, OK
inline constexpr int vbCriticalYesNo = 20;    // critical, Yes and No
inline constexpr int vbQuestionYesNo = 36;    // question, Yes and No
inline constexpr int vbExclamation = 48;      // warning, OK
inline constexpr int vbInformation = 64;      // information, OK
inline constexpr int vbQuestionYesNoNo = 68;  // question, Yes and No
inline constexpr int vbDefaultButton2 = 256;  // added to a style: the second button is the default
inline constexpr int vbOK = 1;
inline constexpr int vbYes = 6;
inline constexpr int vbNo = 7;

bool hasYesNo(int style);
}  // namespace msg

class Dialogs {
  public:
    virtual ~Dialogs() = default;
    // Shows a message box; the answer is 1 for OK, 6 for Yes, 7 for No.
    virtual int MsgBox(const std::string& text, int style, const std::string& title) = 0;
    // Opens a text file for reading, without waiting (the old system's external editor).
    virtual void openInViewer(const std::string& path) = 0;
    // The file dialog: a file to open, or the empty text when the clerk cancels. The filter
    // is the old platform's "Text|pattern|Text|pattern|"; the index counts from 1.
    virtual std::string chooseFile(const std::string& startDirectory, const std::string& filter,
                                   int filterIndex) {
        (void)startDirectory, (void)filter, (void)filterIndex;
        return {};
    }
    // The file dialog for saving under `title`: the file to write, proposed as `proposed`, or
    // the empty text when the clerk cancels. The filter as above.
    virtual std::string chooseSaveFile(const std::string& title, const std::string& proposed,
                                       const std::string& filter) {
        (void)title, (void)proposed, (void)filter;
        return {};
    }
    // Asks for the password of a database server, with `prompt` naming it; nothing when the
    // clerk cancels or no one can be asked (the command line uses libpq's own ways).
    virtual std::optional<std::string> askPassword(const std::string& prompt) {
        (void)prompt;
        return std::nullopt;
    }
};

}  // namespace tolma::core
