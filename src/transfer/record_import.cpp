#include "transfer/record_import.h"

#include <unordered_set>

#include "core/db_connection.h"
#include "core/error_log.h"
#include "model/relations.h"
#include "model/values.h"
#include "store/dao_error.h"
#include "transfer/extract.h"
#include "transfer/field_store.h"

namespace tolma::transfer {
namespace {

// The sections of a <betrieb>, in the order they are looked for, with their tables.
struct Section {
    std::string open, close;
    store::Recordset core::OpenStores::*table;
};
const Section kSections[] = {
    {"<adresse art", "</adresse>", &core::OpenStores::rs_adresse},
    {"<taetigkeit>", "</taetigkeit>", &core::OpenStores::rs_taetigkeit},
    {"<b-erlaubnis>", "</b-erlaubnis>", &core::OpenStores::rs_erlaubnis},
    {"<b-handwerkskarte>", "</b-handwerkskarte>", &core::OpenStores::rs_handwerkskarte},
    {"<person>", "</person>", &core::OpenStores::rs_person},
    {"<meld-grund-sonst>", "</meld-grund-sonst>", &core::OpenStores::rs_meldgrund},
};

// Elements of a <betrieb> that are never stored in its row.
bool skippedElement(std::string_view name) {
    return name == kKeinName || name == "gem-name" || name == "wirtschafts-nr" ||
           name == "inhaber-vname" || name == "inhaber-nname";
}

}  // namespace

BlockKeys blockKeys(ImportContext& ctx, const std::vector<ReadElement>& elements,
                    const std::vector<bool>& unchanged) {
    BlockKeys keys;
    std::unordered_set<std::string> states, numbers, persons;
    // Without a known kind of data the businesses' rows stay; persons go in either case.
    const bool byNumber = ctx.akt_struktur == core::kBetriebsbezogen;
    keys.byState = ctx.akt_struktur == core::kMeldungsbezogen;
    for (size_t i = 0; i < elements.size(); ++i) {
        const ReadElement& element = elements[i];
        if (element.failure) continue;  // stored nothing, removes nothing
        if (i < unchanged.size() && unchanged[i]) {
            keys.unchanged.emplace_back(element.betrNr, element.betrHistNr);
            continue;
        }
        const std::string& nr = element.betrNr;
        if ((byNumber || keys.byState) && ctx.businessTables(nr) != 0) {
            if (states.insert(ctx.businessKey(nr, element.betrHistNr)).second)
                keys.states.emplace_back(nr, element.betrHistNr);
            if (numbers.insert(ImportContext::foldedKey(nr)).second) keys.numbers.push_back(nr);
        }
        for (const std::string& persNr : element.persNrs)
            if (ctx.personTables(persNr) != 0 &&
                persons.insert(ImportContext::foldedKey(persNr)).second)
                keys.persons.push_back(persNr);
    }
    return keys;
}

bool Upd_2_Read(ImportContext& ctx, const ReadElement& element) {
    bool replaced = false;
    try {
        if (element.failure) std::rethrow_exception(element.failure);
        Upd_3_Betr(ctx, element.lines, element.betrNr, element.betrHistNr, element.bRechtsform,
                   replaced);
    } catch (const std::exception& e) {
        const auto info = core::describeError(e);
        core::A_Error_Log(ctx.g, "Upd_2_Read", info.source, std::to_string(info.number), info.text,
                          "BetrNr: ", element.betrNr);
    }
    return replaced;
}

namespace {

// Removes what the store holds of the business state ahead of its new rows; true where a
// stored state was replaced.
bool removeBusinessAhead(ImportContext& ctx, const std::string& nr, const std::string& hist) {
    const bool byState = ctx.akt_struktur == core::kMeldungsbezogen;
    if (!byState && ctx.akt_struktur != core::kBetriebsbezogen) return false;
    bool replaced = false;
    const unsigned held = ctx.businessTables(nr);
    // Removed ahead with the block, once: a number that comes again meets the run's rows.
    RemovedAhead* ahead = ctx.removedAhead;
    const bool state = ahead && ahead->takeState(nr, hist);
    const bool number = ahead && ahead->takeNumber(nr);
    // The permits and craft cards of persons carry no history number: they go for all states
    // of the business at once, and count as gone only when each of them went.
    bool permitsGone = true;
    bool linksGone = false;
    for (const model::Relation* r : model::removalOrder()) {
        const model::KeyColumns& k = r->keys;
        if (k.number.empty()) continue;
        const bool byNumberAlone = k.state.empty();
        if (byNumberAlone && !permitsGone) continue;
        const bool links = r->owner == model::Owner::Link;
        if (!(held & ImportContext::tableBit(*r)) || (byNumberAlone ? number : state)) {
            linksGone = linksGone || links;
            continue;
        }
        std::string criteria = "[" + std::string(k.number) + "] = " + quote(nr);
        if (byState && !byNumberAlone)
            criteria += " AND [" + std::string(k.state) + "] = " + quote(hist);
        const long long removed = Upd_6_Kill(ctx, criteria, ctx.g.stores.*core::handleOf(r->table));
        if (byNumberAlone && removed < 0) permitsGone = false;
        if (links && removed >= 0) linksGone = true;
        if (r->table == "betrieb" && removed > 0) replaced = true;
    }
    if (permitsGone) ctx.personPermitsGoneOf = nr;
    if (linksGone) ctx.linksKnownOf = ImportContext::foldedKey(nr + '\n' + hist);
    return replaced;
}

}  // namespace

void Upd_3_Betr(ImportContext& ctx, const std::vector<std::string_view>& lines,
                const std::string& betrNr, const std::string& betrHistNr,
                const std::string& bRechtsform, bool& replaced) {
    core::Globals& g = ctx.g;
    ctx.akt_jp_nr.clear();
    ctx.akt_jp_nr_vorher.clear();
    ctx.akt_bez_sort_nr = 0;
    ctx.personPermitsGoneOf.clear();
    ctx.linksKnownOf.clear();
    ctx.linksWritten.clear();
    size_t i = 0;

    // The trap: an element that the table doesn't know costs one entry and is skipped; any
    // other failure gives up the record, with a second entry by Upd_2_Read.
    auto trap = [&](const std::exception& e) {
        const auto info = core::describeError(e);
        core::A_Error_Log(g, "Upd_3_Betr", info.source, std::to_string(info.number), info.text,
                          "BetrNr: " + betrNr + " BetrHistNr: " + betrHistNr,
                          std::to_string(i + 1));
        if (info.number != store::err::kItemNotFound) throw core::typeMismatch();
    };
    auto line = [&](size_t k) -> std::string_view {
        if (k >= lines.size()) throw core::indexOutOfRange();
        return lines[k];
    };

    try {
        if (removeBusinessAhead(ctx, betrNr, betrHistNr)) replaced = true;

        ctx.noteBusiness(betrNr);
        // The business row stays open while the subordinate rows are written.
        g.stores.rs_betrieb.AddNew();
        bool ok = false;  // the result of the last field stored decides
        for (i = 0; i < lines.size(); ++i) {
            for (int j = 0; j < 6; ++j) {
                const Section& sec = kSections[j];
                if (j == 0 && lineStartsWith(line(i), "<adressen>") &&
                    lineStartsWith(line(i + 1), "</adressen>")) {
                    // An empty <adressen> pair stands for one address of kind 1.
                    g.stores.rs_adresse.AddNew();
                    g.stores.rs_adresse.Fields("betr-nr").setValue(betrNr);
                    g.stores.rs_adresse.Fields("betr-hist-nr").setValue(betrHistNr);
                    g.stores.rs_adresse.Fields("b-adr-art").setValue("1");
                    g.stores.rs_adresse.Update();
                }
                if (!lineStartsWith(line(i), sec.open)) continue;
                // The section runs to its closing line: "</adresse>" alone on its line, the
                // others by their beginning.
                const size_t first = i;
                while (j == 0 ? line(i) != sec.close : !lineStartsWith(line(i), sec.close))
                    line(++i);
                Upd_4_Andere(ctx,
                             std::span<const std::string_view>(lines).subspan(first, i - first + 1),
                             betrNr, betrHistNr, g.stores.*(sec.table), j + 1, bRechtsform);
            }
            ctx.akt_inhalt = contentOf(line(i));
            ctx.akt_name = nameOf(line(i));
            if (ctx.akt_inhalt == kKeinInhalt || skippedElement(ctx.akt_name)) continue;
            try {
                store::Field field = g.stores.rs_betrieb.Fields(ctx.akt_name);
                ok = Upd_5_Felder(ctx, field, ctx.akt_inhalt);
            } catch (const std::exception& e) {
                trap(e);
            }
        }
        if (ok)
            g.stores.rs_betrieb.Update();
        else
            g.stores.rs_betrieb.CancelUpdate();
    } catch (const core::RuntimeError& e) {
        if (e.number() == 13) throw;  // already logged by the trap
        trap(e);
    } catch (const std::exception& e) {
        trap(e);
    }
}

}  // namespace tolma::transfer
