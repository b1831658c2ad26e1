#pragma once

#include <string>
#include <string_view>

// Text as the old database compared and sorted it for German: case is ignored, umlauts
// included; ä, ö and ü sort with a, o and u, ß as ss, and at equal letters the plain letter
// comes first. Equality does not fold an umlaut to its base letter: "Muller" is not "Müller".
namespace tolma::store::german {

// <0, 0 or >0, as a collation answers; both texts UTF-8.
int compare(std::string_view a, std::string_view b);

// The letters compare() weighs first, marks dropped and ß as ss: texts in compare()'s order
// have their primary letters in order too, and a text that begins with another, case aside,
// has primary letters that begin with the other's.
std::u32string primary(std::string_view text);

// The name under which compare() is registered on every connection.
inline constexpr const char* kCollation = "jetde";

}  // namespace tolma::store::german
