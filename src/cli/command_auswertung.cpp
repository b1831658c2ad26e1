#include <QGuiApplication>

#include <ostream>

#include "cli/cli.h"
#include "cli/session.h"
#include "core/error_log.h"
#include "core/output_file.h"
#include "evaluation/evaluation.h"
#include "print/qt/evaluation_paint.h"
#include "print/qt/painter_printer.h"

namespace tolma::cli {
namespace {

const char* kUsage =
    "Aufruf: tolma-cli [--home VERZEICHNIS] auswertung [--von MONAT] [--bis MONAT] [--gruppe "
    "wz|gemeinde|rechtsform|grund]\n"
    "        [--gemeinde KZ] [--csv DATEI] [--pdf DATEI] [--png DATEI]\n"
    "MONAT als MM.JJJJ oder JJJJ-MM\n";

}  // namespace

int commandAuswertung(const Options& options, const std::vector<std::string>& args,
                      std::ostream& out, std::ostream& err) {
    std::optional<evaluation::Month> from, to;
    evaluation::Query query;
    std::string csv, pdf, png;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (i + 1 >= args.size()) {
            err << kUsage;
            return kExitUsage;
        }
        const std::string& value = args[++i];
        if (a == "--von" || a == "--bis") {
            const auto month = evaluation::parseMonth(value);
            if (!month) {
                err << evaluation::badMonthMessage(value) << "\n";
                return kExitUsage;
            }
            (a == "--von" ? from : to) = month;
        } else if (a == "--gruppe") {
            const auto grouping = evaluation::parseGrouping(value);
            if (!grouping) {
                err << "Unbekannte Gruppierung: '" << value
                    << "' (wz, gemeinde, rechtsform oder grund).\n";
                return kExitUsage;
            }
            query.grouping = *grouping;
        } else if (a == "--gemeinde") {
            query.scope = evaluation::Query::Scope::One;
            query.municipality = value;
        } else if (a == "--csv") {
            csv = value;
        } else if (a == "--pdf") {
            pdf = value;
        } else if (a == "--png") {
            png = value;
        } else {
            err << kUsage;
            return kExitUsage;
        }
    }
    if (from && to && *to < *from) {
        err << "Ungültiger Zeitraum: der Beginn liegt nach dem Ende.\n";
        return kExitUsage;
    }
    Session session(options, out);
    if (!session.start(err)) return kExitFailed;
    core::Globals& g = session.g;
    if (!g.stores.db_daten.isSet()) {
        err << "Die Datenbank ist nicht geöffnet: " << session.cause() << "\n";
        return kExitFailed;
    }
    try {
        const auto period = evaluation::defaultPeriod(g);
        query.from = from ? *from : period.first;
        query.to = to ? *to : period.second;
        const auto sections = evaluation::loadSections(g.paths.dataDir / "wz2008_abschnitte.csv");
        const evaluation::Result result = evaluation::evaluate(g, query, sections);
        out << evaluation::tableText(result);
        // Counts only, no names: the files are readable as the umask allows.
        if (!csv.empty())
            core::writeFileAtomically(csv, evaluation::tableCsv(result), core::FileAccess::Shared);
        if (!pdf.empty() || !png.empty()) {
            auto app = print::ensureGuiApplication();
            if (!pdf.empty()) print::saveEvaluationPdf(pdf, result);
            if (!png.empty()) print::saveEvaluationChart(png, result);
        }
    } catch (const std::exception& e) {
        core::logTrapped(g, "Auswertung", e);
        err << "Die Auswertung ist gescheitert: " << session.cause() << "\n";
        session.finish(out, err);
        return kExitFailed;
    }
    session.finish(out, err);
    return kExitOk;
}

}  // namespace tolma::cli
