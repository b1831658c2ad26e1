#pragma once

#include <string>

#include "store/jet_sql.h"
#include "store/recordset.h"
#include "transfer/import_context.h"

namespace tolma::transfer {

// Stores a value in a field of a row under AddNew: dates converted, long texts cut to the
// field's size with a log entry. False after an error, which is logged.
bool Upd_5_Felder(ImportContext& ctx, store::Field field, std::string value);

// Deletes the rows that meet the criteria; returns how many, or -1 after a logged failure.
// `rowsAreNew` and `counted` as Recordset::deleteWhere takes them.
long long Upd_6_Kill(ImportContext& ctx, const std::string& criteria, store::Recordset& table,
                     bool rowsAreNew = false, bool counted = true);

// Values go into criteria as quoted literals only.
using store::jet::quote;

}  // namespace tolma::transfer
