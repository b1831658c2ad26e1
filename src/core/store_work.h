#pragma once

#include <memory>
#include <string>

#include "core/globals.h"
#include "store/server_work.h"

namespace tolma::core {

// Leave to change the open store as a whole (an import, taking one back, emptying, deleting
// after the period): the login's rights first, then on a server the lock that one workstation
// at a time holds. It holds the lock while it lives.
struct WorkLeave {
    bool granted = false;
    std::unique_ptr<store::WorkLock> lock;
};

// Asks for that leave up front, before anything changes. A refusal is told the clerk in a
// message titled `title` and written to the log under `procedure`; a store that is not open
// grants it (the work itself then meets the missing store as before).
WorkLeave askWorkLeave(Globals& g, store::StoreWork work, const std::string& procedure,
                       const std::string& title);

// Tells the other workstations that the open store changed; never raises.
void announceStoreChange(Globals& g, store::StoreWork work) noexcept;

}  // namespace tolma::core
