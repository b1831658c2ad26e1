#include "core/settings.h"

#include "store/server_address.h"

#include <algorithm>
#include <cstdlib>

#include "core/error_log.h"
#include "core/files.h"
#include "model/default_stores.h"
#include "model/values.h"
#include "store/connection.h"
#include "store/dao_error.h"
#include "store/jet_sql.h"
#include "text/text.h"

namespace tolma::core {
namespace {

bool isEmpty(const store::Variant& v) {
    return v.isNull() || v.toString().empty();
}

// A flag field as the 16-bit flag of the system; a Null cannot be read as one.
std::int16_t flagOf(const store::Variant& v, const char* field) {
    if (v.isNull())
        throw store::DaoError("TOLMA_4x_Access", 94,
                              std::string("Unzulässige Verwendung von Null (") + field + ")");
    return v.toBool() ? -1 : 0;
}

void failureMessage(Globals& g) {
    // The text of the pending error stands first; no error is pending here.
    showMessage(g,
                std::string("\n") + "Die Datenbank wurde am angegebenen Ort nicht gefunden," +
                    "\n\n" + "deshalb verwendet das Programm die Default-Datenbank!" + "\n\n",
                msg::vbCritical, "Datenbank-Fehler!");
}

// Steps 3.1 to 3.3 for one of the two store paths.
void checkStorePath(Globals& g, store::Recordset& rs, const char* field, const char* defaultName) {
    const store::Variant value = rs.Fields(field).Value();
    // A store on a server has no file name to check: connecting checks it, and a server that
    // cannot be reached must not send the clerk's data to the default file.
    if (store::isServerText(value.toString())) return;
    if (isEmpty(value)) {
        rs.Edit();
        rs.Fields(field).setValue(g.paths.pfad_db + defaultName);
        rs.Update();
        return;
    }
    // Only the file name counts: a store may lie anywhere, but only under its default name.
    if (text::upperAscii(Dir(value.toString())) != text::upperAscii(defaultName)) {
        failureMessage(g);
        rs.Edit();
        rs.Fields(field).setValue(g.paths.pfad_db + defaultName);
        rs.Update();
    }
}

}  // namespace

void A_org_lesen(Globals& g) {
    g.log.akt_schritt = 0;
    try {
        store::Recordset& rs = g.stores.rs_optionen;
        if (rs.RecordCount() == 0) {
            g.log.akt_schritt = 1;
            rs.AddNew();
            rs.Fields("datenart").setValue(kBetriebsbezogen);
            rs.Fields("db_betriebsbezogen").setValue(g.paths.pfad_db + model::kBusinessStoreFile);
            rs.Fields("db_meldungsbezogen")
                .setValue(g.paths.pfad_db + model::kNotificationStoreFile);
            rs.Fields("filter_aktiv").setValue(store::Variant::boolean(false));
            rs.Fields("Dateiendung_registriert").setValue(store::Variant::boolean(false));
            rs.Update();
        } else {
            g.log.akt_schritt = 2;
            checkStorePath(g, rs, "db_betriebsbezogen", model::kBusinessStoreFile);
            checkStorePath(g, rs, "db_meldungsbezogen", model::kNotificationStoreFile);
            const store::Variant datenart = rs.Fields("datenart").Value();
            if (datenart.isNull() || text::trimBlanks(datenart.toString()).empty() ||
                datenart.toString() == kBetriebsbezogen) {
                // Rewritten with the same value at every reading, on purpose.
                rs.Edit();
                rs.Fields("datenart").setValue(kBetriebsbezogen);
                rs.Update();
                g.settings.caption = kCaptionBetrieb;
            } else {
                g.settings.caption = kCaptionMeldung;
            }
        }
        rs.MoveFirst();
        const std::string datenart = rs.Fields("datenart").Value().toString();
        if (datenart == kBetriebsbezogen) {
            g.settings.db_pfad_aktuell = rs.Fields("db_betriebsbezogen").Value().toString();
            g.settings.db_kurzname = "tl_4x_b";
        } else {
            g.settings.db_pfad_aktuell = rs.Fields("db_meldungsbezogen").Value().toString();
            g.settings.db_kurzname = "tl_4x_m";
        }
        g.settings.filter_aktiv_flag = flagOf(rs.Fields("filter_aktiv").Value(), "filter_aktiv");
        g.settings.dateiendung_flag =
            flagOf(rs.Fields("Dateiendung_registriert").Value(), "Dateiendung_registriert");
        g.settings.datenart_wert = datenart;
        g.settings.db_betr_pfad = rs.Fields("db_betriebsbezogen").Value().toString();
        g.settings.db_meld_pfad = rs.Fields("db_meldungsbezogen").Value().toString();
    } catch (const std::exception& e) {
        logTrapped(g, "A_org_lesen", e);
    }
}

void A_org_update(Globals& g) {
    g.log.akt_schritt = 0;
    try {
        store::Recordset& rs = g.stores.rs_optionen;
        if (rs.RecordCount() < 1) {
            rs.AddNew();
        } else {
            g.log.akt_schritt = 1;
            rs.MoveFirst();
            rs.Edit();
        }
        if (!g.forms.optionen.Text6[0].empty())
            rs.Fields("db_betriebsbezogen").setValue(g.forms.optionen.Text6[0]);
        if (!g.forms.optionen.Text6[1].empty())
            rs.Fields("db_meldungsbezogen").setValue(g.forms.optionen.Text6[1]);
        if (g.settings.datenart_wert == kBetriebsbezogen) {
            rs.Fields("datenart").setValue(kBetriebsbezogen);
            g.settings.db_pfad_aktuell = g.forms.optionen.Text6[0];
            g.settings.db_kurzname = "tl_4x_b";
            g.settings.caption = kCaptionBetrieb;
        } else {
            rs.Fields("datenart").setValue(kMeldungsbezogen);
            g.settings.db_pfad_aktuell = g.forms.optionen.Text6[1];
            g.settings.db_kurzname = "tl_4x_m";
            g.settings.caption = kCaptionMeldung;
        }
        g.log.akt_schritt = 2;
        rs.Fields("filter_aktiv")
            .setValue(store::Variant::boolean(g.settings.filter_aktiv_flag != 0));
        g.log.akt_schritt = 3;
        rs.Fields("Dateiendung_registriert")
            .setValue(store::Variant::boolean(g.settings.dateiendung_flag != 0));
        rs.Update();
    } catch (const std::exception& e) {
        logTrapped(g, "A_org_update", e);
        return;
    }
    A_org_lesen(g);
}

int positiveOption(Globals& g, const char* name, int fallback) {
    try {
        if (auto v = g.stores.db_org.lookup(
                "SELECT wert FROM tolma_optionen WHERE name = " + store::jet::quote(name), "wert"))
            if (const long n = std::atol(v->toString().c_str()); n > 0) return static_cast<int>(n);
    } catch (const std::exception&) {
        // a settings store without the table: the default
    }
    return fallback;
}

void setPositiveOption(Globals& g, const char* name, int value) {
    const auto& c = g.stores.db_org.connection();
    c->execute("CREATE TABLE IF NOT EXISTS tolma_optionen (name TEXT PRIMARY KEY, wert TEXT)");
    c->execute(
        "INSERT OR REPLACE INTO tolma_optionen VALUES (?1, ?2)",
        {store::Variant(std::string(name)), store::Variant(std::to_string(std::max(1, value)))});
}

}  // namespace tolma::core
