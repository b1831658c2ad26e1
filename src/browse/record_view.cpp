#include "browse/record_view.h"

#include <cstdlib>

#include "core/error_log.h"
#include "model/values.h"
#include "store/jet_sql.h"
#include "text/text.h"

namespace tolma::browse {
namespace {

using store::jet::quote;

// A field of a control's current row as text; empty without a current row.
std::string currentText(const DataControl& c, const std::string& field) {
    return c.fieldText(field);
}

// Without a count, which reads a server's whole table: a recordset without rows stands at its
// beginning and its end at once.
bool hasRows(const DataControl& c) {
    return c.Recordset().isSet() && !(c.Recordset().Bof() && c.Recordset().Eof());
}

// Val() of the old platform: the leading number of a text.
long leadingNumber(const std::string& text) {
    return std::strtol(text.c_str(), nullptr, 10);
}

// A text that reads wholly as a number, and that number.
bool readsAsNumber(const std::string& text, double& number) {
    const char* begin = text.c_str();
    char* end = nullptr;
    number = std::strtod(begin, &end);
    if (end == begin) return false;
    while (*end == ' ') ++end;
    return *end == '\0';
}

// Gives a data control a query and runs it; the moves make the count whole.
void requery(core::Globals& g, DataControl& c, const std::string& query, bool moves) {
    c.DatabaseName = g.stores.db_name_daten;
    c.RecordSource = query;
    c.Refresh();
    if (moves && c.Recordset().RecordCount() != 0) {
        c.Recordset().MoveLast();
        c.Recordset().MoveFirst();
    }
}

}  // namespace

std::string counterCaption(const store::Recordset& rs) {
    if (!rs.isSet() || rs.RecordCount() < 1) return "0";
    return "Satz " + std::to_string(rs.AbsolutePosition() + 1) + " von " +
           std::to_string(rs.RecordCount());
}

void installRepositionHandlers(core::Globals& g) {
    auto& d = dataControls(g);
    for (DataControl* c : {&d.DATA_ADR, &d.DATA_BETRErl, &d.DATA_BETRHwk, &d.DATA_Meld,
                           &d.DATA_PERSErl, &d.DATA_PERSHwk, &d.DATA_PERSStaat})
        c->Reposition = [c] { c->Caption = counterCaption(c->Recordset()); };
    d.DATA_BETR.Reposition = [&g] { DATA_BETR_Reposition(g); };
    d.DATA_TAET.Reposition = [&g] { DATA_TAET_Reposition(g); };
    d.DATA_PERS.Reposition = [&g] { DATA_PERS_Reposition(g); };
}

void DATA_BETR_Reposition(core::Globals& g) {
    if (!hasRows(dataControls(g).DATA_BETR)) return;
    static const char* texts[] = {"normale Korrekturmeldung",
                                  "Rechtsformänderung",
                                  "Eintritt gesetzl. Vertr. bei KapG",
                                  "Austritt gesetzl. Vertr. bei KapG",
                                  "Adressänderung",
                                  "Personenänderung",
                                  "Registerdatenänderung"};
    const std::string korr = currentText(dataControls(g).DATA_BETR, "korr-meld");
    // Any other value keeps the text of the record shown before.
    for (int i = 0; i < 7; ++i)
        if (korr == std::to_string(i + 1)) {
            g.forms.startView.Text_Korrekturmeldung = texts[i];
            break;
        }
}

void DATA_TAET_Reposition(core::Globals& g) {
    DataControl& c = dataControls(g).DATA_TAET;
    if (!c.Recordset().isSet() || c.Recordset().RecordCount() < 1) {
        c.Caption = "0";  // the decoded boxes keep what they showed
        return;
    }
    c.Caption = counterCaption(c.Recordset());
    double number = 0;
    const std::string schwerp = currentText(c, "tk-schwerp");
    if (schwerp == "0")
        g.forms.startView.Text_Schwerpunkt = "nein";
    else if (readsAsNumber(schwerp, number) && number == 1)
        g.forms.startView.Text_Schwerpunkt = "ja";
    else
        g.forms.startView.Text_Schwerpunkt.clear();
    const std::string ummeldung = currentText(c, "tk-ummeldung");
    if (ummeldung == "1")
        g.forms.startView.Text_Ummeldung = "neue Tätigkeit";
    else if (readsAsNumber(ummeldung, number) && number == 2)
        g.forms.startView.Text_Ummeldung = "Tätigkeit wird weiterhin ausgeübt";
    else
        g.forms.startView.Text_Ummeldung.clear();
}

void DATA_PERS_Reposition(core::Globals& g) {
    auto& d = dataControls(g);
    if (!hasRows(d.DATA_BETR)) return;
    const std::string betrNr = currentText(d.DATA_BETR, "betr-nr");
    const std::string hist = currentText(d.DATA_BETR, "betr-hist-nr");
    std::string persNr;
    const store::Recordset& pers = d.DATA_PERS.Recordset();
    const bool persons = pers.isSet() && pers.RecordCount() != 0;
    if (persons && !pers.Eof() && !pers.Bof()) persNr = pers.Fields(0).Value().toString();

    if (text::trimBlanks(g.view.akt_funktion).empty())
        g.view.sql_text =
            "SELECT DISTINCTROW * FROM beziehung_betrieb_person WHERE "
            "beziehung_betrieb_person.[bez-betr-nr] = " +
            quote(betrNr) + " AND beziehung_betrieb_person.[bez-pers-nr] = " + quote(persNr) +
            " AND beziehung_betrieb_person.[bez-betr-hist-nr] = " + quote(hist) + " ";
    else
        g.view.sql_text =
            "SELECT DISTINCTROW * FROM beziehung_betrieb_person WHERE "
            "beziehung_betrieb_person.[bez-betr-nr] = " +
            quote(betrNr) + " AND beziehung_betrieb_person.[bez-pers-nr] = " + quote(persNr) +
            " AND beziehung_betrieb_person.[p-funktion] = " + quote(g.view.akt_funktion) +
            " AND beziehung_betrieb_person.[bez-betr-hist-nr] = " + quote(hist) + " ";
    requery(g, d.DATA_Bez_Betr_Pers, g.view.sql_text, false);

    g.view.sql_text =
        "SELECT DISTINCTROW * FROM person_staatsang WHERE person_staatsang.[pers-nr] = " +
        quote(persNr) + " ";
    requery(g, d.DATA_PERSStaat, g.view.sql_text, true);
    g.view.sql_text =
        "SELECT DISTINCTROW * FROM person_erlaubnis WHERE person_erlaubnis.[pers-nr] = " +
        quote(persNr) + " AND person_erlaubnis.[betr-nr] = " + quote(betrNr);
    requery(g, d.DATA_PERSErl, g.view.sql_text, true);
    g.view.sql_text =
        "SELECT DISTINCTROW * FROM person_handwerkskarte WHERE person_handwerkskarte.[pers-nr] = " +
        quote(persNr) + " AND person_handwerkskarte.[betr-nr] = " + quote(betrNr);
    requery(g, d.DATA_PERSHwk, g.view.sql_text, true);

    g.forms.startView.TextPers_8.clear();
    if (persons && hasRows(d.DATA_Bez_Betr_Pers)) {
        const store::Variant funktion =
            d.DATA_Bez_Betr_Pers.Recordset().Fields("p-funktion").Value();
        if (!funktion.isNull()) {
            static const char* texts[] = {"Einzelgewerbetreibender",
                                          "Geschäftsführender Gesellschafter",
                                          "Gesetzlicher Vertreter", "Inhaber"};
            const long n = leadingNumber(funktion.toString());
            if (n >= 1 && n <= 4) g.forms.startView.TextPers_8 = texts[n - 1];
        }
    }
    g.shell->refreshView();
    d.DATA_PERS.Caption = counterCaption(pers);
}

void DB_Load_DATA(core::Globals& g, const std::string& gemKz, const std::string& betrNr,
                  const std::string& betrHistNr, const std::string& /*text*/) {
    auto& d = dataControls(g);
    g.log.akt_schritt = 0;
    try {
        d.DATA_BETR.RecordSource =
            "SELECT DISTINCTROW * FROM betrieb WHERE betrieb.[gem-kz] = " + quote(gemKz) +
            " AND betrieb.[betr-nr] = " + quote(betrNr) +
            " AND betrieb.[betr-hist-nr] = " + quote(betrHistNr) + ";";
        d.DATA_BETR.Refresh();
        if (d.DATA_BETR.Recordset().RecordCount() == 0) return;
        // From here on the row's own municipality names the municipality.
        const std::string gem = currentText(d.DATA_BETR, "gem-kz");
        d.DATA_ORG.RecordSource =
            "SELECT ALL * From gemeindekennzahlen WHERE [gem-kz] = " + quote(gem) + " ;";
        // The recordset of the previous load is still there until the Refresh below.
        if (d.DATA_ORG.Recordset().isSet() && d.DATA_ORG.Recordset().RecordCount() != 0)
            g.forms.startView.Text_136 = currentText(d.DATA_ORG, "gem-name");
        d.DATA_ORG.Refresh();
        g.forms.startView.Text_136 = currentText(d.DATA_ORG, "gem-name");

        const std::string nr = betrNr, hist = betrHistNr;
        const std::pair<const char*, DataControl*> blocks[] = {
            {"betrieb_meldgrundsonst", &d.DATA_Meld},    {"betrieb_adresse", &d.DATA_ADR},
            {"betrieb_erlaubnis", &d.DATA_BETRErl},      {"betrieb_taetigkeit", &d.DATA_TAET},
            {"betrieb_handwerkskarte", &d.DATA_BETRHwk},
        };
        for (const auto& [table, control] : blocks) {
            const std::string t = table;
            g.view.sql_text = "SELECT DISTINCTROW * FROM " + t + " WHERE " + t +
                              ".[betr-nr] = " + quote(nr) + " AND " + t +
                              ".[betr-hist-nr] = " + quote(hist) + " ;";
            requery(g, *control, g.view.sql_text, true);
        }
        // Representatives of a legal person stay out: they are reached through its persons.
        g.view.sql_text =
            "SELECT DISTINCTROW * FROM person INNER JOIN beziehung_betrieb_person ON "
            "person.[pers-nr] = "
            "beziehung_betrieb_person.[bez-pers-nr]WHERE beziehung_betrieb_person.[bez-betr-nr]= " +
            quote(nr) + " AND beziehung_betrieb_person.[bez-betr-hist-nr]= " + quote(hist) +
            " AND (len(beziehung_betrieb_person.[pers-nr-jp]) = 0 OR "
            "len(beziehung_betrieb_person.[pers-nr-jp]) "
            "is Null )ORDER BY person.[pers-nr];";
        requery(g, d.DATA_PERS, g.view.sql_text, true);
    } catch (const std::exception& e) {
        const auto info = core::describeError(e);
        core::A_Error_Log(g, "DB_Load_DATA", info.source, std::to_string(info.number), info.text,
                          "BetriebsNummer: ", betrNr);
    }
    g.shell->refreshView();
}

void SSTab1_Click(core::Globals& g, int tab) {
    if (tab < 0 || tab > 5) return;
    g.forms.startView.SSTab1Tab = tab;
    g.forms.startView.Label2 = kTabLabels[tab];
    g.forms.startView.Frame_AnzahlVisible = tab >= 3;
    g.forms.startView.DATA_PERSVisible = tab >= 3;
    g.shell->refreshView();
}

void Form_KeyPress(core::Globals& g, int key) {
    g.view.taste = static_cast<std::int16_t>(key);
}

}  // namespace tolma::browse
