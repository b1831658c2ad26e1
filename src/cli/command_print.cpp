#include <QBuffer>
#include <QGuiApplication>
#include <QPdfWriter>
#include <filesystem>
#include <optional>
#include <ostream>
#include <string_view>

#include "browse/list_form.h"
#include "cli/cli.h"
#include "cli/session.h"
#include "core/error_log.h"
#include "core/output_file.h"
#include "print/list_report.h"
#include "print/qt/painter_printer.h"
#include "print/record_report.h"
#include "store/dao_error.h"
#include "store/jet_sql.h"

namespace tolma::cli {
namespace {

using store::jet::quote;

const char* kUsage =
    "Aufruf: tolma-cli [--home VERZEICHNIS] print record --betr-nr N --betr-hist-nr H [--pers-nr "
    "P] --pdf DATEI\n"
    "        tolma-cli [--home VERZEICHNIS] print list betriebe|personen --pdf DATEI\n";

struct Request {
    bool list = false;
    bool persons = false;  // the person list
    std::string betrNr, betrHistNr, persNr, pdf;
};

std::optional<Request> parse(const std::vector<std::string>& args) {
    if (args.empty()) return std::nullopt;
    Request r;
    size_t i = 1;
    if (args[0] == "list") {
        if (args.size() < 2 || (args[1] != "betriebe" && args[1] != "personen"))
            return std::nullopt;
        r.list = true;
        r.persons = args[1] == "personen";
        i = 2;
    } else if (args[0] != "record") {
        return std::nullopt;
    }
    for (; i < args.size(); ++i) {
        if (i + 1 >= args.size()) return std::nullopt;
        const std::string& option = args[i];
        const std::string& value = args[++i];
        if (option == "--pdf")
            r.pdf = value;
        else if (!r.list && option == "--betr-nr")
            r.betrNr = value;
        else if (!r.list && option == "--betr-hist-nr")
            r.betrHistNr = value;
        else if (!r.list && option == "--pers-nr")
            r.persNr = value;
        else
            return std::nullopt;
    }
    if (r.pdf.empty() || (!r.list && (r.betrNr.empty() || r.betrHistNr.empty())))
        return std::nullopt;
    return r;
}

// The PDF file named on the command line is the present printer; there is nothing to choose.
class PdfPrinterSource : public print::PrinterSource {
  public:
    explicit PdfPrinterSource(print::Printer& printer) : printer_(printer) {}
    int ShowPrinter(const std::string&) override { return 0; }
    print::Printer& present() override { return printer_; }

  private:
    print::Printer& printer_;
};

// Bad input is told on the terminal and logged as the program's own error.
int refuse(core::Globals& g, std::ostream& err, const std::string& message, long number,
           const std::string& text, const std::string& where) {
    err << message << "\n";
    core::A_Error_Log(g, "tolma-cli print", "TOLMA_4x_Access", std::to_string(number), text,
                      "Fehlerortung: ", where);
    return kExitFailed;
}

bool exists(core::Globals& g, const std::string& query, const std::string& field) {
    return g.stores.db_daten.lookup(query, field).has_value();
}

std::uintmax_t logSize(const core::Globals& g) {
    std::error_code ec;
    const auto size = std::filesystem::file_size(core::errorLogPath(g.paths), ec);
    return ec ? 0 : size;
}

// The business and person asked for exist, or the list can be opened; else the exit code
// of the refusal, told on `err`.
int checkWhatToPrint(core::Globals& g, const Request& r, browse::ListForm& form,
                     std::ostream& err) {
    if (!r.list) {
        const std::string nr = r.betrNr, hist = r.betrHistNr;
        if (!exists(g,
                    "SELECT [betr-nr] FROM betrieb WHERE [betr-nr] = " + quote(nr) +
                        " AND [betr-hist-nr] = " + quote(hist) + "",
                    "betr-nr"))
            return refuse(g, err,
                          "Betrieb nicht gefunden: Betriebsnummer " + r.betrNr +
                              ", Betriebshistoriennummer " + r.betrHistNr + ".",
                          store::err::kNoCurrentRecord, "Betrieb nicht gefunden",
                          r.betrNr + "/" + r.betrHistNr);
        if (!r.persNr.empty() &&
            !exists(g,
                    "SELECT [bez-pers-nr] FROM beziehung_betrieb_person WHERE [bez-betr-nr] = " +
                        quote(nr) + " AND [bez-betr-hist-nr] = " + quote(hist) +
                        " AND [bez-pers-nr] = " + quote(r.persNr),
                    "bez-pers-nr"))
            return refuse(g, err,
                          "Person nicht gefunden: Personennummer " + r.persNr +
                              " gehört nicht zum Betrieb " + r.betrNr + "/" + r.betrHistNr + ".",
                          store::err::kNoCurrentRecord, "Person nicht gefunden", r.persNr);
    } else {
        // The list of the menu entry, with its start-up query; its messages say why it stays shut.
        const bool shown = r.persons ? browse::menue_suchen_person(g, form)
                                     : browse::menue_suchen_betrieb(g, form);
        if (!shown) {
            err << "Die Liste ist leer oder kann nicht geöffnet werden; es wurde nichts "
                   "gedruckt.\n";
            return kExitFailed;
        }
    }
    return kExitOk;
}

int print(core::Globals& g, const Request& r, std::ostream& out, std::ostream& err) {
    browse::ListForm form(r.persons);
    if (const int refused = checkWhatToPrint(g, r, form, err); refused != kExitOk) return refused;
    const auto cannotWrite = [&](const core::FileWriteError& e) {
        return refuse(
            g, err,
            "Die PDF-Datei kann nicht geschrieben werden: " + r.pdf + " (" + e.cause() + ")",
            e.number(), e.what(), "0");
    };
    // Made before the printing, so that a directory that takes no file is told at once. The
    // reports hold names, addresses and birth dates: readable by the owner only.
    core::OutputFile file;
    try {
        file.open(r.pdf, core::FileAccess::Private);
    } catch (const core::FileWriteError& e) {
        return cannotWrite(e);
    }

    const std::uintmax_t logBefore = logSize(g);
    print::PrintState state;
    // Qt writes its files unchecked: the document is made in memory and written whole.
    QByteArray document;
    {
        const auto app = print::ensureGuiApplication();
        QBuffer buffer(&document);
        buffer.open(QIODevice::WriteOnly);
        QPdfWriter writer(&buffer);
        print::setUpPdfPage(writer);
        print::PainterPrinter printer(writer);
        PdfPrinterSource source(printer);
        state.source = &source;
        if (r.list)
            print::printList(g, state, form);
        else
            print::DS_Druck_1(g, state, r.persNr.empty() ? "Betrieb" : "Person", r.betrNr,
                              r.betrHistNr, r.persNr);
        state.source = nullptr;
    }
    if (state.druck_ok != -1 || logSize(g) != logBefore) {
        err << "Beim Drucken ist ein Fehler aufgetreten; Einzelheiten im Fehlerprotokoll "
            << core::errorLogPath(g.paths) << ".\n";
        return kExitFailed;
    }
    if (document.isEmpty())
        return refuse(
            g, err,
            "Die PDF-Datei kann nicht geschrieben werden: " + r.pdf + " (das Dokument ist leer)",
            75, "Fehler beim Zugriff auf Pfad/Datei: '" + r.pdf + "'", "0");
    try {
        file.write(std::string_view(document.constData(), static_cast<size_t>(document.size())));
        file.commit();
    } catch (const core::FileWriteError& e) {
        return cannotWrite(e);
    }
    out << r.pdf << "\n";
    return kExitOk;
}

}  // namespace

int commandPrint(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                 std::ostream& err) {
    const std::optional<Request> request = parse(args);
    if (!request) {
        err << kUsage;
        return kExitUsage;
    }
    Session session(options, out);
    if (!session.start(err)) return kExitFailed;
    int code = kExitFailed;
    if (!session.g.stores.db_daten.isSet())
        err << "Die Datenbank ist nicht geöffnet; Einzelheiten im Fehlerprotokoll.\n";
    else
        code = print(session.g, *request, out, err);
    session.finish(out, err);
    return code;
}

}  // namespace tolma::cli
