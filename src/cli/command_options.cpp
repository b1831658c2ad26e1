#include <algorithm>
#include <optional>
#include <ostream>
#include <set>

#include "cli/cli.h"
#include "cli/session.h"
#include "options/options_form.h"

namespace tolma::cli {

int commandOptions(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                   std::ostream& err) {
    std::string datenart, filter;
    std::optional<std::string> paths[2];
    std::set<std::string> gemeinden;
    bool setGemeinden = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const bool hasValue = i + 1 < args.size();
        if (args[i] == "--datenart" && hasValue &&
            (args[i + 1] == "BETRIEBSBEZOGEN" || args[i + 1] == "MELDUNGSBEZOGEN")) {
            datenart = args[++i];
        } else if (args[i] == "--filter" && hasValue &&
                   (args[i + 1] == "on" || args[i + 1] == "off")) {
            filter = args[++i];
        } else if ((args[i] == "--db-betriebsbezogen" || args[i] == "--db-meldungsbezogen") &&
                   hasValue) {
            const int which = args[i] == "--db-betriebsbezogen" ? 0 : 1;
            paths[which] = args[++i];
        } else if (args[i] == "--gemeinde" && hasValue) {
            gemeinden.insert(args[++i]);
            setGemeinden = true;
        } else {
            err << "Aufruf: tolma-cli [--home VERZEICHNIS] options [--datenart "
                   "BETRIEBSBEZOGEN|MELDUNGSBEZOGEN] "
                   "[--filter on|off] [--gemeinde KZ]... [--db-betriebsbezogen PFAD|VERBINDUNG] "
                   "[--db-meldungsbezogen PFAD|VERBINDUNG]\n";
            return kExitUsage;
        }
    }
    // What the command line asks for is the clerk's answer to the form's questions.
    Options answered = options;
    if (answered.answers == TerminalDialogs::Mode::Ask)
        answered.answers = TerminalDialogs::Mode::Yes;
    Session session(answered, out);
    if (!session.start(err)) return kExitFailed;
    core::Globals& g = session.g;
    g.forms.marks.menue_extras_optionen = true;
    options::OptionsForm form;
    options::Form_Activate(g, form);

    if (!datenart.empty() && datenart != g.settings.datenart_wert)
        options::Command12_Click(g, form,
                                 g.settings.datenart_wert == core::kBetriebsbezogen ? 0 : 1);
    bool pathsTaken = true;
    for (int i = 0; i < 2; ++i)
        if (paths[i]) pathsTaken = options::changeStorePath(g, form, i, *paths[i]) && pathsTaken;
    if (!filter.empty()) options::Check1_Click(g, form, filter == "on");
    if (setGemeinden) {
        // The whole code table, with exactly the named municipalities selected.
        options::Command6_Click(g, form);
        for (size_t i = 0; i < form.List1.size(); ++i)
            form.selected[i] = gemeinden.count(form.List1[i].substr(0, 8)) > 0;
        for (const auto& kz : gemeinden)
            if (std::none_of(form.List1.begin(), form.List1.end(),
                             [&](const std::string& e) { return e.rfind(kz, 0) == 0; }))
                err << "Gemeindekennzahl nicht gefunden: " << kz << "\n";
    }
    const bool saved = options::Command3_Click(g, form, 1);
    options::Form_Unload(g);

    out << "Daten-Art: " << g.settings.datenart_wert << "\n"
        << "Datenbank: " << g.settings.db_pfad_aktuell << "\n"
        << "Datenbank betriebsbezogen: " << g.settings.db_betr_pfad << "\n"
        << "Datenbank meldungsbezogen: " << g.settings.db_meld_pfad << "\n"
        << "Filter: " << (g.settings.filter_aktiv_flag == -1 ? "aktiviert" : "aus") << "\n";
    auto rs =
        g.stores.db_org.OpenRecordset("SELECT ALL * From aktuelleGemeinde ORDER BY [gem-kz];");
    for (long i = 0; i < rs.RecordCount(); ++i) {
        const auto row = rs.rowAt(i);
        out << "Gemeinde: " << row[0].toString() << "  " << row[1].toString() << "\n";
    }
    session.finish(out, err);
    return saved && pathsTaken ? kExitOk : kExitFailed;
}

}  // namespace tolma::cli
