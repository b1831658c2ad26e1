#include "cli/cli.h"

#include <unistd.h>

#include <iostream>
#include <ostream>

#include "cli/help.h"
#include "cli/options.h"
#include "core/version.h"

namespace tolma::cli {
namespace {

// A call without a command: the overview, on the error output, since the call was wrong.
void usage(std::ostream& err) {
    printOverview(err);
}

}  // namespace

int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    return run(args, out, err, std::cin, ::isatty(0) != 0);
}

int run(const std::vector<std::string>& allArgs, std::ostream& out, std::ostream& err,
        std::istream& in, bool interactive) {
    Options options;
    options.in = &in;
    options.interactive = interactive;
    // How questions are answered may stand anywhere on the line.
    std::vector<std::string> args;
    for (size_t k = 0; k < allArgs.size(); ++k) {
        if (allArgs[k] == "--yes") {
            options.answers = TerminalDialogs::Mode::Yes;
        } else if (allArgs[k] == "--no") {
            options.answers = TerminalDialogs::Mode::No;
        } else if (allArgs[k] == "--answers" && k + 1 < allArgs.size()) {
            options.answers = TerminalDialogs::Mode::Script;
            options.answerScript = allArgs[++k];
        } else {
            args.push_back(allArgs[k]);
        }
    }
    size_t i = 0;
    for (; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--version") {
            out << core::kProductName << " " << core::kVersionText << "\n";
            return kExitOk;
        }
        if (a == "--home") {
            if (i + 1 >= args.size()) {
                usage(err);
                return kExitUsage;
            }
            options.home = args[++i];
        } else if (a == "--help" || a == "-h") {
            printOverview(out);
            return kExitOk;
        } else if (a.rfind("-", 0) == 0) {
            err << "Unbekannte Option: " << a << "\nHilfe: tolma-cli --help\n";
            return kExitUsage;
        } else {
            break;
        }
    }
    if (i >= args.size()) {
        usage(err);
        return kExitUsage;
    }
    const std::string command = args[i];
    const std::vector<std::string> rest(args.begin() + static_cast<long>(i) + 1, args.end());
    // Asked for help, a command runs nothing: "sql --help" is no statement.
    if (asksForHelp(rest) && printCommandHelp(command, out)) return kExitOk;
    if (command == "sql") return commandSql(options, rest, out, err);
    if (command == "import") return commandImport(options, rest, out, err);
    if (command == "export") return commandExport(options, rest, out, err);
    if (command == "print") return commandPrint(options, rest, out, err);
    if (command == "options") return commandOptions(options, rest, out, err);
    if (command == "imports") return commandImports(options, rest, out, err);
    if (command == "undo") return commandTakeBack(options, rest, out, err);
    if (command == "auswertung") return commandAuswertung(options, rest, out, err);
    if (command == "search") return commandSearch(options, rest, out, err);
    if (command == "loeschen") return commandLoeschen(options, rest, out, err);
    if (command == "auskunft") return commandAuskunft(options, rest, out, err);
    if (command == "protokoll") return commandProtokoll(options, rest, out, err);
    if (command == "server") return commandServer(options, rest, out, err);
    if (command == "kopieren") return commandKopieren(options, rest, out, err);
    err << "Unbekannter Befehl: " << command << "\nHilfe: tolma-cli --help\n";
    return kExitUsage;
}

}  // namespace tolma::cli
