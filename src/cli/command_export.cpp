#include <unistd.h>

#include <ostream>

#include "cli/cli.h"
#include "cli/interrupt.h"
#include "cli/session.h"
#include "transfer/export_form.h"

namespace tolma::cli {

int commandExport(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                  std::ostream& err) {
    bool byKey = false;
    std::vector<std::pair<int, std::string>> sets;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--by-key") {
            byKey = true;
        } else if (args[i] == "--set" && i + 1 < args.size()) {
            const std::string& a = args[++i];
            const size_t eq = a.find('=');
            int index = -1;
            try {
                index = eq == std::string::npos ? -1 : std::stoi(a.substr(0, eq));
            } catch (const std::exception&) {
            }
            if (index < 0 || index > 14) {
                err << "--set erwartet INDEX=WERT mit einem Index von 0 bis 14: " << a << "\n";
                return kExitUsage;
            }
            sets.emplace_back(index, a.substr(eq + 1));
        } else {
            err << "Aufruf: tolma-cli [--home VERZEICHNIS] export [--by-key] [--set "
                   "INDEX=WERT]...\n";
            return kExitUsage;
        }
    }
    Session session(options, out);
    if (!session.start(err)) return kExitFailed;
    core::Globals& g = session.g;
    transfer::VerwaltungsblockForm form = transfer::Frm_Verwaltungsblock_Load(g);
    for (const auto& [index, value] : sets) form.Text1[static_cast<size_t>(index)].text = value;
    if (byKey) form.Check1[0].value = 1;
    transfer::ExportResult result;
    {
        InterruptAsEscape escape(g, err, options.interactive && ::isatty(2));
        result = transfer::Frm_Verwaltungsblock_Command1_Click(g, form, 0);
    }
    for (const auto& file : result.files) out << file << "\n";
    if (result.outcome == transfer::ExportResult::Outcome::Failed)
        err << "Der Export ist gescheitert: " << session.cause() << "\n";
    session.finish(out, err);
    switch (result.outcome) {
        case transfer::ExportResult::Outcome::Finished:
            return kExitOk;
        case transfer::ExportResult::Outcome::Cancelled:
            return kExitCancelled;
        case transfer::ExportResult::Outcome::Failed:
            return kExitFailed;
    }
    return kExitFailed;
}

}  // namespace tolma::cli
