#pragma once

#include <string>
#include <string_view>
#include <vector>

// The tables and fields of the three stores. The default stores are generated from these
// lists, so a field added here reaches the stores, the import and the export alike.
namespace tolma::model {

enum class FieldType { Text, Memo, Boolean, Long };

struct FieldDef {
    std::string name;
    FieldType type = FieldType::Text;
    int size = 0;  // characters of a text field
};

struct TableDef {
    std::string name;
    std::vector<FieldDef> fields;
    std::vector<std::vector<std::string>> indexes;  // fields that criteria and joins use
    // Text fields that the lists search by their beginning: indexed by lower() of them, which
    // leaves the field's comparisons and sorting as they are.
    std::vector<std::string> prefixIndexes = {};

    const FieldDef* field(std::string_view fieldName) const;
};

const std::vector<TableDef>& settingsTables();  // "TL_Org.mdb"
const std::vector<TableDef>& dataTables();      // "tl_4x_b.mdb" and "tl_4x_m.mdb"
const TableDef* findTable(std::string_view tableName);

// SQL that creates a table and its indexes. Text columns compare without regard to case.
std::string createTableSql(const TableDef& table);
std::vector<std::string> createIndexSql(const TableDef& table);
// The indexes of the fields the lists sort and search, with the statement that makes each and
// the name of an index that stores of older builds have in its place (empty: none).
struct PrefixIndex {
    std::string name, create, retired;
};
std::vector<PrefixIndex> prefixIndexesOf(const TableDef& table);

}  // namespace tolma::model
