#include "model/relations.h"

#include <algorithm>

namespace tolma::model {
namespace {

using enum Owner;
using enum StoreKind;

constexpr KeyColumns kState{"betr-nr", "betr-hist-nr", {}, {}};
constexpr KeyColumns kPerson{{}, {}, "pers-nr", {}};
// The permits and craft cards of a person are kept by business number, without its state.
constexpr KeyColumns kPersonOfBusiness{"betr-nr", {}, "pers-nr", {}};

const Relation kRelations[] = {
    {"betrieb", Data, BusinessState, kState, 1, 0, {}, true, "Meldedaten"},
    {"betrieb_adresse", Data, BusinessState, kState, 0, 2, {}, true, "Betriebsadressen"},
    {"betrieb_meldgrundsonst",
     Data,
     BusinessState,
     kState,
     2,
     1,
     {},
     false,
     "sonstige Meldegründe"},
    {"betrieb_taetigkeit", Data, BusinessState, kState, 3, 3, {}, true, "Tätigkeiten"},
    {"betrieb_erlaubnis", Data, BusinessState, kState, 4, 5, {}, false, "Erlaubnisse des Betriebs"},
    {"betrieb_handwerkskarte",
     Data,
     BusinessState,
     kState,
     5,
     4,
     {},
     false,
     "Handwerkskarten des Betriebs"},
    {"beziehung_betrieb_person", Data, Link,
     KeyColumns{"bez-betr-nr", "bez-betr-hist-nr", "bez-pers-nr", {}}, 6, 6, "bez-sort-nr", true,
     "Beziehungen zu Personen"},
    {"person_erlaubnis",
     Data,
     Person,
     kPersonOfBusiness,
     9,
     9,
     {},
     false,
     "Erlaubnisse der Personen"},
    {"person_handwerkskarte",
     Data,
     Person,
     kPersonOfBusiness,
     10,
     10,
     {},
     false,
     "Handwerkskarten der Personen"},
    {"person", Data, Person, kPerson, 7, 7, "p-art DESC", true, "Personen"},
    {"person_staatsang", Data, Person, kPerson, 8, 8, {}, false, "Staatsangehörigkeiten"},
    {"Optionen", Settings, Program, {}},
    {"aktuelleGemeinde", Settings, Program, KeyColumns{{}, {}, {}, "gem-kz"}},
    {"gemeindekennzahlen", Settings, CodeTable, KeyColumns{{}, {}, {}, "gem-kz"}},
    {"Rechtsformen", Settings, CodeTable, KeyColumns{{}, {}, {}, "schluessel"}},
};

std::vector<const Relation*> ordered(int Relation::*place) {
    std::vector<const Relation*> out;
    for (const Relation& r : kRelations)
        if (r.*place >= 0) out.push_back(&r);
    std::sort(out.begin(), out.end(),
              [&](const Relation* a, const Relation* b) { return a->*place < b->*place; });
    return out;
}

}  // namespace

std::span<const Relation> relations() {
    return kRelations;
}

size_t relationIndex(std::string_view table) {
    size_t i = 0;
    while (i < std::size(kRelations) && kRelations[i].table != table) ++i;
    return i;
}

const Relation* relationOf(std::string_view table) {
    const size_t i = relationIndex(table);
    return i < std::size(kRelations) ? &kRelations[i] : nullptr;
}

const std::vector<const Relation*>& removalOrder() {
    static const std::vector<const Relation*> order = ordered(&Relation::removal);
    return order;
}

const std::vector<const Relation*>& exportOrder() {
    static const std::vector<const Relation*> order = ordered(&Relation::exported);
    return order;
}

}  // namespace tolma::model
