#include "transfer/field_store.h"

#include "core/error_log.h"
#include "model/values.h"
#include "store/jet_sql.h"

namespace tolma::transfer {

bool Upd_5_Felder(ImportContext& ctx, store::Field field, std::string value) {
    try {
        if (ctx.isDateField(field.Name())) value = model::dateFileToStore(value);
        const bool memo = field.Type() == store::dao::dbMemo;
        if (memo || static_cast<long long>(value.size()) <= field.Size()) {
            field.setValue(std::move(value));  // fits: no need to count characters
            return true;
        }
        std::string stored = value;
        if (model::cutToFieldSize(stored, field.Size(), memo)) {
            field.setValue(stored);
            core::A_Error_Log(ctx.g, "Upd_5_Felder", "Dao.Field", "3163",
                              "Feld zu klein für Datenmenge, Inhalt wurde gekürzt!",
                              field.Name() + " = " + value, "0");
        } else {
            field.setValue(stored);
        }
        return true;
    } catch (const std::exception& e) {
        const auto info = core::describeError(e);
        core::A_Error_Log(ctx.g, "Upd_5_Felder", info.source, std::to_string(info.number),
                          info.text, field.Name() + " = " + value, "0");
        return false;
    }
}

long long Upd_6_Kill(ImportContext& ctx, const std::string& criteria, store::Recordset& table,
                     bool rowsAreNew, bool counted) {
    try {
        return table.deleteWhere(criteria, rowsAreNew, counted);
    } catch (const std::exception& e) {
        const auto info = core::describeError(e);
        core::A_Error_Log(ctx.g, "Upd_6_Kill", info.source, std::to_string(info.number), info.text,
                          "KRITERIUM: ", criteria);
        return -1;
    }
}

}  // namespace tolma::transfer
