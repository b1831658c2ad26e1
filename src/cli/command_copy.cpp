#include <ostream>

#include "cli/cli.h"
#include "cli/help.h"
#include "cli/session.h"
#include "relocation/store_move.h"
#include "store/server_address.h"

namespace tolma::cli {
namespace {

int copyStore(Session& session, const std::string& target, std::ostream& out, std::ostream& err) {
    const auto report = relocation::copyOpenStore(session.g, target);
    std::ostream& to = report.outcome == relocation::CopyOutcome::Copied ? out : err;
    for (const auto& line : report.lines) to << line << "\n";
    switch (report.outcome) {
        case relocation::CopyOutcome::Copied:
            return kExitOk;
        case relocation::CopyOutcome::SameStore:
            return kExitUsage;
        default:
            return kExitFailed;
    }
}

}  // namespace

int commandKopieren(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                    std::ostream& err) {
    if (args.size() != 2 || args[0] != "--nach")
        return badCall(err, "kopieren",
                       "erwartet wird --nach ZIEL (Datei oder Verbindungsangabe).");
    if (store::isServerText(args[1]) && !store::passwordIn(args[1]).empty())
        return badCall(err, "kopieren", "die Verbindungsangabe darf kein Kennwort enthalten.");
    Session session(options, out);
    if (!session.startWithDataStore(err)) return kExitFailed;
    const int code = copyStore(session, args[1], out, err);
    session.finish(out, err);
    return code;
}

}  // namespace tolma::cli
