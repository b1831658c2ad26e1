#include "core/db_connection.h"
#include "core/error_log.h"
#include "core/files.h"
#include "model/relations.h"
#include "text/text.h"
#include "transfer/extract.h"
#include "transfer/field_store.h"
#include "transfer/record_import.h"

namespace tolma::transfer {
namespace {

// Upd_4_Andere goes on with the next statement after any failure, with one log entry.
class Section {
  public:
    Section(ImportContext& ctx, std::span<const std::string_view> lines)
        : ctx_(ctx), lines_(lines) {}

    template <class Step>
    bool attempt(Step&& step) {
        try {
            step();
            return true;
        } catch (const std::exception& e) {
            const auto info = core::describeError(e);
            core::A_Error_Log(ctx_.g, "Upd_4_Andere", info.source, std::to_string(info.number),
                              info.text, ctx_.fehlerortung, ctx_.ortungsNummer);
            return false;
        }
    }

    // A nationality, permit or craft card of a person, from line i to its closing line; returns
    // the index of the closing line.
    size_t subordinate(size_t i, store::Recordset& rs, const std::string& closing,
                       const std::string& persNr, const std::string& betrNr,
                       bool keysOnlyWhenStored) {
        attempt([&] { rs.AddNew(); });
        bool lastOk = false;
        do {
            if (++i >= lines_.size()) {
                attempt([] { throw core::indexOutOfRange(); });
                return lines_.size() - 1;
            }
            const std::string_view inhalt = contentOf(lines_[i]);
            const std::string_view name = nameOf(lines_[i]);
            if (inhalt != kKeinInhalt && name != kKeinName)
                attempt([&] {
                    lastOk = Upd_5_Felder(ctx_, rs.Fields(std::string(name)), std::string(inhalt));
                });
        } while (lines_[i] != closing);
        if (!keysOnlyWhenStored) {
            attempt([&] { rs.Fields("pers-nr").setValue(persNr); });
            attempt([&] { lastOk ? rs.Update() : rs.CancelUpdate(); });
            return i;
        }
        attempt([&] {
            if (lastOk) {
                rs.Fields("pers-nr").setValue(persNr);
                rs.Fields("betr-nr").setValue(betrNr);
                rs.Update();
            } else {
                rs.CancelUpdate();
            }
        });
        ctx_.akt_inhalt.clear();
        ctx_.akt_name.clear();
        return i;
    }

  private:
    ImportContext& ctx_;
    std::span<const std::string_view> lines_;
};

// The keys a person's section gives its link row. A <pers-nr> must stand ahead of its <p-art>.
struct PersonKeys {
    std::string persNr, pArt, pFunktion, pEintrDatum, pAustrDatum;
};

PersonKeys readPersonKeys(ImportContext& ctx, std::span<const std::string_view> lines) {
    PersonKeys k;
    for (const auto line : lines) {
        const std::string_view name = nameOf(line);
        if (name == "pers-nr") {
            k.persNr = Upd_8_ExtrFeldInhalt(line);
        } else if (name == "p-art") {
            const std::string_view art = contentOf(line);
            if (art.size() == 2 && (art[0] == 'J' || art[0] == 'j') &&
                (art[1] == 'P' || art[1] == 'p')) {
                k.pArt = "JP";
                ctx.akt_jp_nr = k.persNr;
            }
        } else if (name == "p-funktion") {
            k.pFunktion = Upd_8_ExtrFeldInhalt(line);
        } else if (name == "p-eintr-datum") {
            k.pEintrDatum = Upd_8_ExtrFeldInhalt(line);
        } else if (name == "p-austr-datum") {
            k.pAustrDatum = Upd_8_ExtrFeldInhalt(line);
        }
    }
    for (std::string* v : {&k.pFunktion, &k.pEintrDatum, &k.pAustrDatum})
        if (*v == kKeinInhalt) v->clear();
    return k;
}

// A person is one row across all businesses; permits and craft cards are kept by business.
void removePersonAhead(ImportContext& ctx, const std::string& persNr, const std::string& betrNr) {
    const unsigned person = ctx.personTables(persNr);
    if (!person) {
        ctx.personsOfBlock.insert(persNr);
        return;
    }
    const bool ofBlock = ctx.personsOfBlock.contains(persNr);
    bool removed = true;
    // Removed ahead with the block, once: a person that comes again meets the block's rows.
    const bool gone = ctx.removedAhead && ctx.removedAhead->takePerson(persNr);
    // Those of the business went with it: what is left are the run's own rows.
    const bool permitsGone = !betrNr.empty() && ctx.personPermitsGoneOf == betrNr;
    for (const model::Relation* r : model::removalOrder()) {
        const model::KeyColumns& k = r->keys;
        if (k.person.empty() || r->owner != model::Owner::Person ||
            !(person & ImportContext::tableBit(*r)))
            continue;
        const std::string byPerson = "[" + std::string(k.person) + "] = " + quote(persNr);
        store::Recordset& rs = ctx.g.stores.*core::handleOf(r->table);
        if (k.number.empty()) {
            if (!gone) removed = Upd_6_Kill(ctx, byPerson, rs, ofBlock, false) >= 0 && removed;
        } else if (ctx.mayHoldBusiness(betrNr, ImportContext::tableBit(*r))) {
            // A person's permits and craft cards are kept by business.
            Upd_6_Kill(ctx, byPerson + " AND [" + std::string(k.number) + "] = " + quote(betrNr),
                       rs, permitsGone, false);
        }
    }
    // A removal that failed may have left old rows.
    if (removed) ctx.personsOfBlock.insert(persNr);
}

// The link of a person's section to its business state, unless the same link stands already.
void writeLink(ImportContext& ctx, Section& s, store::Recordset& table, const PersonKeys& k,
               const std::string& betrNr, const std::string& betrHistNr,
               const std::string& bRechtsform) {
    core::Globals& g = ctx.g;
    bool hangsUnderEarlierJp = false;
    if (text::upperAscii(k.pArt) == "JP") {
        // A legal person of function 3 in a partnership hangs under the legal person before it.
        // The legal forms are read from the settings store, where the record view's control
        // DATA_ORG_RF reads them too.
        s.attempt([&] {
            const auto typ = g.stores.db_org.lookup(
                "SELECT ALL * From Rechtsformen WHERE [schluessel] = " + quote(bRechtsform) + " ;",
                "typ");
            if (!typ) return;
            if (typ->toString() == "P" && k.pFunktion == "3") {
                ctx.akt_jp_nr = ctx.akt_jp_nr_vorher;
                hangsUnderEarlierJp = true;
            } else {
                ctx.akt_jp_nr_vorher = ctx.akt_jp_nr;
            }
        });
    }
    // A link without a legal person never matches one: a missing value equals nothing.
    auto linkKey = [](const std::string& persNr, const std::string& funktion,
                      const std::string& jp) {
        return text::lower(persNr) + '\n' + text::lower(funktion) + '\n' + text::lower(jp);
    };
    const bool known = ctx.linksKnownOf == ImportContext::foldedKey(betrNr + '\n' + betrHistNr);
    s.attempt([&] {
        auto& rs = g.stores.rs_beziehung;
        if (known) {
            if (ctx.linksWritten.count(linkKey(k.persNr, k.pFunktion, ctx.akt_jp_nr))) return;
        } else {
            // The person is what tells links apart: a business may have thousands of them.
            // The plus signs keep SQLite off the business's index, which would make storing
            // a business quadratic in its persons.
            rs.FindFirst("[bez-pers-nr] = " + quote(k.persNr) + "AND [p-funktion] = " +
                         quote(k.pFunktion) + "AND +[bez-betr-nr] = " + quote(betrNr) +
                         "AND +[bez-betr-hist-nr] = " + quote(betrHistNr) +
                         "AND [pers-nr-jp] = " + quote(ctx.akt_jp_nr));
            if (!rs.NoMatch()) return;  // the same link stands already
        }
        rs.AddNew();
        rs.Fields("bez-betr-nr").setValue(betrNr);
        rs.Fields("bez-sort-nr").setValue(store::Variant(static_cast<int>(ctx.akt_bez_sort_nr)));
        rs.Fields("bez-betr-hist-nr").setValue(betrHistNr);
        rs.Fields("bez-pers-nr").setValue(k.persNr);
        rs.Fields("p-funktion").setValue(k.pFunktion);
        Upd_5_Felder(ctx, rs.Fields("p-eintr-datum"), k.pEintrDatum);
        Upd_5_Felder(ctx, rs.Fields("p-austr-datum"), k.pAustrDatum);
        bool withJp = false;
        if (text::upperAscii(table.Fields("p-art").Value().toString()) == "NP" ||
            hangsUnderEarlierJp) {
            rs.Fields("pers-nr-jp").setValue(ctx.akt_jp_nr);
            hangsUnderEarlierJp = false;
            withJp = true;
        }
        rs.Update();
        if (known && withJp) ctx.linksWritten.insert(linkKey(k.persNr, k.pFunktion, ctx.akt_jp_nr));
    });
}

}  // namespace

void Upd_4_Andere(ImportContext& ctx, std::span<const std::string_view> lines,
                  const std::string& betrNr, const std::string& betrHistNr, store::Recordset& table,
                  int sectionNo, const std::string& bRechtsform) {
    core::Globals& g = ctx.g;
    Section s(ctx, lines);
    bool isPerson = false;
    s.attempt([&] { isPerson = table.Name().find("person") != std::string::npos; });

    PersonKeys keys;
    if (isPerson) {
        // First pass: the keys of the person.
        ++ctx.akt_bez_sort_nr;
        keys = readPersonKeys(ctx, lines);
        if (keys.persNr == kKeinInhalt) return;
        removePersonAhead(ctx, keys.persNr, betrNr);
        ctx.notePerson(keys.persNr);
    }
    const std::string& persNr = keys.persNr;

    // Second pass: the section's own row, and a person's nationalities, permits and craft cards.
    s.attempt([&] { table.AddNew(); });
    bool ok = false;
    for (size_t i = 0; i < lines.size(); ++i) {
        if (isPerson) {
            if (lines[i] == "<staatsangehoerigkeit>")
                i = s.subordinate(i, g.stores.rs_person_staatsang, "</staatsangehoerigkeit>",
                                  persNr, betrNr, false);
            else if (lines[i] == "<p-erlaubnis>")
                i = s.subordinate(i, g.stores.rs_person_erlaubnis, "</p-erlaubnis>", persNr, betrNr,
                                  true);
            else if (lines[i] == "<p-handwerkskarte>")
                i = s.subordinate(i, g.stores.rs_person_handwerkskarte, "</p-handwerkskarte>",
                                  persNr, betrNr, true);
        }
        ctx.akt_inhalt = contentOf(lines[i]);
        ctx.akt_name = nameOf(lines[i]);
        if (ctx.akt_inhalt == kKeinInhalt || ctx.akt_name == kKeinName) continue;
        // These three belong to the link row, in every section.
        if (ctx.akt_name == "p-funktion" || ctx.akt_name == "p-eintr-datum" ||
            ctx.akt_name == "p-austr-datum")
            continue;
        s.attempt([&] { ok = Upd_5_Felder(ctx, table.Fields(ctx.akt_name), ctx.akt_inhalt); });
    }

    if (!ok) {
        s.attempt([&] { table.CancelUpdate(); });
        return;
    }
    if (sectionNo != 5) {
        s.attempt([&] {
            table.Fields("betr-nr").setValue(betrNr);
            table.Fields("betr-hist-nr").setValue(betrHistNr);
        });
    } else {
        writeLink(ctx, s, table, keys, betrNr, betrHistNr, bRechtsform);
    }
    s.attempt([&] { table.Update(); });
}

}  // namespace tolma::transfer
