#include "core/store_work.h"

#include "core/error_log.h"
#include "store/connection.h"
#include "store/dao_error.h"

namespace tolma::core {

WorkLeave askWorkLeave(Globals& g, store::StoreWork work, const std::string& procedure,
                       const std::string& title) {
    WorkLeave leave;
    if (!g.stores.db_daten.isSet()) {
        leave.granted = true;
        return leave;
    }
    std::string refusal;
    std::string number;
    try {
        store::Connection& c = *g.stores.db_daten.connection();
        refusal = store::writeRefusal(c);
        number = std::to_string(store::err::kNoPermission);
        if (refusal.empty()) leave.lock = store::WorkLock::take(c, work);
    } catch (const store::DaoError& e) {
        refusal = e.description();
        number = std::to_string(e.number());
    }
    if (refusal.empty()) {
        leave.granted = true;
        return leave;
    }
    A_Error_Log(g, procedure, "DAO.Database", number, refusal, "Fehlerortung: ", "0");
    showMessage(g, refusal, msg::vbExclamation, title);
    return leave;
}

void announceStoreChange(Globals& g, store::StoreWork work) noexcept {
    try {
        if (g.stores.db_daten.isSet()) store::announceChange(*g.stores.db_daten.connection(), work);
    } catch (const std::exception&) {
        // Nothing to announce without a store.
    }
}

}  // namespace tolma::core
