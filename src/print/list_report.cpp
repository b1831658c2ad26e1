#include "print/list_report.h"

#include "core/error_log.h"
#include "model/values.h"

namespace tolma::print {
namespace {

// What differs between the two lists.
struct ListKind {
    const char* dialogTitle;
    const char* pageHead;
    const char* columnLine;
    double indentShare;  // the continuation stands at ScaleWidth / this
};
const ListKind kBusinessList = {
    "Betriebsdaten drucken!", "Betriebsliste     Seite: ",
    "LfdNr - Gemeindenummer - Betriebsnummer - Betriebshistoriennummer - Betriebsname", 3};
const ListKind kPersonList = {
    "Personendaten drucken!", "Personenliste     Seite: ",
    "LfdNr - PersonenNr. - BetriebsNr. - BetriebshistorienNr. - Name(jP) - Name(nP) - Betriebsname",
    2.2};

const ListKind& kindOf(const browse::ListForm& form) {
    return form.persons ? kPersonList : kBusinessList;
}

// The list handlers have no trap of their own: a failure is logged as the program's.
template <class Body>
void guarded(core::Globals& g, const browse::ListForm& form, Body&& body) {
    try {
        body();
    } catch (const std::exception& e) {
        core::logTrapped(g, std::string(form.name()) + ".Command1_Click", e);
    }
}

std::string text(const store::Recordset& rs, const char* field) {
    return rs.Fields(field).Value().toString();
}

}  // namespace

std::string alignRight(const std::string& text, int width) {
    const long long n = model::characterCount(text);
    return n >= width ? text : std::string(static_cast<size_t>(width - n), ' ') + text;
}

std::string listLine(const browse::ListForm& form, long number) {
    const store::Recordset& rs = form.data.Recordset();
    const char* histField = form.persons ? "betr-hist-nr" : "betrieb.betr-hist-nr";
    const store::Variant hist = rs.Fields(histField).Value();
    // A Null adds nothing, not even the mask's blanks.
    const std::string h = hist.isNull() ? std::string() : alignRight(hist.toString(), 4);
    const std::string n = alignRight(std::to_string(number), 6);
    if (!form.persons)
        return n + " - " + text(rs, "gem-kz") + " - " + text(rs, "betrieb.betr-nr") + " - " + h +
               " - " + text(rs, "b-eintr-name");
    return n + " - " + text(rs, "pers-nr") + " - " + text(rs, "betr-nr") + " - " + h + " - " +
           text(rs, "p-eintr-name") + " - " + text(rs, "fam-name") + " - " + "Fa. " +
           text(rs, "b-eintr-name");
}

void printListLine(core::Globals& g, PrintState& d, const std::string& line, double indent) {
    if (model::characterCount(line) < 117) {
        DS_Druck_Zeile(g, d, line);
        return;
    }
    DS_Druck_Zeile(g, d, model::firstCharacters(line, 116));
    std::string rest = model::mid(line, 117, model::characterCount(line));
    auto printIndented = [&](const std::string& piece) {
        d.printer().setCurrentX(indent);
        DS_Druck_Zeile(g, d, piece);
    };
    if (model::characterCount(rest) < 61) {
        printIndented(rest);
        return;
    }
    while (model::characterCount(rest) >= 61) {
        printIndented(model::firstCharacters(rest, 60));
        rest = model::mid(rest, 61, model::characterCount(rest));
    }
    if (model::characterCount(rest) >= 1) printIndented(rest);
}

void printRecordOfRow(core::Globals& g, PrintState& d, browse::ListForm& form) {
    guarded(g, form, [&] {
        store::Recordset& rs = form.data.Recordset();
        // Only the business list tests for a row; the person list fails reading it.
        if (!form.persons && (!rs.isSet() || rs.Eof())) return;
        if (Druck_Dialog(g, d, kindOf(form).dialogTitle) >= 1) return;
        if (!form.persons) {
            DS_Druck_1(g, d, "Betrieb", text(rs, "betrieb.betr-nr"),
                       text(rs, "betrieb.betr-hist-nr"), "");
            return;
        }
        const std::string nr = text(rs, "betr-nr"), hist = text(rs, "betr-hist-nr"),
                          pers = text(rs, "pers-nr");
        DS_Druck_1(g, d, "Person", nr, hist, pers);
    });
}

void printList(core::Globals& g, PrintState& d, browse::ListForm& form) {
    guarded(g, form, [&] {
        store::Recordset& rs = form.data.Recordset();
        if (!form.persons && (!rs.isSet() || rs.Eof())) return;
        const ListKind& kind = kindOf(form);
        if (Druck_Dialog(g, d, kind.dialogTitle) >= 1) return;
        long number = 0;
        const long kept = rs.AbsolutePosition();
        d.druck_ok = -1;
        Printer& p = d.printer();
        p.font.name = "Courier New";
        p.font.size = 12;
        p.font.underline = true;
        p.font.bold = true;
        d.druck_kopf = kind.pageHead;
        DS_Druck_Zeile(g, d, d.druck_kopf + std::to_string(p.Page()));
        // The head blocks differ in one place: the business list's first empty line is bold.
        if (!form.persons) DS_Druck_Zeile(g, d, "");
        p.font.underline = false;
        p.font.bold = false;
        if (form.persons) DS_Druck_Zeile(g, d, "");
        p.font.size = 8;
        DS_Druck_Zeile(g, d, "");
        DS_Druck_Zeile(g, d, kind.columnLine);
        DS_Druck_Zeile(g, d, "");
        const double indent = p.ScaleWidth() / kind.indentShare;
        for (rs.MoveFirst(); !rs.Eof(); rs.MoveNext()) {
            ++number;
            printListLine(g, d, listLine(form, number), indent);
        }
        p.EndDoc();
        rs.setAbsolutePosition(kept);
        // The font is not put back.
    });
}

}  // namespace tolma::print
