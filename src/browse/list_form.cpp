#include "browse/list_form.h"

#include "browse/record_view.h"
#include "core/error_log.h"
#include "core/menu.h"
#include "store/jet_sql.h"

namespace tolma::browse {
namespace {

using store::jet::quote;

// Pieces of the business list's texts, with their exact blanks.
const std::string A = "SELECT betrieb.*, betrieb_adresse.* ";
const std::string B = "FROM betrieb ";
const std::string C =
    "INNER JOIN betrieb_adresse ON (betrieb.[betr-hist-nr] = betrieb_adresse.[betr-hist-nr]) ";
const std::string D = "AND (betrieb.[betr-nr] = betrieb_adresse.[betr-nr]) ";
const std::string E = "WHERE betrieb_adresse.[b-adr-art] = '1' ";
const std::string F = "AND [gem-kz] = ''";
const std::string O = "ORDER BY betrieb.[betr-nr]";

const char* kTitleBetr = "Auswahlliste Betrieb!";
const char* kTitlePers = "Auswahlliste Personen!";
const char* kNoRows = "Es wurden in der Datenbank keine Sätze gefunden!";

std::string counterPrefix(const ListForm& form) {
    return form.persons ? "Person Nr. " : "Betrieb Nr. ";
}

// The count behind "von": a long list shows its first screen while the rest is read, and its
// count once it is whole.
std::string countText(const store::Recordset& rs) {
    return rs.CountFinal() ? std::to_string(rs.KnownCount()) : "…";
}

std::string cellOf(const store::Recordset& rs, const std::vector<store::Variant>& row,
                   const char* field) {
    const int index = rs.fieldIndex(field);
    return index < 0 ? std::string() : row[static_cast<size_t>(index)].toString();
}

void refreshData(core::Globals& g, ListForm& form, const std::string& source) {
    form.data.DatabaseName = g.stores.db_name_daten;
    form.data.RecordSource = source;
    form.data.Refresh();
}

// Handlers without a trap of their own: a failure of the store is logged as the program's.
template <class Body>
void guarded(core::Globals& g, const char* procedure, Body&& body) {
    try {
        body();
    } catch (const std::exception& e) {
        core::logTrapped(g, procedure, e);
    }
}

}  // namespace

const std::vector<ListColumn>& businessColumns() {
    static const std::vector<ListColumn> columns = {
        {"Gemeindeschlüssel", "gem-kz", "betrieb.[gem-kz]", 8, "Gemeindeschlüssel:"},
        {"Betriebsnummer", "betrieb.betr-nr", "betrieb.[betr-nr]", 12, "Betriebsnummer:"},
        {"BetrHistNr", "betrieb.betr-hist-nr", "betrieb.[betr-hist-nr]", 4, "BetrHistNr:"},
        {"Betriebsname", "b-eintr-name", "betrieb.[b-eintr-name]", 150, "Betriebsname:"},
        {"Ort (Betriebsstätte)", "b-ort", "betrieb_adresse.[b-ort]", 150, "Ort:"},
        {"Straße (Betriebsstätte)", "b-strasse", "betrieb_adresse.[b-strasse]", 150, "Straße:"},
    };
    return columns;
}

const std::vector<ListColumn>& personColumns() {
    static const std::vector<ListColumn> columns = {
        {"Personennummer", "pers-nr", "person.[pers-nr]", 12, "Personennummer:"},
        {"Name (jur. Pers.)", "p-eintr-name", "person.[p-eintr-name]", 150, "Name (jur.Pers):"},
        {"Name (nat.Pers.)", "fam-name", "person.[fam-name]", 30, "Name (nat.Pers.):"},
        {"Betriebsnummer", "betr-nr", "betrieb.[betr-nr]", 12, "Betriebsnummer:"},
        {"BetrHistNr", "betr-hist-nr", "betrieb.[betr-hist-nr]", 4, "BetrHistNr:"},
        {"Betriebsname", "b-eintr-name", "betrieb.[b-eintr-name]", 150, "Betriebsname"},
        {"Gem.-Kz.", "gem-kz", "betrieb.[gem-kz]", 8, "Gem-Kz"},
        {"Vertreter einer JP (BetrNr)", "pers-nr-jp", nullptr, 0, nullptr},
    };
    return columns;
}

const std::vector<ListColumn>& ListForm::columns() const {
    return persons ? personColumns() : businessColumns();
}

std::string businessListQuery(BusinessQuery which, bool filterOn, const std::string& kette) {
    switch (which) {
        case BusinessQuery::Menu:
            if (!filterOn) return A + B + C + D + E + "AND [meld-art] <> '999' " + O;
            return A + B + C + D + E + "AND ([gem-kz] = ''" + kette + ")AND [meld-art] <> '999' " +
                   O;
        case BusinessQuery::Alle:
            return filterOn ? A + B + C + D + E + F + kette + O : A + B + C + D + E + O;
        case BusinessQuery::Aktuelle:
            if (!filterOn)
                return A + B + C + "AND betrieb.[betr-nr] = betrieb_adresse.[betr-nr] " +
                       "WHERE [betr-ende] Is Null " + "AND betrieb_adresse.[b-adr-art] = '1'" + O;
            return A + B + C + D + E + F + kette + "AND [betr-ende] Is Null " + O;
        case BusinessQuery::Abgemeldete:
            if (!filterOn)
                return A + B + C + D + "WHERE [betr-ende] Is NOT Null " +
                       "AND betrieb_adresse.[b-adr-art] = '1' " + O;
            return A + B + C + D + E + F + kette + "AND [betr-ende] Is NOT Null " + O;
    }
    return {};
}

std::string municipalityChain(core::Globals& g, bool trailingBlank, bool* anyMarked) {
    std::string chain;
    bool marked = false;
    auto& c = dataControls(g).DATA_GEMEINDE;
    c.DatabaseName = g.stores.db_name_org;
    c.RecordSource = "aktuelleGemeinde";
    c.Refresh();
    auto& rs = c.Recordset();
    if (rs.RecordCount() > 0) {
        for (rs.MoveFirst(); !rs.Eof(); rs.MoveNext()) {
            if (!rs.Fields("markiert").Value().toBool()) continue;
            chain += " or [gem-kz] = " + quote(rs.Fields("gem-kz").Value().toString()) +
                     (trailingBlank ? " " : "");
            marked = true;
        }
    }
    if (anyMarked) *anyMarked = marked;
    return chain;
}

std::string personListQuery(const std::string& gemFilterText, const std::string& sort) {
    return std::string("SELECT person.[pers-nr], person.[p-eintr-name], person.[fam-name], ") +
           "betrieb.[betr-nr], betrieb.[betr-hist-nr], betrieb.[gem-kz], "
           "betrieb.[b-eintr-name],beziehung_betrieb_person.[pers-nr-jp] " +
           " FROM (betrieb " + " INNER JOIN beziehung_betrieb_person " +
           " ON (beziehung_betrieb_person.[bez-betr-hist-nr] = betrieb.[betr-hist-nr]) " +
           " AND (betrieb.[betr-nr] = beziehung_betrieb_person.[bez-betr-nr]))" +
           " INNER JOIN person ON beziehung_betrieb_person.[bez-pers-nr] = person.[pers-nr] " +
           gemFilterText +
           (sort.empty() ? " ORDER BY person.[pers-nr];" : " ORDER BY " + sort + ";");
}

namespace {

// The person list's filter: behind " where betrieb.[gem-kz] = ''" when the filter is on.
std::string personFilter(core::Globals& g) {
    if (g.settings.filter_aktiv_flag != -1) return {};
    return " where betrieb.[gem-kz] = ''" + municipalityChain(g, false);
}

void emptyBusinessCase(core::Globals& g, ListForm& form) {
    const bool anyRows = dataControls(g).DATA_BETR.Recordset().isSet() &&
                         dataControls(g).DATA_BETR.Recordset().RecordCount() > 0;
    core::showMessage(g,
                      anyRows ? std::string("Bitte wählen Sie im Menüpunkt ''Optionen'',") + "\n" +
                                    "eine gültige Gemeindekennzahl aus!"
                              : kNoRows,
                      core::msg::vbInformation, kTitleBetr);
    Form_Unload(g, form);
}

}  // namespace

bool menue_suchen_betrieb(core::Globals& g, ListForm& form) {
    if (g.forms.marks.menue_suchen_betrieb) return false;
    core::A_Fenster_schliessen(g);
    g.forms.marks.menue_suchen_betrieb = true;
    bool shown = false;
    guarded(g, "menue_suchen_betrieb", [&] {
        dataControls(g).DATA_BETR.RecordSource = "betrieb";
        dataControls(g).DATA_BETR.Refresh();
        // An empty table leaves the new recordset at its beginning and its end at once: a
        // count would read all of a server's table for it.
        const auto& businesses = dataControls(g).DATA_BETR.Recordset();
        if (businesses.Bof() && businesses.Eof()) {
            emptyBusinessCase(g, form);
            return;
        }
        form.option = 0;
        if (g.settings.filter_aktiv_flag != -1) {
            g.view.sql_text = businessListQuery(BusinessQuery::Menu, false, "");
        } else {
            bool anyMarked = false;
            g.view.gem_filter_text = municipalityChain(g, true, &anyMarked);
            if (!anyMarked) {
                const int answer =
                    core::showMessage(g,
                                      "Filter ist aktiviert, aber keine Gemeindekennzahl "
                                      "festgelegt!\n\nWollen Sie eine auswählen?\n",
                                      core::msg::vbQuestionYesNo, kTitleBetr);
                if (answer == core::msg::vbYes) g.shell->showForm("Frm_Optionen");
                Form_Unload(g, form);
                return;
            }
            g.view.gem_filter_sicher = g.view.gem_filter_text;
            g.view.sql_text = businessListQuery(BusinessQuery::Menu, true, g.view.gem_filter_text);
        }
        refreshData(g, form, g.view.sql_text);
        if (form.data.Recordset().KnownCount() == 0) {
            emptyBusinessCase(g, form);
            return;
        }
        form.data.Recordset().MoveFirst();
        form.Label1 = "Betrieb Nr. 1 von " + countText(form.data.Recordset());
        shown = true;
    });
    if (!shown) g.forms.marks.menue_suchen_betrieb = false;
    return shown;
}

bool menue_suchen_person(core::Globals& g, ListForm& form) {
    if (g.forms.marks.menue_suchen_person) return false;
    core::A_Fenster_schliessen(g);
    g.forms.marks.menue_suchen_person = true;
    bool shown = false;
    guarded(g, "menue_suchen_person", [&] {
        g.view.gem_filter_text = personFilter(g);
        refreshData(g, form, personListQuery(g.view.gem_filter_text, ""));
        if (form.data.Recordset().KnownCount() == 0) {
            core::showMessage(g, kNoRows, core::msg::vbInformation, kTitlePers);
            Form_Unload(g, form);
            return;
        }
        form.data.Recordset().MoveFirst();
        shown = true;
    });
    if (!shown) g.forms.marks.menue_suchen_person = false;
    return shown;
}

void showFoundBusiness(core::Globals& g, const std::string& gemKz, const std::string& betrNr,
                       const std::string& betrHistNr, bool person, const std::string& persNr) {
    // An open list closes as its own OK would: left open, it would keep the print entries silent
    // for a reason the clerk cannot see.
    const std::pair<bool core::MenuMarks::*, const char*> lists[] = {
        {&core::MenuMarks::menue_suchen_person, "Frm_Auswahl_Pers"},
        {&core::MenuMarks::menue_suchen_betrieb, "Frm_Auswahl_Betr"}};
    for (const auto& [mark, form] : lists) {
        if (!(g.forms.marks.*mark)) continue;
        g.shell->unloadForm(form);
        g.forms.marks.*mark = false;
    }
    guarded(g, "showFoundBusiness", [&] {
        auto& v = g.forms.startView;
        v.Command3Visible = false;
        v.Image2Visible = false;
        v.SSTab1Visible = true;
        v.Frame_UeberschriftVisible = true;
        if (person) {
            v.Frame_AnzahlVisible = true;
            dataControls(g).DATA_ORG.RecordSource =
                "SELECT ALL * From gemeindekennzahlen WHERE [gem-kz] = " + quote(gemKz) + " ;";
            dataControls(g).DATA_ORG.Refresh();
            SSTab1_Click(g, 3);
            v.Label2 = "Anzeige: Personendaten (nat. und jur. Person)";
        } else {
            SSTab1_Click(g, 0);
            v.Label2 = "Anzeige: Meldedaten";
        }
        g.view.satz_gewaehlt = "ja";
        DB_Load_DATA(g, gemKz, betrNr, betrHistNr, "");
        // The person found, not the business's first one; a representative of a legal person
        // is not listed there and leaves the first.
        auto& persons = dataControls(g).DATA_PERS.Recordset();
        if (person && !persNr.empty() && persons.isSet() && persons.RecordCount() > 0)
            persons.FindFirst("[pers-nr] = " + quote(persNr));
    });
    g.shell->refreshView();
}

bool openBusinessListOf(core::Globals& g, ListForm& form,
                        const std::vector<std::pair<std::string, std::string>>& states) {
    if (g.forms.marks.menue_suchen_betrieb || states.empty()) return false;
    core::A_Fenster_schliessen(g);
    g.forms.marks.menue_suchen_betrieb = true;
    bool shown = false;
    guarded(g, "openBusinessListOf", [&] {
        std::string in;
        for (const auto& [nr, hist] : states)
            in += (in.empty() ? "" : ", ") + quote(nr + "|" + hist);
        g.view.sql_text =
            "SELECT betrieb.*, betrieb_adresse.* FROM betrieb INNER JOIN betrieb_adresse ON "
            "(betrieb.[betr-hist-nr] = betrieb_adresse.[betr-hist-nr]) AND (betrieb.[betr-nr] = "
            "betrieb_adresse.[betr-nr]) WHERE betrieb_adresse.[b-adr-art] = '1' AND "
            "betrieb.[betr-nr] & '|' & "
            "betrieb.[betr-hist-nr] IN (" +
            in + ") ORDER BY betrieb.[betr-nr]";
        refreshData(g, form, g.view.sql_text);
        if (form.data.Recordset().RecordCount() == 0) {
            Form_Unload(g, form);
            return;
        }
        form.data.Recordset().MoveLast();
        form.Label1 = "Betrieb Nr. 1 von " + std::to_string(form.data.Recordset().RecordCount());
        shown = true;
    });
    if (!shown) g.forms.marks.menue_suchen_betrieb = false;
    return shown;
}

void Option1_Click(core::Globals& g, ListForm& form, int index) {
    guarded(g, "Option1_Click", [&] {
        form.option = index;
        const bool filterOn = g.settings.filter_aktiv_flag == -1;
        const BusinessQuery which = index == 1   ? BusinessQuery::Aktuelle
                                    : index == 2 ? BusinessQuery::Abgemeldete
                                                 : BusinessQuery::Alle;
        g.view.sql_text = businessListQuery(which, filterOn, g.view.gem_filter_sicher);
        form.data.RecordSource = g.view.sql_text;
        form.data.Refresh();
    });
}

void Text1_Change(core::Globals& g, ListForm& form, int index) {
    const char* expression = form.columns()[static_cast<size_t>(index)].expression;
    if (!expression) return;
    guarded(g, "Text1_Change", [&] {
        auto& rs = form.data.Recordset();
        if (!rs.isSet()) return;
        // The list is not narrowed: the current row jumps to the first one that begins so.
        const std::string criteria = std::string(expression) + " LIKE " +
                                     quote(form.Text1[static_cast<size_t>(index)] + "*");
        rs.MoveFirst();
        rs.FindFirst(criteria);
    });
}

void Form_Activate(core::Globals& g, ListForm& form) {
    for (size_t i = 0; i < form.Text1.size(); ++i) {
        form.Text1[i].clear();
        Text1_Change(g, form, static_cast<int>(i));
    }
    if (form.persons && form.data.Recordset().isSet())
        form.Label1 = "Person Nr. 1 von " + countText(form.data.Recordset());
}

void Text1_Click(core::Globals& g, ListForm& form, int index) {
    const auto& column = form.columns()[static_cast<size_t>(index)];
    if (!column.expression) return;
    form.MousePointer = 11;
    guarded(g, "Text1_Click", [&] {
        for (size_t i = 0; i < form.Text1.size(); ++i) {
            form.Text1[i].clear();
            Text1_Change(g, form, static_cast<int>(i));
        }
        form.gridColumn = index;
        auto& rs = form.data.Recordset();
        // The first screen is read at once: an empty one is an empty list.
        if (!rs.isSet() || rs.KnownCount() == 0) return;
        const std::string first = cellOf(rs, rs.rowAt(0), column.field);
        const std::string last = cellOf(rs, rs.LastRow(), column.field);
        // The column keeps the direction it shows: no toggling on a second click.
        const std::string direction = first > last ? " DESC" : "";
        if (form.persons) {
            g.view.gem_filter_text = personFilter(g);
            refreshData(g, form,
                        personListQuery(g.view.gem_filter_text,
                                        std::string(column.expression) + direction));
        } else {
            const std::string source = form.data.RecordSource;
            const size_t p = source.find("ORDER BY");
            if (p != std::string::npos) {
                // The text ahead of "ORDER BY" stays as it is, its blank included.
                form.data.RecordSource =
                    source.substr(0, p) + " ORDER BY " + column.expression + direction;
                form.data.Refresh();
            }
        }
        auto& sorted = form.data.Recordset();
        if (sorted.KnownCount() != 0) {
            sorted.MoveFirst();
            updateCounter(form);
        }
    });
    form.MousePointer = 0;
}

void updateCounter(ListForm& form) {
    const auto& rs = form.data.Recordset();
    if (!rs.isSet() || rs.Eof() || rs.Bof()) return;
    form.Label1 =
        counterPrefix(form) + std::to_string(rs.AbsolutePosition() + 1) + " von " + countText(rs);
}

bool readAhead(ListForm& form, int milliseconds) {
    const auto& rs = form.data.Recordset();
    if (!rs.isSet() || rs.CountFinal()) return true;
    const bool whole = rs.ReadAhead(milliseconds);
    if (whole) updateCounter(form);
    return whole;
}

bool Command1_Click(core::Globals& g, ListForm& form, int index) {
    if (index == 1) {
        g.view.satz_gewaehlt = "nein";
        return true;
    }
    if (index != 0) return false;  // "Satz" and "Liste" are the printing's
    bool close = false;
    guarded(g, form.persons ? "Frm_Auswahl_Pers.Command1_Click" : "Frm_Auswahl_Betr.Command1_Click",
            [&] {
                auto& rs = form.data.Recordset();
                if (!form.persons && (!rs.isSet() || rs.Eof())) return;
                auto& v = g.forms.startView;
                if (!form.persons) {
                    const std::string gem = rs.Fields("gem-kz").Value().toString();
                    const std::string nr = rs.Fields("betrieb.betr-nr").Value().toString();
                    const std::string hist = rs.Fields("betrieb.betr-hist-nr").Value().toString();
                    v.Command3Visible = false;
                    v.Image2Visible = false;
                    v.SSTab1Visible = true;
                    v.Frame_UeberschriftVisible = true;
                    SSTab1_Click(g, 0);
                    v.Label2 = "Anzeige: Meldedaten";
                    g.view.satz_gewaehlt = "ja";
                    DB_Load_DATA(g, gem, nr, hist, "");
                    close = true;
                    return;
                }
                const std::string persNr = rs.Fields("pers-nr").Value().toString();
                const std::string nr = rs.Fields("betr-nr").Value().toString();
                const std::string hist = rs.Fields("betr-hist-nr").Value().toString();
                const std::string gem = rs.Fields("gem-kz").Value().toString();
                if (!form.Frame1Visible) {
                    // A representative of a legal person: shown in the person tabs, the business
                    // stays.
                    v.Label2 = "Anzeige: Personendaten (Vertreter einer jur. Person)";
                    v.Command3Visible = true;
                    auto& pers = dataControls(g).DATA_PERS;
                    pers.DatabaseName = g.stores.db_name_daten;
                    pers.RecordSource =
                        std::string("SELECT DISTINCTROW * FROM person ") +
                        "INNER JOIN beziehung_betrieb_person ON person.[pers-nr] = "
                        "beziehung_betrieb_person.[bez-pers-nr]" +
                        "WHERE beziehung_betrieb_person.[bez-betr-nr]= " + quote(nr) + " " +
                        "AND beziehung_betrieb_person.[bez-betr-hist-nr]= " + quote(hist) + " " +
                        "AND beziehung_betrieb_person.[bez-pers-nr]= " + quote(persNr) + " ;";
                    pers.Refresh();
                    if (pers.Recordset().RecordCount() != 0) {
                        pers.Recordset().MoveLast();
                        pers.Recordset().MoveFirst();
                    }
                } else {
                    v.Command3Visible = false;
                    v.Image2Visible = false;
                    v.SSTab1Visible = true;
                    v.Frame_UeberschriftVisible = true;
                    v.Frame_AnzahlVisible = true;
                    dataControls(g).DATA_ORG.RecordSource =
                        "SELECT ALL * From gemeindekennzahlen WHERE [gem-kz] = " + quote(gem) +
                        " ;";
                    dataControls(g).DATA_ORG.Refresh();
                    SSTab1_Click(g, 3);
                    v.Label2 = "Anzeige: Personendaten (nat. und jur. Person)";
                    g.view.satz_gewaehlt = "ja";
                    DB_Load_DATA(g, gem, nr, hist, "");
                }
                close = true;
            });
    g.shell->refreshView();
    return close;
}

void Form_Unload(core::Globals& g, const ListForm& form) {
    if (form.persons)
        g.forms.marks.menue_suchen_person = false;
    else
        g.forms.marks.menue_suchen_betrieb = false;
}

bool Frm_Start_Command1_Click(core::Globals& g, ListForm& form) {
    auto& d = dataControls(g);
    const auto& pers = d.DATA_PERS.Recordset();
    if (!pers.isSet() || pers.RecordCount() == 0 || pers.Eof() || pers.Bof()) return false;
    if (d.DATA_PERS.fieldText("p-art") == "NP")
        return false;  // a natural person has no representatives
    const std::string persNr = pers.Fields(0).Value().toString();
    const std::string hist = d.DATA_BETR.fieldText("betr-hist-nr");
    const auto& m = g.forms.marks;
    if (m.menue_suchen_person || m.menue_suchen_betrieb || m.menue_info ||
        m.menue_extras_optionen || m.menue_import_datenbank || m.menue_export_textdatei)
        return false;  // another function is open
    g.forms.marks.menue_suchen_person = true;
    bool shown = false;
    guarded(g, "Frm_Start.Command1_Click", [&] {
        g.view.gem_filter_text.clear();
        form.Frame1Visible = false;
        form.data.DatabaseName = g.stores.db_name_daten;
        if (g.settings.filter_aktiv_flag == -1)
            g.view.gem_filter_text = " where betrieb.[gem-kz] = ''" + municipalityChain(g, false);
        if (!g.view.gem_filter_text.empty())
            g.view.gem_filter_text +=
                " or beziehung_betrieb_person.[pers-nr-jp] = " + quote(persNr);
        else
            g.view.gem_filter_text =
                " where beziehung_betrieb_person.[pers-nr-jp] = " + quote(persNr);
        const std::string nr = d.DATA_BETR.fieldText("betr-nr");
        form.data.RecordSource =
            "SELECT person.[pers-nr], person.[p-eintr-name], person.[fam-name], betrieb.[betr-nr], "
            "betrieb.[betr-hist-nr], "
            "betrieb.[gem-kz], betrieb.[b-eintr-name], beziehung_betrieb_person.[pers-nr-jp], "
            "beziehung_betrieb_person.[p-funktion]  "
            "FROM (betrieb  INNER JOIN beziehung_betrieb_person  ON "
            "(beziehung_betrieb_person.[bez-betr-hist-nr] = betrieb.[betr-hist-nr])  "
            "AND (beziehung_betrieb_person.[bez-betr-nr] = betrieb.[betr-nr])) INNER JOIN person "
            "ON "
            "beziehung_betrieb_person.[bez-pers-nr] = person.[pers-nr] " +
            g.view.gem_filter_text + " AND beziehung_betrieb_person.[bez-betr-nr] = " + quote(nr) +
            " AND beziehung_betrieb_person.[pers-nr-jp] = " + quote(persNr) +
            " AND beziehung_betrieb_person.[bez-betr-hist-nr] = " + quote(hist) +
            " ORDER BY person.[pers-nr];";
        form.data.Refresh();
        if (form.data.Recordset().RecordCount() == 0) {
            core::showMessage(g, kNoRows, core::msg::vbInformation, kTitlePers);
            return;
        }
        form.data.Recordset().MoveLast();
        shown = true;
    });
    if (!shown) g.forms.marks.menue_suchen_person = false;
    return shown;
}

void Frm_Start_Command3_Click(core::Globals& g) {
    g.view.akt_funktion.clear();
    auto& v = g.forms.startView;
    v.Command3Visible = false;
    v.Image2Visible = false;
    v.SSTab1Visible = true;
    v.Frame_UeberschriftVisible = true;
    if (v.SSTab1Tab != 3) SSTab1_Click(g, 3);
    // The caption names the report data while the persons stand on top; the next tab change
    // sets it right.
    v.Label2 = "Anzeige: Meldedaten";
    g.view.satz_gewaehlt = "ja";
    auto& betr = dataControls(g).DATA_BETR;
    DB_Load_DATA(g, betr.fieldText("gem-kz"), betr.fieldText("betr-nr"),
                 betr.fieldText("betr-hist-nr"), "");
    g.shell->refreshView();
}

}  // namespace tolma::browse
