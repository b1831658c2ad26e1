#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

// How values change on their way between a transfer file and a store.
namespace tolma::model {

// The 18 date fields, in their order and spelling; a field of any table with one of these
// names, compared without regard to case, is a date field.
extern const std::array<std::string_view, 18> kDatumsfelder;
bool isDateField(std::string_view fieldName);

// "YYYYMMDD" of a file to "DD.MM.YYYY" of a store; "88888888" is "unbekannt" and
// "99999999" "unbegrenzt". Nothing checks the form: "2001" becomes "..2001".
std::string dateFileToStore(const std::string& value);
// The way back; the two words are compared exactly.
std::string dateStoreToFile(const std::string& value);

// The three cleaning steps of every value the export's field writer emits, in this order.
void TML_Zeilenenden_ersetzen(std::string& value);
void TML_Semikolon_entfernen(std::string& value);
void TML_Klammern_ersetzen(std::string& value);
std::string cleanForExport(std::string value);
// The same three steps on a copy of `value` appended to `out`.
void appendCleanForExport(std::string& out, std::string_view value);

// A field is written only if its value, trimmed, is not empty; Null counts as blank.
bool isBlank(const std::optional<std::string>& value);

// Characters of a UTF-8 text, and the first `size` of them.
long long characterCount(std::string_view value);
std::string firstCharacters(std::string_view value, long long size);
// Characters `start` (1-based) to `start + length - 1`, as Mid does; short texts give less.
std::string mid(std::string_view value, long long start, long long length);

}  // namespace tolma::model

namespace tolma::model {
// A text longer than its field's size is cut to the size; a memo takes any length.
// Returns whether the value was cut.
bool cutToFieldSize(std::string& value, int size, bool memo);
}  // namespace tolma::model
