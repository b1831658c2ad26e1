#include "transfer/export_form.h"

#include <cstdio>

#include "core/version.h"
#include "store/connection.h"
#include "store/jet_sql.h"
#include "text/text.h"

namespace tolma::transfer {
namespace {

std::string formatNow(const core::Globals& g, const char* format) {
    return text::localTime(g.clock(), format);
}

// The program's minor version, its digits joined by points: 151 is "1.5.1".
std::string tmlVersion() {
    const std::string digits = std::to_string(core::kVersionMinor);
    std::string out;
    for (size_t i = 0; i < digits.size() && i < 3; ++i) out += (i ? "." : "") + digits.substr(i, 1);
    return out;
}

}  // namespace

VerwaltungsblockForm Frm_Verwaltungsblock_Load(core::Globals& g) {
    VerwaltungsblockForm f;
    const std::array<std::pair<const char*, const char*>, 15> boxes = {{
        {"Verarbeitungsart:", "verarbeitungsart"},
        {"Struktur:", "struktur"},
        {"Erstelldatum:", "erstelldatum"},
        {"Erstellzeit:", "erstellzeit"},
        {"Ersteller:", "ersteller"},
        {"Ersteller-ID:", "ersteller-id"},
        {"Erstellquelle:", "erstellquelle"},
        {"Ersteller-Email:", "ersteller-email"},
        {"Berichtszeitraum von: ", "berichts-zeitraum-von"},
        {"Berichtszeitraum bis:", "berichts-zeitraum-bis"},
        {"Zahl Betriebe gesamt:", ""},
        {"Gemeinde-Name:", "gem-name"},
        {"Gemeinde-Kennzahl:", "gem-kz"},
        {"Gemeinde-Telefon:", "gem-telefon"},
        {"TML-Version:", "tml-version"},
    }};
    for (size_t i = 0; i < boxes.size(); ++i) {
        f.Text1[i].label = boxes[i].first;
        f.Text1[i].element = boxes[i].second;
    }
    for (int i : {0, 1, 2, 3, 6, 9, 10, 14}) f.Text1[i].grey = true;
    f.Text1[0].text = "MIGRATION";
    if (g.settings.datenart_wert == core::kBetriebsbezogen ||
        g.settings.datenart_wert == core::kMeldungsbezogen)
        f.Text1[1].text = g.settings.datenart_wert;
    f.Text1[2].text = formatNow(g, "%d.%m.%Y");
    f.Text1[3].text = formatNow(g, "%H.%M.%S");
    f.Text1[6].text = "MIGRATION ACCESS";
    f.Text1[9].text = formatNow(g, "%d.%m.%Y");
    f.Text1[14].text = tmlVersion();

    f.Check1[3] = {"Gesamter Datenbestand", true, false, 1};
    f.Check1[2] = {"Export nach Datum", false, true, 0};
    f.Check1[1] = {"Export nach Gemeinden", false, true, 0};
    f.Check1[0] = {"Export nach Schlüssel", false, true, 0};
    try {
        const long n = g.stores.db_daten.OpenRecordset("betrieb").RecordCount();
        if (n > 0) {
            f.Text1[10].text = std::to_string(n);
        } else {
            f.Text1[10].text = "keine Sätze vorhanden!";
            f.Text1_10_red = true;
        }
        // Whether the key query has a row at all: the first business with a key tells, where
        // the query itself sorts every business by its key.
        const auto connection = g.stores.db_daten.connection();
        const auto any = connection->prepare(
            "SELECT EXISTS (" +
            store::jet::translate("SELECT betrieb.schluesselfeld FROM betrieb WHERE "
                                  "(betrieb.schluesselfeld<>'')",
                                  &connection->catalog()) +
            ")");
        f.Check1[0].visible = any->step() && any->column(0).toInteger() != 0;
    } catch (const std::exception&) {
        f.Text1[10].text = "keine Sätze vorhanden!";
        f.Text1_10_red = true;
    }
    return f;
}

ExportResult Frm_Verwaltungsblock_Command1_Click(core::Globals& g, VerwaltungsblockForm& form,
                                                 int index) {
    ExportResult result;
    if (index == 0) {
        auto& v = g.forms.startView;
        v.Image2Visible = true;
        v.SSTab1Visible = false;
        v.Frame_AnzahlVisible = false;
        v.Frame_UeberschriftVisible = false;
        g.shell->refreshView();
        const std::string mode = form.Check1[0].value == 1 ? "schluesselfeld" : "";
        v.MDIForm1Enabled = false;
        result = TML_Exp_1(g, form, mode);
        v.MDIForm1Enabled = true;
        g.shell->refreshView();
    }
    if (index == 0 || index == 1) {
        g.shell->unloadForm("Frm_Verwaltungsblock");
        g.forms.marks.menue_export_textdatei = false;  // the form's unload clears its mark
    }
    return result;
}

std::string headDate(const std::string& text) {
    int d = 0, m = 0, y = 0, used = 0;
    if (std::sscanf(text.c_str(), "%2d.%2d.%4d%n", &d, &m, &y, &used) != 3 ||
        used != static_cast<int>(text.size()) || y < 100)
        return text;
    static const int days[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
    if (m < 1 || m > 12 || d < 1 || d > days[m - 1] || (m == 2 && d == 29 && !leap)) return text;
    char buf[40];
    std::snprintf(buf, sizeof buf, "%04d%02d%02d", y, m, d);
    return buf;
}

}  // namespace tolma::transfer
