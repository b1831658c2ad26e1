#include "store/change_capture.h"

// The pre-update hook's old values are declared only on request; Debian's library is built with
// them (and with the session extension, which needs them).
#define SQLITE_ENABLE_PREUPDATE_HOOK 1
#include <sqlite3.h>

#include <cstring>

#include "store/connection.h"
#include "store/jet_sql.h"

namespace tolma::store {
ChangeCapture::ChangeCapture(long long run, std::vector<Target> targets)
    : run_(run), targets_(std::move(targets)) {}

ChangeCapture::~ChangeCapture() {
    if (attached_) detach(*attached_);
    clear();
}

void ChangeCapture::attach(Connection& c) {
    if (attached_ && attached_ != &c) detach(*attached_);
    attached_ = &c;
    std::vector<std::string> tables;
    for (const Target& t : targets_) tables.push_back(t.table);
    c.watch(*this, std::move(tables));
}

void ChangeCapture::detach(Connection& c) noexcept {
    if (attached_ != &c) return;
    attached_ = nullptr;
    try {
        flush(c);
    } catch (const std::exception&) {
        // what could not be written belongs to a transaction that is not kept either
    }
    c.unwatch(*this);
    clear();
}

int ChangeCapture::targetOf(const std::string& table) const {
    for (size_t i = 0; i < targets_.size(); ++i)
        if (targets_[i].table == table) return static_cast<int>(i);
    return -1;
}

void ChangeCapture::changing(Connection& c, const Change& change) {
    if (flushing_) return;
    const int target = static_cast<int>(change.table);
    if (change.kind == Kind::Insert) {
        if (change.newRow <= targets_[change.table].mark)
            events_.push_back({target, 'I', change.newRow, {}});
        return;
    }
    if (quiet_) return;
    const char art = change.kind == Kind::Delete ? 'D' : 'U';
    if (c.isServer()) {
        // The server tells of a row before it changes and lets a statement run meanwhile: its
        // image is copied at once, after what came before it.
        flush(c);
        flushing_ = true;
        struct Done {
            bool& flag;
            ~Done() { flag = false; }
        } done{flushing_};
        const Target& t = targets_[change.table];
        auto& copy = c.cached(recordInsert(c, t) + " SELECT " + std::to_string(run_) + ", '" + art +
                              "', rowid, " + c.columnList(t.table) + " FROM " +
                              jet::quoteName(t.table) + " WHERE rowid = ?1");
        copy.bindInteger(1, change.oldRow);
        copy.step();
        return;
    }
    Event e{target, art, change.oldRow, {}};
    sqlite3* db = c.handle();
    const int n = sqlite3_preupdate_count(db);
    e.values.reserve(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        sqlite3_value* v = nullptr;
        sqlite3_preupdate_old(db, i, &v);
        e.values.push_back(v ? sqlite3_value_dup(v) : nullptr);
    }
    events_.push_back(std::move(e));
}

// The start of an insert into a record table, naming its columns: the server's record has a
// row id of its own besides them.
std::string ChangeCapture::recordInsert(Connection& c, const Target& t) {
    return "INSERT INTO " + jet::quoteName(t.record) + " (lauf, art, rid, " +
           c.columnList(t.table) + ")";
}

const std::string& ChangeCapture::imageSelect(Connection& c, size_t target) {
    imageSelects_.resize(targets_.size());
    std::string& text = imageSelects_[target];
    if (text.empty())
        // Rows above the mark are the run's own, which taking back removes in any case.
        text = recordInsert(c, targets_[target]) + " SELECT " + std::to_string(run_) +
               ", 'D', rowid, " + c.columnList(targets_[target].table) + " FROM main." +
               jet::quoteName(targets_[target].table) +
               " WHERE rowid <= " + std::to_string(targets_[target].mark) + " AND ";
    return text;
}

bool ChangeCapture::deletingWhere(Connection& c, size_t table, const Condition& where) {
    if (flushing_ || quiet_) return quiet_;
    if (where.rowsAreNew) return true;  // nothing of them to keep
    // What the hook holds goes first, so that the record keeps the order in which rows came
    // and went.
    flush(c);
    auto& copy = c.cached(imageSelect(c, table) + "(" + where.sql + ")");
    copy.bindValues(where.values, where.numeric);
    copy.send();
    return true;
}

void ChangeCapture::flush(Connection& c) {
    if (events_.empty()) return;
    flushing_ = true;
    // One statement per table and kind, looked up once per flush rather than once per row.
    std::vector<Statement*> images(targets_.size()), inserts(targets_.size());
    try {
        for (const Event& e : events_) {
            const Target& t = targets_[static_cast<size_t>(e.target)];
            Statement*& kept = (e.art == 'I' ? inserts : images)[static_cast<size_t>(e.target)];
            if (!kept) {
                std::string sql = "INSERT INTO " + jet::quoteName(t.record);
                if (e.art == 'I') {
                    sql += " (lauf, art, rid) VALUES (?1, ?2, ?3)";
                } else {
                    sql += " VALUES (?1, ?2, ?3";
                    for (size_t i = 0; i < e.values.size(); ++i)
                        sql += ", ?" + std::to_string(i + 4);
                    sql += ")";
                }
                kept = &c.cached(sql);
            }
            Statement& st = *kept;
            st.reset();
            st.bindInteger(1, run_);
            st.bindTextStatic(2, std::string_view(&e.art, 1));
            st.bindInteger(3, e.rid);
            sqlite3_stmt* s = st.handle();
            for (size_t i = 0; i < e.values.size(); ++i) {
                if (e.values[i])
                    sqlite3_bind_value(s, static_cast<int>(i + 4), e.values[i]);
                else
                    sqlite3_bind_null(s, static_cast<int>(i + 4));
            }
            st.step();
        }
    } catch (...) {
        flushing_ = false;
        throw;
    }
    flushing_ = false;
    clear();
}

void ChangeCapture::clear() noexcept {
    for (Event& e : events_)
        for (sqlite3_value* v : e.values) sqlite3_value_free(v);
    events_.clear();
}

}  // namespace tolma::store
