#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "model/schema.h"

// The three default stores that ship with the program, generated from the schema and the code
// lists in the data directory.
namespace tolma::model {

inline constexpr const char* kSettingsStoreFile = "TL_Org.mdb";
inline constexpr const char* kBusinessStoreFile = "tl_4x_b.mdb";
inline constexpr const char* kNotificationStoreFile = "tl_4x_m.mdb";

// Semicolon-separated lines with a header line; fields may stand in double quotes.
std::vector<std::vector<std::string>> readCodeList(const std::filesystem::path& csv);

// Writes an empty store with the given tables; an existing file is replaced.
void writeEmptyStore(const std::filesystem::path& file, const std::vector<TableDef>& tables);

// Writes "TL_Org.mdb", "tl_4x_b.mdb" and "tl_4x_m.mdb" into `outDir`, the settings store
// filled with the municipalities and legal forms found in `dataDir`.
void writeDefaultStores(const std::filesystem::path& outDir, const std::filesystem::path& dataDir);

}  // namespace tolma::model
