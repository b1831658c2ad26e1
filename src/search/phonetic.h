#pragma once

#include <string>
#include <string_view>

// How a word is compared when the clerk does not know its spelling.
namespace tolma::search {

// The Kölner Phonetik of a word (UTF-8): "Meier", "Mayer" and "Meyr" give "67".
std::string koelnerPhonetik(std::string_view word);

// A word as the search compares spellings: lower case, ä/ae/a, ö/oe/o, ü/ue/u, ß/ss and the
// accents of other Latin letters folded alike ("Müller", "Mueller" and "Muller" agree).
std::string fold(std::string_view word);

}  // namespace tolma::search
