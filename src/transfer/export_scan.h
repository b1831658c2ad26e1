#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "store/connection.h"
#include "store/variant.h"

namespace tolma::transfer {

// How the export's queries compare a key column with a value: by the column's own collation
// where an index holds the column, else as German text.
using TextCompare = store::TextCompare;
TextCompare keyCompare(store::Connection& c, const std::string& table, const std::string& column);

// One column of a row as the export reads it: null, or the text a field's value gives.
struct Cell {
    bool null = true;
    std::string_view text;

    bool isNull() const { return null; }
    std::string toString() const { return std::string(text); }
};

// One row of a scan: the texts of its columns in one buffer, so that reading a row costs no
// string per column. Kept rows reuse their buffers.
class ScanRow {
  public:
    // Columns [first, first + count) of the statement's current row.
    void read(const store::Statement& st, int first, size_t count);
    Cell operator[](size_t i) const {
        const Span& s = spans_[i];
        return {s.null, std::string_view(data_.data() + s.offset, s.length)};
    }
    size_t size() const { return spans_.size(); }

  private:
    struct Span {
        size_t offset = 0, length = 0;
        bool null = true;
    };
    std::string data_;
    std::vector<Span> spans_;
};

// One table read once in the order of its key, for a walk that asks for the rows of one key
// after another in the same order: the rows a per-key query would give, in that query's order,
// without a query per key. Asked for a key behind the last one, or far ahead, it seeks anew, so
// a walk out of order stays correct and costs a look-up at most.
class KeyedScan {
  public:
    using Row = ScanRow;

    // keyColumns: compared with "=" as the per-key query does; orderTail: the query's own order
    // within a key (without the row id, which always comes last). `reader` reads ahead, `c`
    // seeks: on a server the reading ahead may run on a connection and thread of its own, in
    // the same snapshot.
    KeyedScan(store::Connection& c, store::Connection& reader, std::string table,
              std::vector<std::string> keyColumns, std::vector<std::string> orderTail = {});
    ~KeyedScan();
    KeyedScan(const KeyedScan&) = delete;
    KeyedScan& operator=(const KeyedScan&) = delete;

    // The rows whose key equals `key`; valid until the next call (of rows() or readAhead()).
    std::span<const Row> rows(const std::vector<std::string>& key);
    // Reads the rows of every key whose first column is one of `firsts`, all in one statement;
    // rows() answers those keys from them until the next call. `firsts` are sorted, each once,
    // and stay as they are until then. asRange: the firsts lie close
    // together in the table's order, and the rows from the least to the greatest are read.
    // Where a key column compares otherwise than by its bytes, nothing is read ahead.
    void readAhead(const std::vector<std::string>& firsts, bool asRange);
    // The rows read ahead, of every key.
    std::span<const Row> heldRows() const { return {held_.data(), heldSize_}; }
    const std::vector<std::string>& names() const { return names_; }
    // The position of a column among names(); throws "item not found" like a field read.
    size_t column(const std::string& name) const;
    // How a column of this table is compared in the per-key queries.
    TextCompare compareOf(const std::string& column);

  private:
    std::string order(store::Connection& c, bool withinKey);
    void open();
    void learnColumns(const store::Statement& st);
    void orderWithinKeys();
    void seek(const std::vector<std::string>& key);
    void advance();
    int compareAhead(const std::vector<std::string>& key) const;
    int compareKeys(const std::vector<std::string>& a, const std::vector<std::string>& b) const;

    store::Connection& c_;
    store::Connection& reader_;
    std::string table_;
    std::vector<std::string> keyColumns_, orderTail_;
    std::unique_ptr<store::Statement> st_;
    std::vector<std::string> names_;
    std::vector<size_t> keyIndex_;
    std::vector<TextCompare> compare_;

    bool positioned_ = false;  // the statement stands behind last_'s rows
    bool haveAhead_ = false;   // the statement's current row, not yet handed out
    bool haveLast_ = false;
    std::vector<std::string> last_;
    std::vector<std::string> aheadKey_;  // the key of the row ahead
    std::vector<bool> aheadNull_;
    std::vector<Row> group_;
    size_t groupSize_ = 0;

    // Whether the rows of a key whose first column is `first` were read ahead.
    bool holds(std::string_view first) const;

    std::unique_ptr<store::Statement> ahead_, ordered_;
    bool aheadByRange_ = false;
    bool textOrder_ = false;  // the order within a key weighs German text
    // The first key columns read ahead, sorted: every one from the least to the greatest where
    // they were read as a range, else these alone.
    const std::vector<std::string>* heldFirsts_ = nullptr;
    bool heldRange_ = false;
    std::vector<Row> held_;  // their rows in the order of the keys
    size_t heldSize_ = 0;
    // The keys of the rows read ahead, in the order of the keys (which is their bytes' order,
    // as nothing is read ahead otherwise), each with its first row and count. The walk asks
    // for them in order mostly: it is looked for from where the last one was found.
    struct Group {
        std::vector<std::string> key;
        size_t first = 0, count = 0;
    };
    std::vector<Group> groups_;
    size_t groupCount_ = 0;
    size_t groupAt_ = 0;
};

// The export's selection of businesses, a query on the table "betrieb" in the old engine's
// language, read as one plain statement: the rows its recordset holds, in the recordset's
// order (the query's own, ties by row id), without fetching each row by its key.
class SelectionScan {
  public:
    // columns: the select list to read instead of the query's own (SQLite's text).
    SelectionScan(store::Connection& c, const std::string& jetQuery,
                  const std::string& columns = {});
    ~SelectionScan();
    SelectionScan(const SelectionScan&) = delete;
    SelectionScan& operator=(const SelectionScan&) = delete;

    // Steps to the next row; false past the last.
    bool next();
    long long rowid() const;
    // The columns of the current row.
    const KeyedScan::Row& readRow();
    void readRow(KeyedScan::Row& into) const;
    const std::vector<std::string>& names() const { return names_; }
    // The position of a column among names(), its name compared without regard to case as a
    // field's is; throws "item not found" like a field read.
    size_t column(const std::string& name) const;
    // Whether a column of the current row holds text (rather than null or a number).
    bool isText(size_t column) const;

  private:
    std::unique_ptr<store::Statement> st_;
    std::vector<std::string> names_;
    KeyedScan::Row row_;
};

// The scans one export file reads: the business's rows, its links, and the rows of its persons;
// one for each table the export writes beside the business itself, keyed as the table is tied.
class ExportScans {
  public:
    explicit ExportScans(store::Connection& c) : ExportScans(c, c) {}
    // The blocks' rows are read ahead by `reader`, the rest is sought by `c`.
    ExportScans(store::Connection& c, store::Connection& reader);

    KeyedScan& of(std::string_view table);
    // Before a block of businesses, by their numbers: on a server the scans read the block's
    // rows of each table at once, where a seek would cost a round trip and a cursor of its own.
    // A file's scans seek for next to nothing and read on as the walk goes.
    void readAhead(const std::vector<std::string>& betrNrs);

  private:
    // Whether `values` rows make up at least half of the table's rows from the least of their
    // numbers (`sorted`, each once) to the greatest, by its column.
    bool fillsStretch(std::unique_ptr<store::Statement>& count, const std::string& table,
                      const std::string& column, const std::vector<std::string>& sorted,
                      size_t values);

    store::Connection& reader_;
    std::unique_ptr<store::Statement> stretches_[2];  // counts of businesses, of persons
    std::vector<std::string> firsts_[2];              // their numbers, sorted, each once
    std::vector<std::pair<std::string_view, std::unique_ptr<KeyedScan>>> scans_;

  public:
    KeyedScan &meldGruende, &adressen, &taetigkeiten, &handwerkskarten, &erlaubnisse, &links;
    KeyedScan &person, &staatsang, &personErlaubnis, &personHandwerkskarte;
};

}  // namespace tolma::transfer
