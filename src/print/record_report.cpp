#include "print/record_report.h"

#include <cctype>
#include <cmath>

#include "core/error_log.h"
#include "model/values.h"
#include "store/jet_sql.h"
#include "text/text.h"

namespace tolma::print {
namespace {

using store::jet::quote;

// A trapped failure of this module: "Fehlerortung: " and the module's own error location.
void logPrintError(core::Globals& g, const std::string& procedure, const std::exception& e,
                   std::int16_t location) {
    const core::ErrorInfo info = core::describeError(e);
    core::A_Error_Log(g, procedure, info.source, std::to_string(info.number), info.text,
                      "Fehlerortung: ", std::to_string(location));
}

// The business tables in their printed order, with the table handle each query is kept in.
struct BusinessTable {
    const char* name;
    store::Recordset core::OpenStores::*handle;
};
constexpr BusinessTable kBusinessTables[] = {
    {"betrieb", &core::OpenStores::rs_betrieb},
    {"betrieb_meldgrundsonst", &core::OpenStores::rs_meldgrund},
    {"betrieb_adresse", &core::OpenStores::rs_adresse},
    {"betrieb_erlaubnis", &core::OpenStores::rs_erlaubnis},
    {"betrieb_handwerkskarte", &core::OpenStores::rs_handwerkskarte},
    {"betrieb_taetigkeit", &core::OpenStores::rs_taetigkeit},
};

std::string businessQuery(const std::string& table, const std::string& nr,
                          const std::string& hist) {
    return "SELECT distinctrow * From " + table + " " + "WHERE " + table +
           ".[betr-nr] = " + quote(nr) + " " + "AND " + table + ".[betr-hist-nr] = " + quote(hist);
}

// Query P; the person's own term only for the kind "Person".
std::string personQuery(const std::string& nr, const std::string& hist, const std::string* persNr) {
    std::string q = std::string("SELECT DISTINCTROW * FROM person ") +
                    "INNER JOIN beziehung_betrieb_person ON beziehung_betrieb_person.[bez-pers-nr] "
                    "= person.[pers-nr] " +
                    "WHERE beziehung_betrieb_person.[bez-betr-nr] = " + quote(nr) + " " +
                    "AND beziehung_betrieb_person.[bez-betr-hist-nr] = " + quote(hist) + " ";
    if (persNr) q += "AND person.[pers-nr] = " + quote(*persNr) + " ";
    return q;
}

// The person tables with their queries; permits and craft cards of every history number.
struct PersonTable {
    const char* name;
    store::Recordset core::OpenStores::*handle;
    std::string (*query)(const std::string& persNr, const std::string& nr);
};
const PersonTable kPersonTables[] = {
    {"person_staatsang", &core::OpenStores::rs_person_staatsang,
     [](const std::string& p, const std::string&) {
         return std::string("SELECT distinctrow * ") + "From person_staatsang " +
                "WHERE person_staatsang.[pers-nr] = " + quote(p);
     }},
    {"person_erlaubnis", &core::OpenStores::rs_person_erlaubnis,
     [](const std::string& p, const std::string& nr) {
         return std::string("SELECT distinctrow * ") + "From person_erlaubnis " +
                "WHERE person_erlaubnis.[pers-nr] = " + quote(p) + " " +
                "AND person_erlaubnis.[betr-nr] = " + quote(nr);
     }},
    {"person_handwerkskarte", &core::OpenStores::rs_person_handwerkskarte,
     [](const std::string& p, const std::string& nr) {
         return std::string("SELECT distinctrow * ") + "From person_handwerkskarte " +
                "WHERE person_handwerkskarte.[pers-nr] = " + quote(p) + " " +
                "AND person_handwerkskarte.[betr-nr] = " + quote(nr);
     }},
};

// A date column's value "YYYY-MM-DD..." as "DD.MM.YYYY"; another form stays as it is.
std::string formatDate(const std::string& value) {
    if (value.size() >= 10 && value[4] == '-' && value[7] == '-')
        return value.substr(8, 2) + "." + value.substr(5, 2) + "." + value.substr(0, 4);
    return value;
}

bool isGermanDate(const std::string& v) {
    auto digits = [&](size_t from, size_t n) {
        for (size_t i = from; i < from + n; ++i)
            if (v[i] < '0' || v[i] > '9') return false;
        return true;
    };
    return v.size() == 10 && v[2] == '.' && v[5] == '.' && digits(0, 2) && digits(3, 2) &&
           digits(6, 4);
}

// The head of a new page, as DS_Druck_Zeile prints it before the line that did not fit.
void newPageWithHead(PrintState& d, Printer& p) {
    p.NewPage();
    const double size = p.font.size;
    p.font.size = 12;
    p.font.underline = true;
    p.font.bold = true;
    p.Print(d.druck_kopf + std::to_string(p.Page()));
    p.font.bold = false;
    p.font.underline = false;
    p.font.size = size;
    p.Print("");
    d.savedY = p.CurrentY();
    // The mark is already turned for the field being printed: "vorne" means a right-column
    // field, which goes on in the right column of the new page.
    if (d.spalte == ColumnMark::vorne) p.setCurrentX(d.savedX);
}

// A field too wide for its column: the label alone, then the text in pieces at the field's X.
void wrapField(core::Globals& g, PrintState& d, Printer& p, const std::string& name) {
    DS_Druck_Zeile(g, d, "   " + name + ":     ");
    const std::string text = d.feldText;
    const double half = p.ScaleWidth() / 2;
    if (half == 0) throw core::RuntimeError(11, "Division durch Null");
    const long long pieces = static_cast<long long>(std::floor(p.TextWidth(text) / half)) + 1;
    const long long share = 1 + static_cast<long long>(std::floor(
                                    static_cast<double>(model::characterCount(text)) / pieces - 1));
    long long start = 1, length = share;
    for (long long k = 0; k < pieces; ++k) {
        const std::string piece = model::mid(text, start, length);
        if (!text::trimBlanks(piece).empty()) {
            p.setCurrentX(d.savedX);
            DS_Druck_Zeile(g, d, "   " + piece);
        }
        // The length grows with the start, so that later pieces reach further than one share.
        start += share;
        length = share + start;
    }
    if (d.spalte == ColumnMark::mitte) d.spalte = ColumnMark::vorne;
    d.savedY = p.CurrentY();
}

}  // namespace

Printer& PrintState::printer() const {
    if (!source)
        throw core::RuntimeError(kPrinterError, "Druckerfehler: kein Drucker eingerichtet");
    return source->present();
}

std::int16_t Druck_Dialog(core::Globals& g, PrintState& d, const std::string& title) {
    int n = 0;
    try {
        n = d.source ? d.source->ShowPrinter(title) : static_cast<int>(kPrinterError);
    } catch (const std::exception& e) {
        n = static_cast<int>(core::describeError(e).number);
        if (n <= 0) n = static_cast<int>(kPrinterError);
    }
    if (n != kDialogCancelled && n > 0)
        core::showMessage(g, "Es ist ein Druckerfehler aufgetreten! " + std::to_string(n),
                          core::msg::vbInformation, title);
    return static_cast<std::int16_t>(n);
}

void DS_Druck_Zeile(core::Globals& g, PrintState& d, const std::string& text) {
    d.fehlerort = 0;
    if (d.druck_ok != -1) {
        // One box for each line the report goes on to print.
        core::showMessage(g, "", core::msg::vbInformation, "Druckerfehler!");
        return;
    }
    try {
        Printer& p = d.printer();
        // Only the start of the line is compared; no line is measured.
        if (p.ScaleHeight() - 300 < p.CurrentY()) newPageWithHead(d, p);
        p.Print(text);
    } catch (const std::exception& e) {
        d.druck_ok = 0;
        logPrintError(g, "DS_Druck_1", e, d.fehlerort);
    }
}

std::string functionName(const store::Variant& value) {
    static const char* functions[] = {"Einzelgewerbetreibender",
                                      "Geschäftsführender Gesellschafter", "Gesetzlicher Vertreter",
                                      "Inhaber"};
    const double n = value.toReal();
    for (int k = 1; k <= 4; ++k)
        if (n == k) return functions[k - 1];
    return {};
}

std::string reportFieldText(core::Globals& g, const std::string& name, int type,
                            const store::Variant& value, const std::string& previous) {
    const std::string text = value.toString();
    if (value.isNull() || text.empty()) return {};
    if (type == store::dao::dbDate) return formatDate(text);
    // Every import stores a birth date as "DD.MM.YYYY"; read as year-month-day it would print
    // garbled on the paper a citizen is given.
    if (name == "geb-datum" && isGermanDate(text)) return text;
    if (name == "geb-datum")
        return model::mid(text, 7, 2) + "." + model::mid(text, 5, 2) + "." + model::mid(text, 1, 4);
    if (name != "p-funktion") return text;
    if (std::string function = functionName(value); !function.empty()) return function;
    // No known function: the record view's box is emptied and the text stays what it was.
    g.forms.startView.TextPers_8.clear();
    return previous;
}

void DS_Druck_2(core::Globals& g, PrintState& d, store::Recordset& rs, const std::string& tableName,
                int number) {
    d.fehlerort = 0;
    try {
        long row = 0;
        // A table without rows leaves no trace on paper, not even its heading.
        if (rs.RecordCount() == 0) return;
        if (number == 0) {
            rs.MoveLast();
            rs.MoveFirst();
        }
        Printer& p = d.printer();
        while (!rs.Eof()) {
            ++row;
            p.font.size = 10;
            p.setCurrentX(0);
            d.spalte = ColumnMark::vorne;
            DS_Druck_Zeile(g, d, "");
            p.font.bold = true;
            std::string heading = "    Tabellenname: ''" + tableName + "''";
            if (number >= 1)
                heading += " Nr. " + std::to_string(number);
            else if (rs.RecordCount() > 1)
                heading += " Nr. " + std::to_string(row);
            DS_Druck_Zeile(g, d, heading);
            p.font.bold = false;
            p.font.size = 8;
            // The record view's activity control is cut to its first eleven fields; a query
            // opened here never bears that name.
            const int last = text::upperAscii(rs.Name()) == "DATA_TAET" ? 10 : rs.FieldCount() - 1;
            if (d.druck_ok == 0) return;
            p.font.size = 8;
            DS_Druck_Zeile(g, d, "");
            d.spalte = ColumnMark::vorne;
            for (int i = 0; i <= last; ++i) {
                d.feldIndex = i;
                if (d.spalte == ColumnMark::mitte) {
                    p.setCurrentX(p.ScaleWidth() / 2);
                    p.setCurrentY(d.savedY);
                    d.spalte = ColumnMark::vorne;
                } else {
                    d.spalte = ColumnMark::mitte;
                }
                d.savedY = p.CurrentY();
                d.savedX = p.CurrentX();
                const store::Field field = rs.Fields(i);
                const std::string& name = field.Name();
                d.feldText = reportFieldText(g, name, field.Type(), field.Value(), d.feldText);
                const std::string line = "   " + name + ":     " + d.feldText;
                if (p.TextWidth(line) <= p.ScaleWidth() / 2)
                    DS_Druck_Zeile(g, d, line);
                else
                    wrapField(g, d, p, name);
            }
            if (number != 0) return;  // only the current row is wanted
            rs.MoveNext();
        }
    } catch (const std::exception& e) {
        logPrintError(g, "DS_Druck_2", e, d.fehlerort);
    }
}

void DS_Druck_1(core::Globals& g, PrintState& d, const std::string& kind, const std::string& betrNr,
                const std::string& betrHistNr, const std::string& persNr) {
    d.fehlerort = 0;
    d.druck_ok = -1;
    try {
        Printer& p = d.printer();
        d.druck_schriftgroesse = p.font.size;
        d.druck_schriftname = p.font.name;
        p.font.size = 8;
        p.font.name = "Courier New";
        const std::string nr = betrNr, hist = betrHistNr;
        // The first page's head, then the heading of the report's first part.
        auto head = [&](const std::string& label, const std::string& number, const char* heading) {
            p.font.size = 12;
            p.font.bold = true;
            p.font.underline = true;
            d.druck_kopf = label + number + "     Seite: ";
            DS_Druck_Zeile(g, d, d.druck_kopf + std::to_string(p.Page()));
            DS_Druck_Zeile(g, d, "");
            p.font.underline = false;
            DS_Druck_Zeile(g, d, heading);
            p.font.size = 8;
            p.font.bold = false;
        };
        if (kind == "Betrieb") {
            head("Betriebsnummer: ", betrNr, "  Betriebs-Datei");
            for (const auto& table : kBusinessTables) {
                // The handle keeps the query when the report has ended.
                store::Recordset& rs = g.stores.*(table.handle);
                rs = g.stores.db_daten.OpenRecordset(businessQuery(table.name, nr, hist));
                DS_Druck_2(g, d, rs, table.name, 0);
            }
            p.font.size = 12;
            DS_Druck_Zeile(g, d, "");
            DS_Druck_Zeile(g, d, "  Personen-Datei");  // not bold here
            p.font.size = 8;
            g.view.sql_text = personQuery(nr, hist, nullptr);
        }
        if (kind == "Person") {
            head("Personennummer: ", persNr, "  Personen-Datei");
            const std::string pers = persNr;
            g.view.sql_text = personQuery(nr, hist, &pers);
        }
        g.stores.rs_person = g.stores.db_daten.OpenRecordset(g.view.sql_text);
        store::Recordset& persons = g.stores.rs_person;
        if (!persons.Eof()) {
            persons.MoveLast();
            persons.MoveFirst();
            int counter = 0;
            while (!persons.Eof()) {
                // A single person gets -1, so that its heading carries no number.
                if (persons.RecordCount() < 2)
                    --counter;
                else
                    ++counter;
                const std::string person = persons.Fields("pers-nr").Value().toString();
                DS_Druck_2(g, d, persons, "person", counter);
                for (const auto& table : kPersonTables) {
                    store::Recordset& rs = g.stores.*(table.handle);
                    rs = g.stores.db_daten.OpenRecordset(table.query(person, nr));
                    DS_Druck_2(g, d, rs, table.name, 0);
                }
                persons.MoveNext();
            }
        }
        p.EndDoc();
        p.font.size = d.druck_schriftgroesse;
        p.font.name = d.druck_schriftname;
    } catch (const std::exception& e) {
        // Left without EndDoc and with the report's font.
        logPrintError(g, "DS_Druck_1", e, d.fehlerort);
    }
}

}  // namespace tolma::print
