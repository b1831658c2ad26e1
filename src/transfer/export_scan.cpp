#include "transfer/export_scan.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "model/relations.h"
#include "store/connection.h"
#include "store/dao_error.h"
#include "store/german_text.h"
#include "store/jet_sql.h"
#include "text/text.h"

namespace tolma::transfer {
namespace {

// A walk that is this many rows behind the asked key seeks instead of reading on: a per-key
// export of a few scattered businesses must not read the whole table. Stepping over a row
// reads the whole row, so a seek pays already for two: in a per-key export of 42 keys, 32
// rows took 22 s, 4 rows 13.7 s, 1 row 11.6 s; the export of all rows is not affected.
constexpr int kNearRows = 1;

int germanCompare(std::string_view a, std::string_view b) {
    return store::german::compare(a, b);
}

std::string bracket(const std::string& name) {
    return "[" + name + "]";
}

// An ORDER BY term as the per-key queries write it: a key column by its own collation.
std::string orderTerm(store::Connection& c, const std::string& table, const std::string& column) {
    const bool descending = column.ends_with(" DESC");
    const std::string name = descending ? column.substr(0, column.size() - 5) : column;
    return c.orderTerm(table, name, !c.catalog().isKey(name), descending);
}

}  // namespace

void ScanRow::read(const store::Statement& st, int first, size_t count) {
    data_.clear();
    spans_.resize(count);
    for (size_t i = 0; i < count; ++i) {
        const int col = first + static_cast<int>(i);
        Span& s = spans_[i];
        s.offset = data_.size();
        switch (st.columnType(col)) {
            case store::ColumnType::Null:
                s.null = true;
                s.length = 0;
                continue;
            case store::ColumnType::Integer:
                data_ += std::to_string(st.columnInteger(col));
                break;
            case store::ColumnType::Real:
                data_ += store::Variant(st.columnReal(col)).toString();
                break;
            default:
                data_ += st.columnText(col);
        }
        s.null = false;
        s.length = data_.size() - s.offset;
    }
}

TextCompare keyCompare(store::Connection& c, const std::string& table, const std::string& column) {
    if (!c.catalog().isKey(column)) return germanCompare;
    return c.columnCompare(table, column);
}

KeyedScan::KeyedScan(store::Connection& c, store::Connection& reader, std::string table,
                     std::vector<std::string> keyColumns, std::vector<std::string> orderTail)
    : c_(c),
      reader_(reader),
      table_(std::move(table)),
      keyColumns_(std::move(keyColumns)),
      orderTail_(std::move(orderTail)) {}

KeyedScan::~KeyedScan() = default;

// The per-key query's order, key by key; without its own terms within a key, by row id alone.
std::string KeyedScan::order(store::Connection& c, bool withinKey) {
    std::string terms;
    for (const auto& k : keyColumns_) terms += orderTerm(c, table_, k) + ", ";
    if (withinKey)
        for (const auto& t : orderTail_) terms += orderTerm(c, table_, t) + ", ";
    return terms + "rowid";
}

void KeyedScan::open() {
    // The first key column bounds the seek.
    st_ = c_.prepare("SELECT * FROM " + bracket(table_) + " WHERE " +
                     c_.atLeast(table_, keyColumns_[0], !c_.catalog().isKey(keyColumns_[0]), "?1") +
                     " ORDER BY " + order(c_, true));
    st_->readInPages(256);
    learnColumns(*st_);
    compare_.clear();
    for (const auto& k : keyColumns_) compare_.push_back(keyCompare(c_, table_, k));
}

// The table's columns, the same by either connection.
void KeyedScan::learnColumns(const store::Statement& st) {
    names_.clear();
    for (int i = 0; i < st.columnCount(); ++i) names_.push_back(st.columnName(i));
    keyIndex_.clear();
    for (const auto& k : keyColumns_) keyIndex_.push_back(column(k));
}

size_t KeyedScan::column(const std::string& name) const {
    for (size_t i = 0; i < names_.size(); ++i)
        if (names_[i] == name) return i;
    throw store::DaoError("DAO.Fields", store::err::kItemNotFound,
                          "Element in dieser Auflistung nicht gefunden.");
}

TextCompare KeyedScan::compareOf(const std::string& column) {
    return keyCompare(c_, table_, column);
}

void KeyedScan::seek(const std::vector<std::string>& key) {
    st_->reset();
    st_->bind(1, store::Variant(key[0]));
    advance();
}

void KeyedScan::advance() {
    haveAhead_ = st_->step();
    if (!haveAhead_) return;
    // The key of the row ahead is read once; the walk compares it with a key or two.
    aheadKey_.resize(keyIndex_.size());
    aheadNull_.resize(keyIndex_.size());
    for (size_t i = 0; i < keyIndex_.size(); ++i) {
        const int col = static_cast<int>(keyIndex_[i]);
        aheadNull_[i] = st_->isNull(col);
        if (aheadNull_[i]) continue;
        aheadKey_[i].assign(st_->columnText(col));
    }
}

// The statement's row against a key, column by column; a null sorts first and equals nothing.
int KeyedScan::compareAhead(const std::vector<std::string>& key) const {
    for (size_t i = 0; i < key.size(); ++i) {
        if (aheadNull_[i]) return -1;
        if (const int r = compare_[i](aheadKey_[i], key[i]); r != 0) return r;
    }
    return 0;
}

int KeyedScan::compareKeys(const std::vector<std::string>& a,
                           const std::vector<std::string>& b) const {
    for (size_t i = 0; i < a.size(); ++i)
        if (const int r = compare_[i](a[i], b[i]); r != 0) return r;
    return 0;
}

std::span<const KeyedScan::Row> KeyedScan::rows(const std::vector<std::string>& key) {
    if (holds(key[0])) {
        auto before = [](const Group& g, const std::vector<std::string>& k) { return g.key < k; };
        size_t at = groupAt_;
        if (at < groupCount_ && before(groups_[at], key)) ++at;
        const bool found = (at == groupCount_ || !before(groups_[at], key)) &&
                           (at == 0 || before(groups_[at - 1], key));
        if (!found)
            at = static_cast<size_t>(
                std::lower_bound(groups_.begin(),
                                 groups_.begin() + static_cast<std::ptrdiff_t>(groupCount_), key,
                                 before) -
                groups_.begin());
        groupAt_ = at;
        if (at == groupCount_ || groups_[at].key != key) return {};
        return {held_.data() + groups_[at].first, groups_[at].count};
    }
    try {
        if (!st_) open();
        if (haveLast_ && compareKeys(key, last_) == 0) return {group_.data(), groupSize_};
        const bool behind = !positioned_ || (haveLast_ && compareKeys(key, last_) < 0);
        haveLast_ = false;
        positioned_ = false;
        if (behind) {
            seek(key);
            while (haveAhead_ && compareAhead(key) < 0) advance();
        } else {
            int skipped = 0;
            while (haveAhead_ && compareAhead(key) < 0 && skipped < kNearRows) {
                advance();
                ++skipped;
            }
            if (haveAhead_ && compareAhead(key) < 0) {
                seek(key);
                while (haveAhead_ && compareAhead(key) < 0) advance();
            }
        }
        groupSize_ = 0;
        while (haveAhead_ && compareAhead(key) == 0) {
            if (groupSize_ == group_.size()) group_.emplace_back();
            group_[groupSize_++].read(*st_, 0, names_.size());
            advance();
        }
        last_ = key;
        haveLast_ = true;
        positioned_ = true;
        return {group_.data(), groupSize_};
    } catch (...) {
        haveLast_ = false;
        positioned_ = false;
        throw;
    }
}

bool KeyedScan::holds(std::string_view first) const {
    if (!heldFirsts_ || heldFirsts_->empty()) return false;
    if (heldRange_) return heldFirsts_->front() <= first && first <= heldFirsts_->back();
    return std::binary_search(heldFirsts_->begin(), heldFirsts_->end(), first);
}

void KeyedScan::readAhead(const std::vector<std::string>& firsts, bool asRange) {
    heldFirsts_ = nullptr;
    heldSize_ = 0;
    groupCount_ = 0;
    groupAt_ = 0;
    if (firsts.empty()) return;
    // The rows are met by the store's "=" and order, which a look-up by bytes agrees with only
    // where the column compares by its bytes too.
    store::Connection& r = reader_;
    for (const auto& k : keyColumns_)
        if (!r.catalog().isKey(k) || !r.comparesBytes(table_, k)) return;
    if (!ahead_ || aheadByRange_ != asRange) {
        const std::string& first = keyColumns_[0];
        const std::string where = asRange ? r.atLeast(table_, first, false, "?1") + " AND " +
                                                r.atMost(table_, first, false, "?2")
                                          : r.isOneOf(first, "?1");
        // An order within a key by German text comes after, for the keys of more than one row.
        textOrder_ = false;
        for (const auto& t : orderTail_) {
            const std::string name = t.ends_with(" DESC") ? t.substr(0, t.size() - 5) : t;
            textOrder_ = textOrder_ || (!r.catalog().isKey(name) && r.isTextColumn(table_, name));
        }
        ahead_ = r.prepare("SELECT * FROM " + bracket(table_) + " WHERE " + where + " ORDER BY " +
                           order(r, !textOrder_));
        if (asRange) ahead_->keep();
        aheadByRange_ = asRange;
        learnColumns(*ahead_);
    }
    heldFirsts_ = &firsts;
    // A range gives the rows of every key within it, as a statement for one of them would.
    heldRange_ = asRange;
    ahead_->reset();
    if (asRange) {
        ahead_->bind(1, store::Variant(firsts.front()));
        ahead_->bind(2, store::Variant(firsts.back()));
    } else {
        ahead_->bind(1, store::Variant(r.listValue(firsts)));
    }
    while (ahead_->step()) {
        if (heldSize_ == held_.size()) held_.emplace_back();
        Row& row = held_[heldSize_];
        row.read(*ahead_, 0, names_.size());
        bool held = true;
        for (const size_t k : keyIndex_) held = held && !row[k].isNull();  // null equals no key
        if (!held) continue;
        // The order of the keys keeps a key's rows together.
        Group* last = groupCount_ > 0 ? &groups_[groupCount_ - 1] : nullptr;
        bool same = last != nullptr;
        for (size_t i = 0; same && i < keyIndex_.size(); ++i)
            same = last->key[i] == row[keyIndex_[i]].text;
        if (!same) {
            if (groupCount_ == groups_.size()) groups_.emplace_back();
            last = &groups_[groupCount_++];
            last->key.resize(keyIndex_.size());
            for (size_t i = 0; i < keyIndex_.size(); ++i)
                last->key[i].assign(row[keyIndex_[i]].text);
            last->first = heldSize_;
            last->count = 0;
        }
        ++last->count;
        ++heldSize_;
    }
    orderWithinKeys();
}

// A table's own order within a key is German text, which the server weighs by functions of
// every row it sorts; most keys have one row, so only the keys of more than one are read again
// in that order, and their rows put so.
void KeyedScan::orderWithinKeys() {
    if (!textOrder_) return;
    std::vector<std::string> firsts;  // in the order of the keys already
    for (size_t g = 0; g < groupCount_; ++g)
        if (groups_[g].count > 1 && (firsts.empty() || firsts.back() != groups_[g].key[0]))
            firsts.push_back(groups_[g].key[0]);
    if (firsts.empty()) return;
    store::Connection& r = reader_;
    if (!ordered_)
        ordered_ = r.prepare("SELECT * FROM " + bracket(table_) + " WHERE " +
                             r.isOneOf(keyColumns_[0], "?1") + " ORDER BY " + order(r, true));
    ordered_->reset();
    ordered_->bind(1, store::Variant(r.listValue(firsts)));
    Row row;
    std::vector<std::string> key(keyIndex_.size());
    size_t g = 0, placed = 0;
    while (ordered_->step()) {
        row.read(*ordered_, 0, names_.size());
        bool held = true;
        for (size_t i = 0; i < keyIndex_.size(); ++i) {
            held = held && !row[keyIndex_[i]].isNull();
            key[i].assign(row[keyIndex_[i]].text);
        }
        if (!held) continue;
        for (; g < groupCount_ && groups_[g].key < key; ++g) placed = 0;
        // The same snapshot gives the same rows: a key's rows only change places.
        if (g < groupCount_ && groups_[g].key == key && placed < groups_[g].count)
            std::swap(held_[groups_[g].first + placed++], row);
    }
}

SelectionScan::SelectionScan(store::Connection& c, const std::string& jetQuery,
                             const std::string& columns) {
    const store::jet::Prepared query = store::jet::prepare(jetQuery, &c.catalog());
    const store::jet::SelectParts& parts = query.shape->parts;
    if (!parts.keyable() || parts.tables.size() != 1)
        throw std::logic_error("not a query on one table: " + jetQuery);
    const std::string rowid = parts.tables[0].qualifier + ".rowid";
    st_ = c.prepare("SELECT " + rowid + ", " + (columns.empty() ? parts.selectList : columns) +
                    " FROM " + parts.from + (parts.where.empty() ? "" : " WHERE " + parts.where) +
                    " ORDER BY " + (parts.orderBy.empty() ? "" : parts.orderBy + ", ") + rowid);
    st_->readInPages(2000);
    st_->bindValues(query.values, query.shape->numeric);
    for (int i = 1; i < st_->columnCount(); ++i) names_.push_back(st_->columnName(i));
}

SelectionScan::~SelectionScan() = default;

bool SelectionScan::next() {
    return st_->step();
}

long long SelectionScan::rowid() const {
    return st_->columnInteger(0);
}

const KeyedScan::Row& SelectionScan::readRow() {
    readRow(row_);
    return row_;
}

void SelectionScan::readRow(KeyedScan::Row& into) const {
    into.read(*st_, 1, names_.size());
}

size_t SelectionScan::column(const std::string& name) const {
    for (size_t i = 0; i < names_.size(); ++i)
        if (names_[i] == name) return i;
    for (size_t i = 0; i < names_.size(); ++i)
        if (text::lower(names_[i]) == text::lower(name)) return i;
    throw store::DaoError("DAO.Fields", store::err::kItemNotFound,
                          "Element in dieser Auflistung nicht gefunden.");
}

bool SelectionScan::isText(size_t column) const {
    return st_->columnType(static_cast<int>(column) + 1) == store::ColumnType::Text;
}

namespace {

std::vector<std::pair<std::string_view, std::unique_ptr<KeyedScan>>> scansOf(
    store::Connection& c, store::Connection& reader) {
    std::vector<std::pair<std::string_view, std::unique_ptr<KeyedScan>>> scans;
    for (const model::Relation* r : model::exportOrder()) {
        if (r->exported == 0) continue;  // the business itself, which the selection reads
        const model::KeyColumns& k = r->keys;
        std::vector<std::string> key;
        if (r->owner == model::Owner::Person)
            key = {std::string(k.person)};
        else
            key = {std::string(k.number), std::string(k.state)};
        std::vector<std::string> order;
        if (!r->rowOrder.empty()) order.emplace_back(r->rowOrder);
        scans.emplace_back(r->table, std::make_unique<KeyedScan>(c, reader, std::string(r->table),
                                                                 std::move(key), std::move(order)));
    }
    return scans;
}

}  // namespace

ExportScans::ExportScans(store::Connection& c, store::Connection& reader)
    : reader_(reader),
      scans_(scansOf(c, reader)),
      meldGruende(of("betrieb_meldgrundsonst")),
      adressen(of("betrieb_adresse")),
      taetigkeiten(of("betrieb_taetigkeit")),
      handwerkskarten(of("betrieb_handwerkskarte")),
      erlaubnisse(of("betrieb_erlaubnis")),
      links(of("beziehung_betrieb_person")),
      person(of("person")),
      staatsang(of("person_staatsang")),
      personErlaubnis(of("person_erlaubnis")),
      personHandwerkskarte(of("person_handwerkskarte")) {}

void ExportScans::readAhead(const std::vector<std::string>& betrNrs) {
    if (!reader_.isServer()) return;
    auto ofPersons = [](std::string_view table) {
        return model::relationOf(table)->owner == model::Owner::Person;
    };
    // Where the block's numbers fill most of the stretch from the least to the greatest (an
    // export of all businesses), each table's rows are read as that stretch of its index; a
    // scattered block (one key's businesses) by its list of numbers. So are the persons.
    // Each table looks the numbers up sorted and once each.
    auto sortDistinct = [](std::vector<std::string>& v) {
        if (!std::is_sorted(v.begin(), v.end())) std::sort(v.begin(), v.end());
        v.erase(std::unique(v.begin(), v.end()), v.end());
    };
    std::vector<std::string>& numbers = firsts_[0];
    numbers.assign(betrNrs.begin(), betrNrs.end());
    sortDistinct(numbers);
    const bool dense = fillsStretch(stretches_[0], "betrieb", "betr-nr", numbers, betrNrs.size());
    for (auto& [table, scan] : scans_)
        if (!ofPersons(table)) scan->readAhead(numbers, dense);
    // Then the persons the block's links name.
    std::vector<std::string>& persNrs = firsts_[1];
    persNrs.clear();
    const auto linked = links.heldRows();
    const size_t column = linked.empty() ? 0 : links.column("bez-pers-nr");
    for (const auto& link : linked)
        if (!link[column].isNull()) persNrs.emplace_back(link[column].text);
    sortDistinct(persNrs);
    const bool densePersons =
        fillsStretch(stretches_[1], "person", "pers-nr", persNrs, persNrs.size());
    for (auto& [table, scan] : scans_)
        if (ofPersons(table)) scan->readAhead(persNrs, densePersons);
}

bool ExportScans::fillsStretch(std::unique_ptr<store::Statement>& count, const std::string& table,
                               const std::string& column, const std::vector<std::string>& sorted,
                               size_t values) {
    if (sorted.empty()) return false;
    if (!count) {
        count = reader_.prepare("SELECT count(*) FROM [" + table + "] WHERE " +
                                reader_.atLeast(table, column, false, "?1") + " AND " +
                                reader_.atMost(table, column, false, "?2"));
        count->keep();
    }
    count->reset();
    count->bind(1, store::Variant(sorted.front()));
    count->bind(2, store::Variant(sorted.back()));
    return count->step() && count->columnInteger(0) <= 2 * static_cast<long long>(values);
}

KeyedScan& ExportScans::of(std::string_view table) {
    for (auto& [name, scan] : scans_)
        if (name == table) return *scan;
    throw std::logic_error("no scan of table " + std::string(table));
}

}  // namespace tolma::transfer
