#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <thread>
#include <unordered_map>

#include "store/indexed_cursor.h"

namespace tolma::store {

// What a query shape needs on a connection, worked out once: its parts, the texts built from
// them and their prepared statements.
struct QueryPlan;

// A query whose rows have row ids: the keys of its rows are read at opening and each row is
// fetched by them when it is reached. A query on one table alone is writable.
class KeysetCursor : public IndexedCursor {
  public:
    static constexpr size_t kPrefetchRows = 16;

    KeysetCursor(std::shared_ptr<Connection> connection, std::string source,
                 const jet::Prepared& query);
    ~KeysetCursor() override;

    static constexpr long kFirstScreen = 256;
    // The rows of a server's cursor fetched at a time behind the first screen.
    static constexpr int kRestPage = 16384;

    long count() override;
    std::vector<Variant> rowAt(long p) override;
    std::vector<Variant> lastRow() override;
    long knownCount() override { return static_cast<long>(keys.size() / stride); }
    bool countFinal() override { return !filling; }
    bool readAhead(std::chrono::milliseconds budget) override;

  protected:
    std::vector<Variant> loadCurrent() override { return rowAt(index); }
    long long currentRowid() override;
    std::optional<long> findIndex(const std::string& criteria, long after) override;
    void inserted() override;
    void removed() override;
    void storedRowsChanged() override { prefetched.clear(); }
    long reach(long rows) override;

  private:
    const std::vector<jet::TableRef>& tables() const;
    const std::string& orderClause() const;  // the query's own, translated
    void readKeys();
    bool readFirstRows();  // false: more than kPrefetchRows
    void readKeyset();
    // A long list's keys are read by a thread of their own: its first screen at once, the rest
    // behind it. Waits for the rest, or as long as given; true once every key is here.
    bool takeRest(std::optional<std::chrono::milliseconds> wait = std::nullopt);
    // Takes the keys read meanwhile; with none there, waits for the next piece (or as long as
    // given). True once every key is here.
    bool takeMore(std::optional<std::chrono::milliseconds> wait = std::nullopt);
    void readUntil(long rows) {
        while (filling && knownCount() < rows) takeMore();
    }
    void readAll() { takeRest(); }
    void endFill();                             // stops the thread, if it still reads
    std::shared_ptr<Connection> spareReader();  // a reading connection, kept or new
    // The first term of the query's order as the generator writes a column in it:
    // "q.[c]", "(q.[c]) COLLATE jetde", either with ASC or DESC.
    struct LeadingTerm {
        int table = -1;  // among the query's tables; -1: the order begins otherwise
        std::string column;
        bool parenthesised = false, german = false, descending = false;
        bool whole = false;  // the term is no more than that
    };
    LeadingTerm leadingTerm() const;
    // The row ids of one row, as parameters after the query's own values.
    std::string keyCondition() const;
    // The order of the rows: the query's own, made total by the row ids.
    std::string orderBy() const;
    std::string orderBy(const std::string& order) const;
    // The keys in the query's order, or in another one written as its order clause.
    std::string keysetSql() const;
    std::string keysetSql(const std::string& order) const;
    std::string reorderedSql(const jet::SelectParts& parts) const;
    long long expectedRows(const std::string& sql);
    std::string keyString(const long long* k) const;
    void buildKeyIndex();
    std::optional<long> findAppended(const std::string& crit, long after);

    // A search as typing makes it: "table.[column] LIKE 'pattern'" on one table of the query.
    struct TypedSearch {
        int table = 0;  // among the query's tables
        std::string column, pattern;
        std::string beginning;  // the pattern up to its first wildcard
    };
    enum class Order { None, GermanUp, GermanDown, NoCaseUp, NoCaseDown };
    enum class PrefixIndex { None, Column, Lower, German };
    // Where the original rows stand, by the row ids of one table (the first place of each).
    struct Positions {
        bool valid = false;
        long long first = 0;
        std::vector<long> dense;                         // by row id - first, -1: none
        std::vector<std::pair<long long, long>> sparse;  // sorted by row id
        long of(long long rowid) const;                  // -1: none
    };
    // nullopt: not such a search, or no fast way to it; the plain search answers it.
    std::optional<std::optional<long>> findTyped(const std::string& criteria, long after);
    std::optional<TypedSearch> typedSearch(const std::string& criteria);
    Order leadingOrder(const TypedSearch& s);
    PrefixIndex prefixIndex(const TypedSearch& s);
    std::optional<std::optional<long>> findInOrder(const TypedSearch& s, Order order, long after);
    bool eachByIndex(const TypedSearch& s, const std::function<bool(long long)>& each);
    std::optional<std::optional<long>> findByIndex(const TypedSearch& s, long after);
    std::optional<long> findOnServer(const TypedSearch& s, long after);
    Statement& valueStatement(const TypedSearch& s);
    std::pair<Variant, bool> valueAt(const TypedSearch& s, long p);
    const Positions& positionsOf(int table);
    long long storeState();

    std::shared_ptr<const QueryPlan> plan;
    // The row ids of each base table, row after row.
    std::vector<long long> keys;
    long origCount = 0;  // rows from the query; later ones were added through this recordset
    std::unordered_map<std::string, long> keyIndex;
    bool keyIndexValid = false;
    // The rows of a small query, read with their keys at opening: no fetch per row.
    std::vector<std::vector<Variant>> prefetched;
    std::vector<Positions> positions;  // per table, built when a search first needs them
    long long keysState = -1;          // storeState() when the keys were read
    // While the rest of the keys is read: the reading connection (whose snapshot is the
    // store as it stood at opening), the thread and what it hands over.
    bool filling = false;
    std::shared_ptr<Connection> reader;
    std::shared_ptr<struct KeysetFill> fill;
    std::thread worker;
    // The keyset's statement in the reverse order, giving the last row first; empty where it
    // would sort every row for it. Worked out when first wanted.
    std::optional<std::string> lastSql;
};

}  // namespace tolma::store
