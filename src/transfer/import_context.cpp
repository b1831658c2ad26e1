#include "transfer/import_context.h"

#include <algorithm>
#include <iterator>

#include "model/values.h"
#include "store/connection.h"
#include "store/jet_sql.h"
#include "store/text_list.h"
#include "text/text.h"

namespace tolma::transfer {
namespace {

// Keys compare as the store's text columns do: ASCII letters without regard to case.
std::uint64_t keyHash(std::string_view key) {
    std::uint64_t h = 1469598103934665603ULL;  // FNV-1a
    for (char c : key) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
        h = (h ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
    }
    return h;
}

// Key columns are 12 characters wide: a longer number is stored cut, and a later criterion
// with the cut number finds those rows.
constexpr int kKeySize = 12;

void note(ImportContext::KeyTables& keys, const std::string& key) {
    keys.note(keyHash(key));
    if (model::characterCount(key) > kKeySize)
        keys.note(keyHash(model::firstCharacters(key, kKeySize)));
}

void collect(store::Database& db, std::string_view column, std::string_view table, unsigned bit,
             ImportContext::KeyTables& keys) {
    // One pass over the key's index; the rows of a number follow each other there.
    auto st = db.connection()->prepare("SELECT DISTINCT [" + std::string(column) + "] FROM [" +
                                       std::string(table) + "]");
    while (st->step()) keys.add(keyHash(st->column(0).toString()), bit);
    keys.seal();  // table by table, so that the list never holds a number once per table
}

}  // namespace

void ImportContext::KeyTables::seal() {
    // What was added since the last time is sorted and merged into the sorted front.
    const auto front = loaded_.begin() + static_cast<long>(sorted_);
    std::sort(front, loaded_.end());
    std::inplace_merge(loaded_.begin(), front, loaded_.end());
    size_t out = 0;
    for (size_t i = 0; i < loaded_.size(); ++i) {
        if (out > 0 && loaded_[out - 1].first == loaded_[i].first)
            loaded_[out - 1].second |= loaded_[i].second;
        else
            loaded_[out++] = loaded_[i];
    }
    loaded_.resize(out);
    sorted_ = out;
}

void ImportContext::KeyTables::note(std::uint64_t hash) {
    noted_.insert(hash);
    if (noted_.size() < 65536) return;
    std::vector<std::uint64_t> fresh(noted_.begin(), noted_.end());
    noted_.clear();
    std::sort(fresh.begin(), fresh.end());
    std::vector<std::uint64_t> merged;
    merged.reserve(stored_.size() + fresh.size());
    std::merge(stored_.begin(), stored_.end(), fresh.begin(), fresh.end(),
               std::back_inserter(merged));
    merged.erase(std::unique(merged.begin(), merged.end()), merged.end());
    stored_.swap(merged);
}

std::optional<unsigned> ImportContext::KeyTables::known(std::uint64_t hash) const {
    if (noted_.count(hash) || std::binary_search(stored_.begin(), stored_.end(), hash)) return ~0u;
    auto it = std::lower_bound(loaded_.begin(), loaded_.begin() + static_cast<long>(sorted_),
                               std::make_pair(hash, 0u));
    if (it != loaded_.begin() + static_cast<long>(sorted_) && it->first == hash) return it->second;
    return std::nullopt;
}

bool ImportContext::KeyTables::knows(std::uint64_t hash) const {
    return known(hash).has_value();
}

unsigned ImportContext::KeyTables::tablesOf(std::uint64_t hash) const {
    return known(hash).value_or(partial ? ~0u : 0u);
}

void ImportContext::loadKeys() {
    if (keysLoaded_) return;
    keysLoaded_ = true;
    try {
        // The key columns that the removals name, with the table bit each answers for.
        for (const model::Relation* r : model::removalOrder())
            if (!r->keys.number.empty())
                collect(g.stores.db_daten, r->keys.number, r->table, tableBit(*r), businesses_);
        for (const model::Relation* r : model::removalOrder())
            if (!r->keys.person.empty())
                collect(g.stores.db_daten, r->keys.person, r->table, tableBit(*r), persons_);
    } catch (const std::exception&) {
        keysMissing_ = true;  // without the list, every removal runs
    }
    businesses_.seal();
    persons_.seal();
}

void ImportContext::lookUpKeys(const std::vector<ReadElement>& elements,
                               const std::vector<bool>& unchanged) {
    if (keysLoaded_) return;
    std::vector<std::string> numbers, persons;
    for (size_t i = 0; i < elements.size(); ++i) {
        if (elements[i].failure || (i < unchanged.size() && unchanged[i])) continue;
        numbers.push_back(elements[i].betrNr);
        persons.insert(persons.end(), elements[i].persNrs.begin(), elements[i].persNrs.end());
    }
    // Asking costs a look-up for each number and table, loading one pass over each table: worth
    // it while the run reads at most a quarter of its elements so far. A server compares its
    // keys by bytes, which a look-up there would too; it loads them, folded.
    elementsSeen_ += elements.size();
    elementsRead_ += numbers.size();
    if (elementsRead_ * 4 > elementsSeen_ || !g.stores.db_daten.isSet() ||
        g.stores.db_daten.connection()->isServer()) {
        keysAsked_ = businesses_.partial = persons_.partial = false;
        return loadKeys();  // what was asked and noted so far stays known
    }
    keysAsked_ = businesses_.partial = persons_.partial = true;
    try {
        askFor(numbers, false);
        askFor(persons, true);
    } catch (const std::exception&) {
        keysMissing_ = true;  // without the answers, every removal runs
    }
}

void ImportContext::askFor(const std::vector<std::string>& keys, bool persons) {
    KeyTables& tables = persons ? persons_ : businesses_;
    std::vector<std::string> asked;
    std::unordered_set<std::uint64_t> seen;
    for (const std::string& key : keys) {
        const std::uint64_t hash = keyHash(key);
        if (tables.knows(hash) || !seen.insert(hash).second) continue;
        asked.push_back(key);
        tables.add(hash, 0);  // known from now on, in no table unless found below
    }
    if (asked.empty()) return;
    const std::string list = store::jsonArray(asked);
    for (const model::Relation* r : model::removalOrder()) {
        const std::string_view column = persons ? r->keys.person : r->keys.number;
        if (column.empty()) continue;
        // The keys drive; the table answers each by its index, in the column's comparison.
        auto st = g.stores.db_daten.connection()->prepare(
            "SELECT DISTINCT t.[" + std::string(column) + "] FROM json_each(?1) k CROSS JOIN [" +
            std::string(r->table) + "] t ON t.[" + std::string(column) + "] = k.value");
        st->bind(1, store::Variant(list));
        while (st->step()) tables.add(keyHash(st->column(0).toString()), tableBit(*r));
    }
    tables.seal();
}

bool ImportContext::mayHoldBusiness(const std::string& betrNr, unsigned tables) {
    return (businessTables(betrNr) & tables) != 0;
}

bool ImportContext::mayHoldPerson(const std::string& persNr, unsigned tables) {
    return (personTables(persNr) & tables) != 0;
}

unsigned ImportContext::businessTables(const std::string& betrNr) {
    if (!keysAsked_) loadKeys();
    return keysMissing_ ? ~0u : businesses_.tablesOf(keyHash(betrNr));
}

unsigned ImportContext::personTables(const std::string& persNr) {
    if (!keysAsked_) loadKeys();
    return keysMissing_ ? ~0u : persons_.tablesOf(keyHash(persNr));
}

bool ImportContext::isDateField(const std::string& fieldName) {
    // Keyed by where the recordset keeps the name; a store opened anew may put another field's
    // name there, so the name itself is compared too.
    auto& [name, date] = dateFields_[&fieldName];
    if (name != fieldName) {
        name = fieldName;
        date = model::isDateField(fieldName);
    }
    return date;
}

void ImportContext::noteBusiness(const std::string& betrNr) {
    if (keysLoaded_ || keysAsked_) note(businesses_, betrNr);
}

std::string ImportContext::businessKey(const std::string& betrNr,
                                       const std::string& betrHistNr) const {
    return foldedKey(akt_struktur == core::kMeldungsbezogen ? betrNr + '\n' + betrHistNr : betrNr);
}

std::string ImportContext::foldedKey(std::string key) {
    return text::lowerAscii(std::move(key));
}

void ImportContext::notePerson(const std::string& persNr) {
    if (keysLoaded_ || keysAsked_) note(persons_, persNr);
}

}  // namespace tolma::transfer
