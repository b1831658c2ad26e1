#pragma once

#include <string>
#include <vector>

namespace tolma::store {
class Connection;
}

// Telling one person everything the store holds about them: the person's own fields, their
// nationalities, permits and craft cards, and each business they belong to with the import run
// its data came from. Every disclosure given is recorded, without the person's data.
namespace tolma::protection {

// What the clerk knows of the person; first names and birth date may be empty.
struct PersonQuery {
    std::string name, vornamen, geburtsdatum;  // geburtsdatum as stored: "TT.MM.JJJJ"
    // Which of them were given, without their values: for the record.
    std::string criterion() const;
};

struct PersonMatch {
    std::string persNr, famName, vornamen, gebDatum;
};

// The persons whose family name (or, for a legal person, entered name) is the name as the search
// folds it (case, ä/ae, ß/ss, accents), whose first names hold every first name given and whose
// birth date is the one given; by person number.
std::vector<PersonMatch> findPersons(store::Connection& c, const PersonQuery& query);

// One fact under the store's name of its field.
struct Fact {
    std::string field, value;
};
// One row: of a table, or a business the person belongs to.
struct FactGroup {
    std::string title;
    std::vector<Fact> facts;
};
struct DisclosureSection {
    std::string title;
    std::vector<FactGroup> groups;  // none where the store holds nothing of that kind
};

struct Disclosure {
    std::string persNr;
    std::string date;  // of the disclosure, "TT.MM.JJJJ"
    // "Person", "Staatsangehörigkeiten", "Erlaubnisse", "Handwerkskarten", "Betriebe" (and any
    // other table of a person's own that the relations name).
    std::vector<DisclosureSection> sections;
    // Rows read per table, for the record: "person 1, beziehung_betrieb_person 2".
    std::string counts;
};

// Everything the store holds about the person; only non-empty fields.
Disclosure gatherDisclosure(store::Connection& c, const std::string& persNr,
                            const std::string& date);

// One line per fact, "Bereich;Eintrag;Feld;Wert" under a header line: UTF-8 with a byte order
// mark, for a spreadsheet.
std::string disclosureCsv(const Disclosure& d);

// Records the disclosure and writes its file (readable by the owner only) in one step: the record
// is kept only if the file was written. Raises when either fails.
void writeDisclosure(store::Connection& c, const Disclosure& d, const PersonQuery& query,
                     const std::string& when, const std::string& path, const std::string& bytes);

}  // namespace tolma::protection
