#include "transfer/export_record.h"

#include "core/error_log.h"
#include "model/values.h"
#include "store/connection.h"
#include "store/dao_error.h"
#include "text/text.h"
#include "transfer/field_store.h"

namespace tolma::transfer {
namespace {

void writeFields(ExportContext& ctx, const FieldPlan& plan, const ScanRow& row);

// A list: the wrapper, one element per row with its fields, the wrapper's end; nothing at all
// for a key without rows.
void writeList(ExportContext& ctx, const KeyedScan& scan, std::span<const KeyedScan::Row> rows,
               const std::string& wrapper, const std::string& element, bool personSub = false) {
    if (rows.empty()) return;
    const FieldPlan& plan = ctx.plan(&scan.names(), scan.names(), personSub);
    const std::string open = "<" + element + ">", close = "</" + element + ">";
    ctx.line("<" + wrapper + ">");
    for (const auto& row : rows) {
        ctx.line(open);
        writeFields(ctx, plan, row);
        ctx.line(close);
    }
    ctx.line("</" + wrapper + ">");
}

std::string textOf(const Cell& c) {
    return c.toString();
}

// The link's own dates: trimmed, the two words as their sentinels, else rebuilt by position.
std::string linkDate(const std::string& stored) {
    return model::dateStoreToFile(text::trimBlanks(stored));
}

}  // namespace

void ExportContext::line(std::string_view text) {
    if (out.line(text) > 0)
        core::A_Error_Log(g, "TML_Exp_2_Tabellen", "TOLMA_4x_Access", "0",
                          "Zeichen außerhalb des Zeichensatzes Windows-1252 als '?' ausgegeben",
                          "BetrNr: " + betrNr, std::string(text));
}

const FieldPlan& ExportContext::plan(const void* source, const std::vector<std::string>& names,
                                     bool personSub) {
    for (const auto& p : plans)
        if (p->source == source && p->personSub == personSub && p->columns.size() == names.size())
            return *p;
    auto p = std::make_unique<FieldPlan>();
    p->source = source;
    p->personSub = personSub;
    for (const auto& name : names) {
        FieldPlan::Column c;
        // The keys stand on lines of their own and are never written twice.
        c.written = !(name == "betr-nr" || name == "betr-hist-nr" || name == "gem-kz" ||
                      (name == "pers-nr" && personSub));
        c.date = model::isDateField(name);
        c.open = "<" + name + ">";
        c.close = "</" + name + ">";
        p->columns.push_back(std::move(c));
    }
    plans.push_back(std::move(p));
    return *plans.back();
}

namespace {

void writeFields(ExportContext& ctx, const FieldPlan& plan, const ScanRow& row) {
    try {
        for (size_t i = 0; i < plan.columns.size(); ++i) {
            const FieldPlan::Column& c = plan.columns[i];
            const Cell cell = row[i];
            if (cell.null || !c.written ||
                cell.text.find_first_not_of(' ') == std::string_view::npos)
                continue;
            std::string& l = ctx.lineBuffer;
            l.assign(c.open);
            if (c.date)
                model::appendCleanForExport(l, model::dateStoreToFile(cell.toString()));
            else
                model::appendCleanForExport(l, cell.text);
            l += c.close;
            ctx.line(l);
        }
    } catch (const std::exception&) {
        // The rest of the row's fields are lost; the caller goes on.
    }
}

// One person of a link: the link's function and dates, the person's fields, nationalities,
// and the permits and craft cards that go with this business.
void writePerson(ExportContext& ctx, ExportScans& scans, const KeyedScan::Row& link,
                 const KeyedScan::Row& person, const std::string& persNr,
                 const std::string& betrNr) {
    core::Globals& g = ctx.g;
    ctx.line("<person>");
    const std::string funktion = text::trimBlanks(textOf(link[scans.links.column("p-funktion")]));
    if (!funktion.empty()) ctx.line("<p-funktion>" + funktion + "</p-funktion>");
    for (const char* date : {"p-eintr-datum", "p-austr-datum"}) {
        const std::string stored = textOf(link[scans.links.column(date)]);
        if (text::trimBlanks(stored).empty()) continue;
        ctx.line(std::string("<") + date + ">" + linkDate(stored) + "</" + date + ">");
    }
    writeFields(ctx, ctx.plan(&scans.person.names(), scans.person.names(), false), person);

    // Nationalities are written as they stand, even when empty.
    if (const auto staat = scans.staatsang.rows({persNr}); !staat.empty()) {
        ctx.line("<staatsangehoerigkeiten>");
        for (const auto& row : staat) {
            ctx.line("<staatsangehoerigkeit>");
            const size_t text = scans.staatsang.column("staat-text");
            const size_t schl = scans.staatsang.column("staat-schl");
            ctx.line("<staat-text>" + text::trimBlanks(textOf(row[text])) + "</staat-text>");
            ctx.line("<staat-schl>" + text::trimBlanks(textOf(row[schl])) + "</staat-schl>");
            ctx.line("</staatsangehoerigkeit>");
        }
        ctx.line("</staatsangehoerigkeiten>");
    }
    // A person's permit goes with this business if its business is empty or is this one; one
    // without a business number (null) goes nowhere, as the query's Len() of null decides.
    auto ofThisBusiness = [&](KeyedScan& scan, std::span<const KeyedScan::Row> rows) {
        std::vector<KeyedScan::Row> kept;
        if (rows.empty()) return kept;
        const size_t col = scan.column("betr-nr");
        const TextCompare same = scan.compareOf("betr-nr");
        for (const auto& row : rows) {
            if (row[col].isNull()) continue;
            const std::string value = row[col].toString();
            if (value.empty() || same(value, betrNr) == 0) kept.push_back(row);
        }
        return kept;
    };
    g.log.akt_schritt = 8;
    {
        const auto kept =
            ofThisBusiness(scans.personErlaubnis, scans.personErlaubnis.rows({persNr}));
        writeList(ctx, scans.personErlaubnis, kept, "p-erlaubnisse", "p-erlaubnis", true);
    }
    g.log.akt_schritt = 9;
    {
        const auto kept =
            ofThisBusiness(scans.personHandwerkskarte, scans.personHandwerkskarte.rows({persNr}));
        writeList(ctx, scans.personHandwerkskarte, kept, "p-handwerkskarten", "p-handwerkskarte",
                  true);
    }
    ctx.line("</person>");
}

}  // namespace

void TML_Exp_2_Tabellen(ExportContext& ctx, const SelectionScan& selection,
                        const KeyedScan::Row& business) {
    core::Globals& g = ctx.g;
    g.log.akt_schritt = 0;
    try {
        std::unique_ptr<ExportScans> own;
        if (!ctx.scans) own = std::make_unique<ExportScans>(*g.stores.db_daten.connection());
        ExportScans& scans = ctx.scans ? *ctx.scans : *own;
        auto field = [&](const char* name) { return textOf(business[selection.column(name)]); };
        const std::string betrNr = field("betr-nr");
        const std::vector<std::string> key{betrNr, field("betr-hist-nr")};

        g.log.akt_schritt = 1;
        ctx.line("<gem-kz>" + text::trimBlanks(field("gem-kz")) + "</gem-kz>");
        ctx.line("<betr-nr>" + text::trimBlanks(betrNr) + "</betr-nr>");
        ctx.line("<betr-hist-nr>" + text::trimBlanks(key[1]) + "</betr-hist-nr>");
        writeFields(ctx, ctx.plan(&selection.names(), selection.names(), false), business);

        g.log.akt_schritt = 3;
        writeList(ctx, scans.meldGruende, scans.meldGruende.rows(key), "meld-gruende-sonst",
                  "meld-grund-sonst");

        // Addresses of the kinds 1 to 4 only, in the table's order.
        g.log.akt_schritt = 2;
        if (const auto adr = scans.adressen.rows(key); !adr.empty()) {
            ctx.line("<adressen>");
            const size_t art = scans.adressen.column("b-adr-art");
            for (const auto& row : adr) {
                const std::string kind = textOf(row[art]);
                if (kind == "1" || kind == "2" || kind == "3" || kind == "4") {
                    ctx.line("<adresse art=\"" + kind + "\">");
                    writeFields(
                        ctx, ctx.plan(&scans.adressen.names(), scans.adressen.names(), false), row);
                    ctx.line("</adresse>");
                }
            }
            ctx.line("</adressen>");
        }

        g.log.akt_schritt = 3;
        writeList(ctx, scans.taetigkeiten, scans.taetigkeiten.rows(key), "taetigkeiten",
                  "taetigkeit");
        g.log.akt_schritt = 4;
        writeList(ctx, scans.handwerkskarten, scans.handwerkskarten.rows(key), "b-handwerkskarten",
                  "b-handwerkskarte");
        g.log.akt_schritt = 5;
        writeList(ctx, scans.erlaubnisse, scans.erlaubnisse.rows(key), "b-erlaubnisse",
                  "b-erlaubnis");

        // The links of the business to its persons, each once for every stored row of its
        // person (as a join gives them); a link to no person is left out.
        g.log.akt_schritt = 6;
        const auto links = scans.links.rows(key);
        const size_t linkPerson = links.empty() ? 0 : scans.links.column("bez-pers-nr");
        size_t first = 0;
        std::span<const KeyedScan::Row> persons;
        for (; first < links.size(); ++first) {
            if (links[first][linkPerson].isNull()) continue;
            persons = scans.person.rows({textOf(links[first][linkPerson])});
            if (!persons.empty()) break;
        }
        if (first == links.size()) return;
        ctx.line("<personen>");
        for (size_t l = first; l < links.size(); ++l) {
            const KeyedScan::Row& link = links[l];
            if (link[linkPerson].isNull()) continue;
            g.log.akt_schritt = 7;
            const std::string persNr = textOf(link[linkPerson]);
            if (l != first) persons = scans.person.rows({persNr});
            for (size_t copy = 0; copy < persons.size(); ++copy)
                writePerson(ctx, scans, link, persons.front(), persNr, betrNr);
        }
        ctx.line("</personen>");
    } catch (const std::exception& e) {
        core::logTrapped(g, "TML_Exp_2_Tabellen", e);
    }
}

}  // namespace tolma::transfer
