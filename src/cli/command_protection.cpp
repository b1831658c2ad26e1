#include <ostream>

#include "cli/cli.h"
#include "cli/help.h"
#include "cli/session.h"
#include "core/error_log.h"
#include "core/output_file.h"
#include "print/qt/painter_printer.h"
#include "protection/disclosure.h"
#include "protection/disclosure_report.h"
#include "protection/protocol.h"
#include "protection/retention.h"
#include "store/connection.h"
#include "store/dao_error.h"
#include "text/text.h"

namespace tolma::cli {
namespace {

struct DisclosureRequest {
    protection::PersonQuery query;
    std::string pdf, csv;
};

// The person asked for, gathered, written and recorded; the exit code.
int disclose(Session& session, const DisclosureRequest& r, std::ostream& out, std::ostream& err) {
    core::Globals& g = session.g;
    store::Connection& c = *g.stores.db_daten.connection();
    const std::string& path = r.pdf.empty() ? r.csv : r.pdf;
    try {
        const auto found = protection::findPersons(c, r.query);
        if (found.empty()) {
            err << "Keine Person gefunden, auf die " << r.query.criterion()
                << " passen. Es wurde keine Auskunft geschrieben.\n";
            // The log names the criteria, never the person's data.
            core::A_Error_Log(g, "tolma-cli auskunft", "TOLMA_4x_Access",
                              std::to_string(store::err::kNoCurrentRecord),
                              "Keine Person gefunden (" + r.query.criterion() + ")",
                              "Fehlerortung: ", "0");
            return kExitFailed;
        }
        if (found.size() > 1) {
            err << "Es passen " << found.size()
                << " Personen; bitte mit --vornamen oder --geburtsdatum eingrenzen.\n";
            out << "Personennummer\tName\tVornamen\tGeburtsdatum\n";
            for (const auto& m : found)
                out << m.persNr << "\t" << m.famName << "\t" << m.vornamen << "\t" << m.gebDatum
                    << "\n";
            return kExitFailed;
        }
        const auto d = protection::gatherDisclosure(c, found.front().persNr,
                                                    text::localTime(g.clock(), "%d.%m.%Y"));
        const std::string bytes =
            r.pdf.empty()
                ? protection::disclosureCsv(d)
                : print::paintPdf([&](print::Printer& p) { protection::printDisclosure(p, d); });
        protection::writeDisclosure(c, d, r.query, text::localTime(g.clock(), "%d.%m.%Y %H:%M:%S"),
                                    path, bytes);
    } catch (const core::FileWriteError& e) {
        core::logTrapped(g, "Auskunft", e);
        err << "Die Datei kann nicht geschrieben werden: " << path << " (" << e.cause()
            << "). Es wurde keine Auskunft geschrieben.\n";
        return kExitFailed;
    } catch (const std::exception& e) {
        core::logTrapped(g, "Auskunft", e);
        err << "Die Auskunft ist gescheitert: " << session.cause() << "\n";
        return kExitFailed;
    }
    out << path << "\n";
    return kExitOk;
}

}  // namespace

int commandAuskunft(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                    std::ostream& err) {
    DisclosureRequest r;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        std::string* value = a == "--name"           ? &r.query.name
                             : a == "--vornamen"     ? &r.query.vornamen
                             : a == "--geburtsdatum" ? &r.query.geburtsdatum
                             : a == "--pdf"          ? &r.pdf
                             : a == "--csv"          ? &r.csv
                                                     : nullptr;
        if (!value) return badCall(err, "auskunft", "unbekannte Angabe " + a + ".");
        if (i + 1 >= args.size() || args[i + 1].empty())
            return badCall(err, "auskunft", a + " erwartet einen Wert.");
        *value = args[++i];
    }
    if (text::trimBlanks(r.query.name).empty())
        return badCall(err, "auskunft", "--name NAME fehlt.");
    if (r.pdf.empty() == r.csv.empty())
        return badCall(err, "auskunft", "entweder --pdf DATEI oder --csv DATEI angeben.");
    if (!r.query.geburtsdatum.empty() && !protection::storedDay(r.query.geburtsdatum))
        return badCall(err, "auskunft",
                       "--geburtsdatum erwartet einen Tag als TT.MM.JJJJ, nicht „" +
                           r.query.geburtsdatum + "“.");
    Session session(options, out);
    if (!session.startWithDataStore(err)) return kExitFailed;
    const int code = disclose(session, r, out, err);
    session.finish(out, err);
    return code;
}

int commandLoeschen(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                    std::ostream& err) {
    std::optional<int> before;
    bool checkOnly = false;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--pruefen") {
            checkOnly = true;
        } else if (args[i] == "--abgemeldet-vor") {
            if (i + 1 >= args.size() || !(before = protection::isoDay(args[i + 1])))
                return badCall(err, "loeschen",
                               "--abgemeldet-vor erwartet einen Tag als JJJJ-MM-TT" +
                                   (i + 1 < args.size() ? ", nicht „" + args[i + 1] + "“." : "."));
            ++i;
        } else {
            return badCall(err, "loeschen", "unbekannte Angabe " + args[i] + ".");
        }
    }
    if (!before) return badCall(err, "loeschen", "--abgemeldet-vor JJJJ-MM-TT fehlt.");
    Session session(options, out);
    if (!session.startWithDataStore(err)) return kExitFailed;
    const auto result = protection::deleteAfterPeriod(
        session.g, *before, checkOnly,
        [&](const protection::DeletionPlan& plan) { out << protection::describePlan(plan); });
    if (result.outcome == protection::DeletionOutcome::Failed)
        err << "Löschen gescheitert: " << session.cause() << "\n";
    session.finish(out, err);
    switch (result.outcome) {
        case protection::DeletionOutcome::Deleted:
        case protection::DeletionOutcome::Nothing:
        case protection::DeletionOutcome::Checked:
            return kExitOk;
        case protection::DeletionOutcome::Refused:
            return kExitCancelled;
        case protection::DeletionOutcome::Failed:
            return kExitFailed;
    }
    return kExitFailed;
}

int commandProtokoll(const Options& options, const std::vector<std::string>& args,
                     std::ostream& out, std::ostream& err) {
    if (!args.empty()) return badCall(err, "protokoll", "unbekannte Angabe " + args[0] + ".");
    Session session(options, out);
    if (!session.startWithDataStore(err)) return kExitFailed;
    out << "Nr\tZeit\tBenutzer\tAktion\tKriterium\tBetroffen\tAnzahl\n";
    for (const auto& e : protection::readProtocol(*session.g.stores.db_daten.connection()))
        out << e.nr << "\t" << e.zeit << "\t" << e.benutzer << "\t" << e.aktion << "\t"
            << e.kriterium << "\t" << e.betroffen << "\t" << e.anzahl << "\n";
    session.finish(out, err);
    return kExitOk;
}

}  // namespace tolma::cli
