#pragma once

#include <memory>
#include <string>
#include <vector>

namespace tolma::store {

class Connection;
class ServerSession;

// Work that changes a store as a whole: one workstation at a time may do it on a server store.
enum class StoreWork { Import, TakeBack, Emptying, Deletion };

// The lock of such work on a server store: an advisory lock held by a session of its own, so
// that the server frees it when the workstation goes away, however it ends. The session's name
// tells the other workstations what is done since when; the server tells them by whom.
class WorkLock {
  public:
    // Takes the lock, or raises a DaoError (err::kDatabaseInUse) whose text names the holder.
    // A file store needs none, since one program at a time holds a file: nullptr then.
    static std::unique_ptr<WorkLock> take(Connection& c, StoreWork work);
    ~WorkLock();
    WorkLock(const WorkLock&) = delete;
    WorkLock& operator=(const WorkLock&) = delete;

  private:
    explicit WorkLock(std::unique_ptr<ServerSession> session);
    std::unique_ptr<ServerSession> session_;
};

// The name a session holding the lock goes by, for `work` begun at `since` (seconds since the
// epoch): what take() reads back from the holder.
std::string workSessionName(StoreWork work, long long since);
// The German refusal for a holder of that name, logged in as `user`.
std::string busyMessage(const std::string& sessionName, const std::string& user);

// Why this login may not change the store, as a German sentence; empty when it may. A server
// that takes no writes (a standby) and a login without the rights of the import role are told
// apart. On a file store always empty: the file's own rights show when it is opened.
std::string writeRefusal(Connection& c);

// Empties every table of a server store in one transaction, its row ids counted from 1 again.
void emptyServerStore(Connection& c);

// Rewrites the tables of a server store, so that deleted rows leave the server's files too.
// Only a table's owner may: returns the tables this login had to leave as they are.
std::vector<std::string> rewriteServerTables(Connection& c);

// Tells the other workstations that the store changed: at the commit of the open transaction,
// or at once outside one. Never raises: the change is made either way.
void announceChange(Connection& c, StoreWork work) noexcept;
// From now on this connection hears of the changes the others announce.
void listenForChanges(Connection& c);
// The changes announced by others since the last call, without waiting; none on a file store
// or while the connection is busy.
std::vector<StoreWork> changesHeard(Connection& c);

}  // namespace tolma::store
