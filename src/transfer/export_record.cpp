#include "transfer/export_record.h"

#include "core/error_log.h"
#include "model/values.h"
#include "store/connection.h"
#include "store/dao_error.h"
#include "store/jet_sql.h"
#include "transfer/field_store.h"

namespace tolma::transfer {
namespace {

// A query in the order its recordset gives: its own order, then the row ids of its tables.
std::string inRecordsetOrder(const store::jet::Shape& shape) {
    const auto& parts = shape.parts;
    if (!parts.keyable()) return shape.sql;
    std::string keys;
    for (const auto& t : parts.tables) keys += (keys.empty() ? "" : ", ") + t.qualifier + ".rowid";
    return "SELECT " + parts.selectList + " FROM " + parts.from +
           (parts.where.empty() ? "" : " WHERE " + parts.where) + " ORDER BY " +
           (parts.orderBy.empty() ? "" : parts.orderBy + ", ") + keys;
}

// The rows of one of the export's query texts, on a statement the connection keeps: the texts
// are the system's own, but a business's dozen queries must not each build a recordset.
class Rows {
  public:
    Rows(core::Globals& g, const std::string& query) {
        store::Connection& c = *g.db_daten.connection();
        const auto p = store::jet::prepare(query, &c.catalog());
        st_ = &c.cached(inRecordsetOrder(*p.shape));
        st_->bindValues(p.values, p.shape->numeric);
        for (int i = 0; i < st_->columnCount(); ++i) names_.push_back(st_->columnName(i));
    }
    ~Rows() { st_->reset(); }
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;

    bool next() {
        if (!st_->step()) return false;
        row_.clear();
        for (int i = 0; i < st_->columnCount(); ++i) row_.push_back(st_->column(i));
        return true;
    }
    const std::vector<std::string>& names() const { return names_; }
    const std::vector<store::Variant>& row() const { return row_; }
    std::string text(const std::string& field) const {
        for (size_t i = 0; i < names_.size(); ++i)
            if (names_[i] == field) return row_[i].toString();
        throw store::DaoError("DAO.Fields", store::err::kItemNotFound,
                              "Element in dieser Auflistung nicht gefunden.");
    }

  private:
    store::Statement* st_;
    std::vector<std::string> names_;
    std::vector<store::Variant> row_;
};

void writeFields(ExportContext& ctx, const std::vector<std::string>& names,
                 const std::vector<store::Variant>& row, bool personSub);

// A list: the wrapper, one element per row with its fields, the wrapper's end; nothing at all
// for a query without rows.
void writeList(ExportContext& ctx, const std::string& query, const std::string& wrapper,
               const std::string& element) {
    Rows rows(ctx.g, query);
    if (!rows.next()) return;
    const bool personSub = query.find("person_erlaubnis") != std::string::npos ||
                           query.find("person_handwerkskarte") != std::string::npos;
    ctx.line("<" + wrapper + ">");
    do {
        ctx.line("<" + element + ">");
        writeFields(ctx, rows.names(), rows.row(), personSub);
        ctx.line("</" + element + ">");
    } while (rows.next());
    ctx.line("</" + wrapper + ">");
}

// The link's own dates: trimmed, the two words as their sentinels, else rebuilt by position.
std::string linkDate(const std::string& stored) {
    return model::dateStoreToFile(model::trimBlanks(stored));
}

}  // namespace

void ExportContext::line(const std::string& text) {
    if (out.line(text) > 0)
        core::A_Error_Log(g, "TML_Exp_2_Tabellen", "TOLMA_4x_Access", "0",
                          "Zeichen außerhalb des Zeichensatzes Windows-1252 als '?' ausgegeben",
                          "BetrNr: " + betrNr, text);
}

namespace {

void writeFields(ExportContext& ctx, const std::vector<std::string>& names,
                 const std::vector<store::Variant>& row, bool personSub) {
    try {
        for (size_t i = 0; i < names.size(); ++i) {
            std::string value = row[i].toString();
            if (model::trimBlanks(value).empty()) continue;
            const std::string& name = names[i];
            // The keys stand on lines of their own and are never written twice.
            if (name == "betr-nr" || name == "betr-hist-nr" || name == "gem-kz") continue;
            if (name == "pers-nr" && personSub) continue;
            if (model::isDateField(name)) value = model::dateStoreToFile(value);
            ctx.line("<" + name + ">" + model::cleanForExport(std::move(value)) + "</" + name +
                     ">");
        }
    } catch (const std::exception&) {
        // The rest of the row's fields are lost; the caller goes on.
    }
}

}  // namespace

void TML_Exp_Felder(ExportContext& ctx, store::Recordset& table) {
    try {
        const std::string& source = table.Name();
        const bool personSub = source.find("person_erlaubnis") != std::string::npos ||
                               source.find("person_handwerkskarte") != std::string::npos;
        std::vector<std::string> names;
        for (const auto& info : table.fieldInfos()) names.push_back(info.name);
        writeFields(ctx, names, table.currentRow(), personSub);
    } catch (const std::exception&) {
        // The rest of the row's fields are lost; the caller goes on.
    }
}

void TML_Exp_2_Tabellen(ExportContext& ctx, const std::string& betrNr,
                        const std::string& betrHistNr) {
    core::Globals& g = ctx.g;
    g.akt_schritt = 0;
    try {
        const std::string byBusiness =
            " where [betr-nr] = " + quote(betrNr) + " AND [betr-hist-nr] = " + quote(betrHistNr);

        g.akt_schritt = 1;
        store::Recordset& betrieb = g.rs_betrieb;
        ctx.line("<gem-kz>" + model::trimBlanks(betrieb.Fields("gem-kz").Value().toString()) +
                 "</gem-kz>");
        ctx.line("<betr-nr>" + model::trimBlanks(betrieb.Fields("betr-nr").Value().toString()) +
                 "</betr-nr>");
        ctx.line("<betr-hist-nr>" +
                 model::trimBlanks(betrieb.Fields("betr-hist-nr").Value().toString()) +
                 "</betr-hist-nr>");
        TML_Exp_Felder(ctx, betrieb);

        g.akt_schritt = 3;
        writeList(ctx, "select distinctrow * from  betrieb_meldgrundsonst" + byBusiness,
                  "meld-gruende-sonst", "meld-grund-sonst");

        // Addresses of the kinds 1 to 4 only, in the query's order.
        g.akt_schritt = 2;
        {
            Rows adr(g, "select distinctrow * from  betrieb_adresse" + byBusiness);
            if (adr.next()) {
                ctx.line("<adressen>");
                do {
                    const std::string art = adr.text("b-adr-art");
                    for (const char* kind : {"1", "2", "3", "4"}) {
                        if (art != kind) continue;
                        ctx.line(std::string("<adresse art=\"") + kind + "\">");
                        writeFields(ctx, adr.names(), adr.row(), false);
                        ctx.line("</adresse>");
                    }
                } while (adr.next());
                ctx.line("</adressen>");
            }
        }

        g.akt_schritt = 3;
        writeList(ctx, "select distinctrow * from  betrieb_taetigkeit" + byBusiness, "taetigkeiten",
                  "taetigkeit");
        g.akt_schritt = 4;
        writeList(ctx, "select distinctrow * from  betrieb_handwerkskarte" + byBusiness,
                  "b-handwerkskarten", "b-handwerkskarte");
        g.akt_schritt = 5;
        writeList(ctx, "select distinctrow * from  betrieb_erlaubnis" + byBusiness, "b-erlaubnisse",
                  "b-erlaubnis");

        g.akt_schritt = 6;
        Rows links(
            g,
            "SELECT beziehung_betrieb_person.* FROM beziehung_betrieb_person INNER JOIN person ON "
            "beziehung_betrieb_person.[bez-pers-nr] = person.[pers-nr] Where "
            "beziehung_betrieb_person.[bez-betr-nr] = " +
                quote(betrNr) + " AND [bez-betr-hist-nr] = " + quote(betrHistNr) +
                " ORDER BY beziehung_betrieb_person.[bez-betr-nr], "
                "beziehung_betrieb_person.[bez-sort-nr]");
        if (!links.next()) return;
        ctx.line("<personen>");
        do {
            g.akt_schritt = 7;
            const std::string persNr = links.text("bez-pers-nr");
            Rows person(g, "select distinctrow * from person where [pers-nr] = " + quote(persNr) +
                               " ORDER BY person.[p-art] DESC;");
            if (!person.next()) continue;
            ctx.line("<person>");
            const std::string funktion = model::trimBlanks(links.text("p-funktion"));
            if (!funktion.empty()) ctx.line("<p-funktion>" + funktion + "</p-funktion>");
            for (const char* date : {"p-eintr-datum", "p-austr-datum"}) {
                const std::string stored = links.text(date);
                if (model::trimBlanks(stored).empty()) continue;
                ctx.line(std::string("<") + date + ">" + linkDate(stored) + "</" + date + ">");
            }
            writeFields(ctx, person.names(), person.row(), false);

            // Nationalities are written as they stand, even when empty.
            Rows staat(
                g, "select distinctrow * from person_staatsang where [pers-nr] = " + quote(persNr));
            if (staat.next()) {
                ctx.line("<staatsangehoerigkeiten>");
                do {
                    ctx.line("<staatsangehoerigkeit>");
                    ctx.line("<staat-text>" + model::trimBlanks(staat.text("staat-text")) +
                             "</staat-text>");
                    ctx.line("<staat-schl>" + model::trimBlanks(staat.text("staat-schl")) +
                             "</staat-schl>");
                    ctx.line("</staatsangehoerigkeit>");
                } while (staat.next());
                ctx.line("</staatsangehoerigkeiten>");
            }
            // A person's permit goes with this business if it has no business or is this one's.
            g.akt_schritt = 8;
            writeList(
                ctx,
                "select distinctrow * from person_erlaubnis WHERE [pers-nr] = " + quote(persNr) +
                    " And Not (Len([betr-nr]) > '0' And person_erlaubnis.[betr-nr] <> " +
                    quote(betrNr) + ") ",
                "p-erlaubnisse", "p-erlaubnis");
            g.akt_schritt = 9;
            writeList(ctx,
                      "select distinctrow * from person_handwerkskarte WHERE [pers-nr] = " +
                          quote(persNr) +
                          " And Not (Len([betr-nr]) > '0' And person_handwerkskarte.[betr-nr] <> " +
                          quote(betrNr) + ") ",
                      "p-handwerkskarten", "p-handwerkskarte");
            ctx.line("</person>");
        } while (links.next());
        ctx.line("</personen>");
    } catch (const std::exception& e) {
        core::logTrapped(g, "TML_Exp_2_Tabellen", e);
    }
}

}  // namespace tolma::transfer
