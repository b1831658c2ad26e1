#pragma once

#include <string>
#include <string_view>

// Windows-1252, the code page of transfer files and the error log; the program holds UTF-8.
namespace tolma::model {

// A character that Windows-1252 cannot hold becomes "?"; `lost` counts them.
std::string utf8ToCp1252(std::string_view utf8, int* lost = nullptr);
void appendUtf8AsCp1252(std::string& out, std::string_view utf8, int* lost = nullptr);
std::string cp1252ToUtf8(std::string_view cp1252);
void appendCp1252AsUtf8(std::string& out, std::string_view cp1252);
// Valid UTF-8 with at least one character outside ASCII.
bool isUtf8WithNonAscii(std::string_view bytes);
// The text with every byte that is no part of a valid UTF-8 sequence replaced by a blank.
std::string blankInvalidUtf8(std::string_view bytes);

}  // namespace tolma::model
