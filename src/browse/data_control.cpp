#include "browse/data_control.h"

#include "store/dao_error.h"

namespace tolma::browse {

void DataControl::Refresh() {
    recordset_.Close();
    database_.Close();
    if (DatabaseName.empty()) return;
    database_ = store::Database::OpenDatabase(DatabaseName);
    recordset_ = database_.OpenRecordset(RecordSource);
    recordset_.setMoveListener([this] {
        if (Reposition) Reposition();
    });
    if (Reposition) Reposition();
}

std::string DataControl::fieldText(const std::string& field) const {
    if (!recordset_.isSet() || recordset_.Eof() || recordset_.Bof()) return {};
    try {
        return recordset_.Fields(field).Value().toString();
    } catch (const store::DaoError&) {
        return {};
    }
}

}  // namespace tolma::browse
