#include "transfer/export_record.h"

#include "core/error_log.h"
#include "model/values.h"
#include "transfer/field_store.h"

namespace tolma::transfer {
namespace {

// A list: the wrapper, one element per row with its fields, the wrapper's end; nothing at all
// for a query without rows.
void writeList(ExportContext& ctx, const std::string& query, const std::string& wrapper, const std::string& element) {
    store::Recordset rs = ctx.g.db_daten.OpenRecordset(query);
    if (rs.RecordCount() == 0) return;
    ctx.line("<" + wrapper + ">");
    for (rs.MoveFirst(); !rs.Eof(); rs.MoveNext()) {
        ctx.line("<" + element + ">");
        TML_Exp_Felder(ctx, rs);
        ctx.line("</" + element + ">");
    }
    ctx.line("</" + wrapper + ">");
}

// The link's own dates: trimmed, the two words as their sentinels, else rebuilt by position.
std::string linkDate(const std::string& stored) { return model::dateStoreToFile(model::trimBlanks(stored)); }

}  // namespace

void ExportContext::line(const std::string& text) {
    if (out.line(text) > 0)
        core::A_Error_Log(g, "TML_Exp_2_Tabellen", "TOLMA_4x_Access", "0",
                          "Zeichen außerhalb des Zeichensatzes Windows-1252 als '?' ausgegeben", "BetrNr: " + betrNr,
                          text);
}

void TML_Exp_Felder(ExportContext& ctx, store::Recordset& table) {
    try {
        const std::string& source = table.Name();
        const bool personSub = source.find("person_erlaubnis") != std::string::npos ||
                               source.find("person_handwerkskarte") != std::string::npos;
        const auto& infos = table.fieldInfos();
        const auto& row = table.currentRow();
        for (size_t i = 0; i < infos.size(); ++i) {
            std::string value = row[i].toString();
            if (model::trimBlanks(value).empty()) continue;
            const std::string& name = infos[i].name;
            // The keys stand on lines of their own and are never written twice.
            if (name == "betr-nr" || name == "betr-hist-nr" || name == "gem-kz") continue;
            if (name == "pers-nr" && personSub) continue;
            if (model::isDateField(name)) value = model::dateStoreToFile(value);
            ctx.line("<" + name + ">" + model::cleanForExport(std::move(value)) + "</" + name + ">");
        }
    } catch (const std::exception&) {
        // The rest of the row's fields are lost; the caller goes on.
    }
}

void TML_Exp_2_Tabellen(ExportContext& ctx, const std::string& betrNr, const std::string& betrHistNr) {
    core::Globals& g = ctx.g;
    g.akt_schritt = 0;
    try {
        const std::string nr = betrNr, hist = betrHistNr;
        const std::string byBusiness = " where [betr-nr] = " + quote(nr) + " AND [betr-hist-nr] = " + quote(hist);

        g.akt_schritt = 1;
        store::Recordset& betrieb = g.rs_betrieb;
        ctx.line("<gem-kz>" + model::trimBlanks(betrieb.Fields("gem-kz").Value().toString()) + "</gem-kz>");
        ctx.line("<betr-nr>" + model::trimBlanks(betrieb.Fields("betr-nr").Value().toString()) + "</betr-nr>");
        ctx.line("<betr-hist-nr>" + model::trimBlanks(betrieb.Fields("betr-hist-nr").Value().toString()) +
                 "</betr-hist-nr>");
        TML_Exp_Felder(ctx, betrieb);

        g.akt_schritt = 3;
        writeList(ctx, "select distinctrow * from  betrieb_meldgrundsonst" + byBusiness, "meld-gruende-sonst",
                  "meld-grund-sonst");

        // Addresses of the kinds 1 to 4 only, in the query's order.
        g.akt_schritt = 2;
        {
            store::Recordset adr = g.db_daten.OpenRecordset("select distinctrow * from  betrieb_adresse" + byBusiness);
            if (adr.RecordCount() > 0) {
                ctx.line("<adressen>");
                for (adr.MoveFirst(); !adr.Eof(); adr.MoveNext()) {
                    const std::string art = adr.Fields("b-adr-art").Value().toString();
                    for (const char* kind : {"1", "2", "3", "4"}) {
                        if (art != kind) continue;
                        ctx.line(std::string("<adresse art=\"") + kind + "\">");
                        TML_Exp_Felder(ctx, adr);
                        ctx.line("</adresse>");
                    }
                }
                ctx.line("</adressen>");
            }
        }

        g.akt_schritt = 3;
        writeList(ctx, "select distinctrow * from  betrieb_taetigkeit" + byBusiness, "taetigkeiten", "taetigkeit");
        g.akt_schritt = 4;
        writeList(ctx, "select distinctrow * from  betrieb_handwerkskarte" + byBusiness, "b-handwerkskarten",
                  "b-handwerkskarte");
        g.akt_schritt = 5;
        writeList(ctx, "select distinctrow * from  betrieb_erlaubnis" + byBusiness, "b-erlaubnisse", "b-erlaubnis");

        g.akt_schritt = 6;
        store::Recordset links = g.db_daten.OpenRecordset(
            "SELECT beziehung_betrieb_person.* FROM beziehung_betrieb_person INNER JOIN person ON "
            "beziehung_betrieb_person.[bez-pers-nr] = person.[pers-nr] Where beziehung_betrieb_person.[bez-betr-nr] = " +
            quote(nr) + " AND [bez-betr-hist-nr] = " + quote(hist) +
            " ORDER BY beziehung_betrieb_person.[bez-betr-nr], beziehung_betrieb_person.[bez-sort-nr]");
        if (links.RecordCount() == 0) return;
        ctx.line("<personen>");
        for (links.MoveFirst(); !links.Eof(); links.MoveNext()) {
            g.akt_schritt = 7;
            const std::string persNr = links.Fields("bez-pers-nr").Value().toString();
            store::Recordset person = g.db_daten.OpenRecordset(
                "select distinctrow * from person where [pers-nr] = " + quote(persNr) + " ORDER BY person.[p-art] DESC;");
            if (person.RecordCount() == 0) continue;
            ctx.line("<person>");
            const std::string funktion = model::trimBlanks(links.Fields("p-funktion").Value().toString());
            if (!funktion.empty()) ctx.line("<p-funktion>" + funktion + "</p-funktion>");
            for (const char* date : {"p-eintr-datum", "p-austr-datum"}) {
                const std::string stored = links.Fields(date).Value().toString();
                if (model::trimBlanks(stored).empty()) continue;
                ctx.line(std::string("<") + date + ">" + linkDate(stored) + "</" + date + ">");
            }
            TML_Exp_Felder(ctx, person);

            // Nationalities are written as they stand, even when empty.
            store::Recordset staat = g.db_daten.OpenRecordset(
                "select distinctrow * from person_staatsang where [pers-nr] = " + quote(persNr) + "");
            if (staat.RecordCount() > 0) {
                ctx.line("<staatsangehoerigkeiten>");
                for (staat.MoveFirst(); !staat.Eof(); staat.MoveNext()) {
                    ctx.line("<staatsangehoerigkeit>");
                    ctx.line("<staat-text>" + model::trimBlanks(staat.Fields("staat-text").Value().toString()) +
                             "</staat-text>");
                    ctx.line("<staat-schl>" + model::trimBlanks(staat.Fields("staat-schl").Value().toString()) +
                             "</staat-schl>");
                    ctx.line("</staatsangehoerigkeit>");
                }
                ctx.line("</staatsangehoerigkeiten>");
            }
            // A person's permit goes with this business if it has no business or is this one's.
            g.akt_schritt = 8;
            writeList(ctx,
                      "select distinctrow * from person_erlaubnis WHERE [pers-nr] = " + quote(persNr) +
                          " And Not (Len([betr-nr]) > '0' And person_erlaubnis.[betr-nr] <> " + quote(nr) + ") ",
                      "p-erlaubnisse", "p-erlaubnis");
            g.akt_schritt = 9;
            writeList(ctx,
                      "select distinctrow * from person_handwerkskarte WHERE [pers-nr] = " + quote(persNr) +
                          " And Not (Len([betr-nr]) > '0' And person_handwerkskarte.[betr-nr] <> " + quote(nr) + ") ",
                      "p-handwerkskarten", "p-handwerkskarte");
            ctx.line("</person>");
        }
        ctx.line("</personen>");
    } catch (const std::exception& e) {
        core::logTrapped(g, "TML_Exp_2_Tabellen", e);
    }
}

}  // namespace tolma::transfer
