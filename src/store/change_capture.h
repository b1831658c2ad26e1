#pragma once

#include <string>
#include <vector>

#include "store/connection.h"

struct sqlite3_value;

namespace tolma::store {

// Records the changes made through a connection into tables of the caller's, so that they can
// be reversed: the old image of every row deleted or changed, and the row id of every row
// inserted at or below a mark (a row id above the mark is new in any case). A record row is
// (run, art, rid, columns...) with art 'D', 'U' or 'I'.
//
// The rows are captured as the connection's listener, which SQLite's pre-update hook feeds, and
// written just before the connection commits, so that the record always lands in the same
// transaction as the changes. The hook
// costs a fraction of what per-row triggers cost: a trigger builds the whole new row for every
// insert, even when its condition then says no.
class ChangeCapture final : private ChangeListener {
  public:
    struct Target {
        std::string table;   // in the main database
        std::string record;  // where its changes go
        long long mark = 0;  // the highest row id before the run
    };

    ChangeCapture(long long run, std::vector<Target> targets);
    ~ChangeCapture();
    ChangeCapture(const ChangeCapture&) = delete;
    ChangeCapture& operator=(const ChangeCapture&) = delete;

    // Starts capturing on the connection; again after it was closed and opened anew.
    void attach(Connection& c);
    // Writes what is pending and stops capturing.
    void detach(Connection& c) noexcept;
    // Writes the captured rows into their record tables; the connection calls it before a
    // commit.
    void flush(Connection& c);
    // While a Quiet stands, deleted and changed rows pass uncaptured: their owner has copied
    // them already.
    class Quiet {
      public:
        explicit Quiet(ChangeCapture* capture) : capture_(capture) {
            if (capture_) capture_->quiet_ = true;
        }
        ~Quiet() {
            if (capture_) capture_->quiet_ = false;
        }
        Quiet(const Quiet&) = delete;
        Quiet& operator=(const Quiet&) = delete;

      private:
        ChangeCapture* capture_;
    };

    size_t pending() const { return events_.size(); }

  private:
    struct Event {
        int target;
        char art;
        long long rid;
        std::vector<sqlite3_value*> values;  // owned copies; none for 'I'
    };
    void changing(Connection& c, const Change& change) override;
    // The old images of a delete of many rows go into the record in one statement.
    bool deletingWhere(Connection& c, size_t table, const Condition& where) override;
    void committing(Connection& c) override { flush(c); }
    void rolledBack(Connection& /*c*/) noexcept override { clear(); }
    void closing(Connection& c) noexcept override { detach(c); }
    // The text that copies the rows at or below the mark that a condition appended to it (in
    // parentheses) names into the record.
    const std::string& imageSelect(Connection& c, size_t target);
    static std::string recordInsert(Connection& c, const Target& t);
    int targetOf(const std::string& table) const;
    void clear() noexcept;

    long long run_;
    std::vector<Target> targets_;
    std::vector<Event> events_;
    bool flushing_ = false, quiet_ = false;
    std::vector<std::string> imageSelects_;
    Connection* attached_ = nullptr;
};

}  // namespace tolma::store
