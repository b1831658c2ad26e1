#pragma once

#include <string>
#include <vector>

#include "store/variant.h"

namespace tolma::store {
class Connection;
class Statement;
}  // namespace tolma::store

// The tables of the record of import runs: "tolma_import_lauf" (the runs), "tolma_import_marke"
// (each table's highest row id before a run) and "tolma_rueck_<table>" (old images and inserted
// row ids, a row (lauf, art, rid, columns...)).
namespace tolma::transfer {
struct ImportRun;
}

namespace tolma::transfer::journal {

std::string recordTableOf(const std::string& table);
bool tableExists(store::Connection& c, const std::string& name);
std::vector<std::string> columnsOf(store::Connection& c, const std::string& table);
// The system's tables that the store holds.
std::vector<std::string> recordedTables(store::Connection& c);
std::string columnList(const std::vector<std::string>& columns, const std::string& prefix = "");
void createRecordTables(store::Connection& c);
// On a server, the index of each record's row ids, where a record made before has none; only
// the owner of the records may make it. Returns how many were made.
int indexRecordTables(store::Connection& c);
// The art of a record's row that marks a row the run left as it stood, where writing it anew
// would have changed nothing: the run counts as the one that wrote it, and taking the run back
// leaves it. Such a row holds the row id alone.
inline constexpr const char* kLeftAsItStood = "G";
// The runs whose images went with a deletion after the period: made with the record, or at
// the first such deletion.
inline constexpr const char* kImagesDeleted = "tolma_import_geloescht";
void createImagesDeleted(store::Connection& c);
// Drops the records (not the runs) that a condition on `lauf` names.
void dropRecordsOf(store::Connection& c, const std::string& condition,
                   const std::vector<store::Variant>& params);
// A run from a row (lauf, datum, datei, betriebe, zurueckgenommen).
ImportRun runFrom(store::Statement& st);

}  // namespace tolma::transfer::journal
