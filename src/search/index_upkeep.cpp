#include "search/index_upkeep.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "model/relations.h"
#include "search/index_reader.h"
#include "search/search_index.h"
#include "store/connection.h"

namespace tolma::search {
namespace {

// Of the number as numberKey() gives it, without making that text.
std::uint64_t hashOf(std::string_view nr) {
    std::uint64_t h = 14695981039346656037ull;
    for (char ch : nr) {
        if (ch >= 'A' && ch <= 'Z') ch = static_cast<char>(ch + ('a' - 'A'));
        h = (h ^ static_cast<unsigned char>(ch)) * 1099511628211ull;
    }
    return h;
}

}  // namespace

void IndexUpkeep::Numbers::add(std::string_view nr) {
    const std::uint64_t h = hashOf(nr);
    if (std::binary_search(sorted_.begin(), sorted_.end(), h)) return;
    recent_.insert(h);
    // Merged now and then into the sorted list, which holds a number in a fifth of the room.
    if (recent_.size() < 65536) return;
    const size_t middle = sorted_.size();
    sorted_.insert(sorted_.end(), recent_.begin(), recent_.end());
    std::sort(sorted_.begin() + static_cast<long>(middle), sorted_.end());
    std::inplace_merge(sorted_.begin(), sorted_.begin() + static_cast<long>(middle), sorted_.end());
    recent_.clear();
}

bool IndexUpkeep::Numbers::has(std::string_view nr) const {
    const std::uint64_t h = hashOf(nr);
    return recent_.count(h) || std::binary_search(sorted_.begin(), sorted_.end(), h);
}

IndexUpkeep::~IndexUpkeep() {
    stop();
    if (auto c = watched_.lock()) watchedBlock(*c);
}

void IndexUpkeep::begin(store::Connection& c) {
    if (!started_) {
        started_ = true;
        following_ = hasIndex(c);
    }
    // Into every block's transaction: which of them commits first is not known in advance.
    if (following_ && !finished_) markBehind(c);
}

void IndexUpkeep::keep(store::Connection& c, const std::vector<std::string>& betrNrs,
                       const std::vector<std::string>& persNrs) {
    const bool watched = watchedBlock(c);
    if (!started_) begin(c);
    if (!following_ || failed_) return;
    // A server's rows are written into this block's transaction, so they must all be read.
    if (c.isServer()) settle();
    Noted& noted = noted_.emplace();
    if (watched && learnt_) {
        for (const auto& nr : betrNrs)
            (nr.empty() || businesses_.has(nr) ? noted.listed : noted.added.numbers).push_back(nr);
        // A person the store did not hold is linked to businesses of this block alone.
        for (const auto& nr : persNrs)
            (persons_.has(nr) ? noted.persons : noted.freshPersons).push_back(nr);
        noted.added.from = from_;
    } else {
        noted.listed = betrNrs;
        noted.persons = persNrs;
    }
    // The block's numbers are held from now on, however the writing ends.
    if (learnt_) {
        for (const auto& nr : betrNrs) businesses_.add(nr);
        for (const auto& nr : persNrs) persons_.add(nr);
    }
    launched_ = false;
    if (!learnt_ && manyNew_) learn(c);
    if (learnt_) watch(c);
    write(c);
}

void IndexUpkeep::committed(store::Connection& c) {
    if (!noted_ || launched_ || failed_) return;
    // What the commit kept is in the store now.
    found_.clear();
    launched_ = true;
    Noted& n = *noted_;
    if (n.listed.empty() && n.persons.empty() && n.added.numbers.empty()) return;
    std::unordered_set<std::string> fresh;
    for (const auto& nr : n.freshPersons) fresh.insert(numberKey(nr));
    // A linked person that is not among the block's own is looked up by its number.
    n.added.personHeld = [fresh = std::move(fresh)](std::string_view nr) {
        return !fresh.count(numberKey(nr));
    };
    // A store file's index is a file of its own, which the thread writes while the next block
    // is stored; a server's index is written in the next block's transaction.
    Task task{std::move(n), c.file(), !c.isServer()};
    std::unique_lock lock(mutex_);
    // One block waits behind the one at work at most: the storing must not run far ahead.
    changed_.wait(lock, [&] { return !waiting_; });
    waiting_.emplace(std::move(task));
    changed_.notify_all();
    if (worker_.joinable()) return;
    try {
        worker_ = std::thread([this] { work(); });
    } catch (const std::system_error&) {
        waiting_.reset();
        failed_ = true;  // no thread to be had: the next search builds the index anew
    }
}

void IndexUpkeep::work() {
    // Behind the storing thread, which sets the pace: the reading has a block's time.
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), 10);
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [&] { return waiting_ || stopping_; });
        if (!waiting_) return;
        const Task task = std::move(*waiting_);
        waiting_.reset();
        busy_ = true;
        changed_.notify_all();
        const bool failedBefore = readFailed_ != nullptr;
        lock.unlock();
        std::exception_ptr failure;
        // After a failure the index is built anew in any case.
        if (!failedBefore) {
            try {
                run(task.noted, task.file, task.writes);
            } catch (...) {
                failure = std::current_exception();
            }
        }
        lock.lock();
        if (failure && !readFailed_) readFailed_ = failure;
        busy_ = false;
        changed_.notify_all();
    }
}

void IndexUpkeep::run(const Noted& n, const std::filesystem::path& file, bool writes) {
    // Kept from block to block: the last connection to the index file that closes writes its
    // log into it.
    if (!own_) {
        auto opened =
            writes ? store::Connection::openBeside(file) : store::Connection::openReader(file);
        if (writes && !opened->holdIndexFile(false))
            throw std::runtime_error("Die Datei des Suchindex fehlt.");
        own_ = std::move(opened);
    }
    store::Connection* own = own_.get();
    try {
        // One snapshot: the store as the block's commit left it, or a later one.
        own->execute("BEGIN");
        auto rows = readRefresh(*own, n.listed, n.persons, Persons::Named,
                                n.added.numbers.empty() ? nullptr : &n.added);
        if (writes)
            for (const RowsToWrite& part : rows) writeRows(*own, part);
        own->execute("COMMIT");
        if (!writes) {
            std::lock_guard lock(mutex_);
            found_ = std::move(rows);
        }
    } catch (...) {
        own->rollbackOpen();
        own_.reset();
        throw;
    }
}

void IndexUpkeep::settle() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return !waiting_ && !busy_; });
    // Nothing of this run holds the store's file any more: it may be replaced.
    own_.reset();
}

void IndexUpkeep::stop() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    if (worker_.joinable()) worker_.join();
    own_.reset();
}

void IndexUpkeep::abandon() {
    stop();
    finished_ = true;
    found_.clear();
}

void IndexUpkeep::finish(store::Connection& c, const std::vector<std::string>& also,
                         bool everything) {
    if (!following_ || finished_) return;
    finished_ = true;
    if (failed_) return;
    // A block whose commit was not heard of: its rows are read now.
    if (noted_ && !launched_) committed(c);
    settle();
    if (!c.isServer()) {
        // The index file is written apart from the store's transactions, the token last.
        write(c);
        if (everything) {
            buildIndex(c);
        } else {
            if (!also.empty()) {
                const auto index = indexConnection(c, false);
                if (!index) throw std::runtime_error("Die Datei des Suchindex fehlt.");
                index->execute("BEGIN");
                try {
                    for (const RowsToWrite& part :
                         readRefresh(*index, also, {}, Persons::OfTheBusinesses, nullptr))
                        writeRows(*index, part);
                    index->execute("COMMIT");
                } catch (...) {
                    index->rollbackOpen();
                    throw;
                }
            }
            markFollowing(c);
        }
        return;
    }
    const bool own = !c.inBatch();
    if (own) c.beginBatch();
    try {
        if (everything) {
            buildIndex(c);
        } else {
            write(c);
            // What a block stored ahead of an element that failed, apart from its notes.
            if (!also.empty())
                for (const RowsToWrite& part :
                     readRefresh(c, also, {}, Persons::OfTheBusinesses, nullptr))
                    writeRows(c, part);
        }
        markFollowing(c);
        if (own) c.commitBatch();
    } catch (...) {
        if (own) c.rollbackBatch();
        throw;
    }
    found_.clear();
}

// Writes what was found; it stays held until a commit has kept it.
void IndexUpkeep::write(store::Connection& c) {
    try {
        std::exception_ptr failed;
        {
            std::lock_guard lock(mutex_);
            failed = std::exchange(readFailed_, nullptr);
        }
        if (failed) std::rethrow_exception(failed);
        for (const RowsToWrite& part : found_) writeRows(c, part);
    } catch (...) {
        failed_ = true;
        throw;
    }
}

// Reads the numbers the store holds, in the columns that tie the rows of the index's tables to
// a business or a person; after the first block, so that they include its own.
void IndexUpkeep::learn(store::Connection& c) {
    auto read = [&c](std::string_view table, std::string_view column, Numbers& into) {
        const std::string name = "[" + std::string(column) + "]";
        auto st = c.prepare("SELECT " + name + " FROM " + std::string(table) + " WHERE " + name +
                            " IS NOT NULL");
        while (st->step()) into.add(st->columnText(0));
    };
    for (const model::Relation& r : model::relations())
        if (r.searched && !r.keys.number.empty()) read(r.table, r.keys.number, businesses_);
    for (const model::Relation& r : model::relations())
        if (r.searched && !r.keys.person.empty()) read(r.table, r.keys.person, persons_);
    learnt_ = true;
}

void IndexUpkeep::watch(store::Connection& c) {
    std::vector<std::string> tables;
    watchedTables_.clear();
    for (const model::Relation& r : model::relations())
        if (r.searched) {
            tables.emplace_back(r.table);
            watchedTables_.push_back(static_cast<size_t>(&r - model::relations().data()));
        }
    from_.assign(model::relations().size(), std::numeric_limits<long long>::max());
    c.watch(*this, std::move(tables));
    watched_ = c.shared_from_this();
}

bool IndexUpkeep::watchedBlock(store::Connection& c) {
    // A connection opened anew since (the store was compacted) has not been watched.
    return c.unwatch(*this);
}

void IndexUpkeep::changing(store::Connection&, const Change& change) {
    if (change.kind != Kind::Insert) return;
    long long& from = from_[watchedTables_[change.table]];
    from = std::min(from, change.newRow);
}

}  // namespace tolma::search
