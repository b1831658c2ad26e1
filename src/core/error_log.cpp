#include "core/error_log.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "model/codepage.h"
#include "store/dao_error.h"
#include "text/text.h"

namespace tolma::core {
namespace {

std::string shortDateTime(std::time_t t) {
    return text::localTime(t, "%d.%m.%Y %H:%M:%S");
}

}  // namespace

std::string writeFailure(int code) {
    switch (code) {
        case ENOSPC:
        case EDQUOT:
            return "der Datenträger ist voll";
        case EACCES:
        case EPERM:
        case EROFS:
            return "keine Schreibberechtigung";
        case ENOENT:
        case ENOTDIR:
            return "das Verzeichnis fehlt";
        case EISDIR:
            return "an seiner Stelle steht ein Verzeichnis";
        default:
            return "Schreibfehler Nr. " + std::to_string(code);
    }
}

std::string errorLogPath(const Directories& paths) {
    return paths.pfad_log + "ERROR.LOG";
}

void A_Error_Log(Globals& g, const std::string& procedure, const std::string& source,
                 const std::string& number, const std::string& text, const std::string& location,
                 const std::string& locationValue) {
    ++g.log.entries;
    g.log.lastLoggedError = text;
    const long n = std::atol(number.c_str());
    if (g.log.storeFault.empty() && (store::err::isStoreFault(static_cast<int>(n)) ||
                                     n == kDiskFullError || n == kAccessDeniedError))
        g.log.storeFault = text;
    if (g.log.logCapture) {
        g.log.logCapture->push_back({procedure, number, text, location, locationValue});
        return;
    }
    // The log holds personal data: a new one is created readable by its owner only, never for a
    // moment by others; a log that stands keeps the rights its owner gave it.
    const std::string path = errorLogPath(g.paths);
    if (const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600); fd >= 0)
        ::close(fd);
    std::ofstream out(path, std::ios::binary | std::ios::app);
    auto line = [&](const std::string& s) { out << model::utf8ToCp1252(s) << "\r\n"; };
    if (!g.log.fehler_vorhanden) {
        line(std::string(88, '_'));
        line(std::string(88, '#'));
        line("[Error-Log vom      " + shortDateTime(g.clock()) + "]");
    }
    g.log.fehler_vorhanden = true;
    line(std::string(38, '-'));
    line("Fehler in Sub/Function: " + procedure);
    line("Fehler-Source:          " + source);
    line("Fehlernummer:           " + number);
    line("Fehlertext:             " + text);
    line("Fehlerortung:           " + location);
    line("Ortungs-Nummer/BetrNr:  " + locationValue);
    out.flush();
    if (!out) {
        const int code = errno;
        g.log.logWriteError = writeFailure(code);
    }
}

void A_Log_anbieten(Globals& g) {
    if (!g.log.fehler_vorhanden) return;
    const int answer = showMessage(g,
                                   "Update-Fehler!\nWollen Sie die Log-Datei ('" +
                                       g.paths.pfad_log + "ERROR.LOG')" + " ansehen?",
                                   msg::vbQuestionYesNo, "Achtung!");
    if (answer == msg::vbYes && g.dialogs) g.dialogs->openInViewer(errorLogPath(g.paths));
}

RuntimeError indexOutOfRange() {
    return RuntimeError(9, "Index außerhalb des gültigen Bereichs");
}
RuntimeError typeMismatch() {
    return RuntimeError(13, "Typen unverträglich");
}
RuntimeError invalidCall() {
    return RuntimeError(5, "Ungültiger Prozeduraufruf oder ungültiges Argument");
}

ErrorInfo describeError(const std::exception& e) {
    if (const auto* rt = dynamic_cast<const RuntimeError*>(&e))
        return {"TOLMA_4x_Access", rt->number(), rt->what()};
    if (const auto* dao = dynamic_cast<const store::DaoError*>(&e))
        return {dao->source(), dao->number(), dao->description()};
    if (const auto* fs = dynamic_cast<const std::filesystem::filesystem_error*>(&e)) {
        const auto code = fs->code();
        std::string path = fs->path1().string();
        if (code == std::errc::no_such_file_or_directory)
            return {"TOLMA_4x_Access", 53, "Datei nicht gefunden: '" + path + "'"};
        if (code == std::errc::permission_denied || code == std::errc::read_only_file_system)
            return {"TOLMA_4x_Access", kAccessDeniedError, "Zugriff verweigert: '" + path + "'"};
        if (code == std::errc::no_space_on_device)
            return {"TOLMA_4x_Access", kDiskFullError, "Datenträger voll: '" + path + "'"};
        return {"TOLMA_4x_Access", 75,
                "Fehler beim Zugriff auf Pfad/Datei: '" + path + "' (" + code.message() + ")"};
    }
    return {"TOLMA_4x_Access", 5,
            std::string("Ungültiger Prozeduraufruf oder ungültiges Argument: ") + e.what()};
}

void logTrapped(Globals& g, const std::string& procedure, const std::exception& e) {
    const ErrorInfo info = describeError(e);
    A_Error_Log(g, procedure, info.source, std::to_string(info.number), info.text,
                "Fehlerortung: ", std::to_string(g.log.akt_schritt));
}

}  // namespace tolma::core
