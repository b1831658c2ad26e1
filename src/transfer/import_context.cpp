#include "transfer/import_context.h"

#include "model/values.h"

namespace tolma::transfer {
namespace {

// Keys compare as the store's text columns do: ASCII letters without regard to case.
std::string folded(const std::string& key) {
    std::string out = key;
    for (auto& c : out)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    return out;
}

// Key columns are 12 characters wide: a longer number is stored cut, and a later criterion
// with the cut number finds those rows.
constexpr int kKeySize = 12;

void note(std::unordered_set<std::string>& keys, const std::string& key) {
    keys.insert(folded(key));
    if (model::characterCount(key) > kKeySize)
        keys.insert(folded(model::firstCharacters(key, kKeySize)));
}

}  // namespace

void ImportContext::loadKeys() {
    if (keysLoaded_) return;
    keysLoaded_ = true;
    auto collect = [&](const char* sql, std::unordered_set<std::string>& keys) {
        store::Recordset rs = g.db_daten.OpenRecordset(sql);
        const long n = rs.RecordCount();
        keys.reserve(static_cast<size_t>(n) * 2);
        for (long i = 0; i < n; ++i) keys.insert(folded(rs.rowAt(i)[0].toString()));
    };
    collect(
        "SELECT [betr-nr] FROM betrieb UNION SELECT [betr-nr] FROM betrieb_adresse UNION "
        "SELECT [betr-nr] FROM betrieb_meldgrundsonst UNION SELECT [betr-nr] FROM "
        "betrieb_taetigkeit UNION "
        "SELECT [betr-nr] FROM betrieb_erlaubnis UNION SELECT [betr-nr] FROM "
        "betrieb_handwerkskarte UNION "
        "SELECT [bez-betr-nr] FROM beziehung_betrieb_person UNION SELECT [betr-nr] FROM "
        "person_erlaubnis UNION "
        "SELECT [betr-nr] FROM person_handwerkskarte",
        businesses_);
    collect(
        "SELECT [pers-nr] FROM person UNION SELECT [pers-nr] FROM person_staatsang UNION "
        "SELECT [pers-nr] FROM person_erlaubnis UNION SELECT [pers-nr] FROM person_handwerkskarte",
        persons_);
}

bool ImportContext::mayHoldBusiness(const std::string& betrNr) {
    try {
        loadKeys();
    } catch (const std::exception&) {
        return true;  // without the list, every removal runs
    }
    return businesses_.count(folded(betrNr)) > 0;
}

bool ImportContext::mayHoldPerson(const std::string& persNr) {
    try {
        loadKeys();
    } catch (const std::exception&) {
        return true;
    }
    return persons_.count(folded(persNr)) > 0;
}

void ImportContext::noteBusiness(const std::string& betrNr) {
    touched.push_back(betrNr);
    if (keysLoaded_) note(businesses_, betrNr);
}

void ImportContext::notePerson(const std::string& persNr) {
    if (keysLoaded_) note(persons_, persNr);
}

}  // namespace tolma::transfer
