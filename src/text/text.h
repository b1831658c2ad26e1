#pragma once

#include <string>
#include <string_view>

// Text as the program handles it everywhere: UTF-8, the case of German text (Latin-1 letters
// included), ASCII case for keys and names of the store, and blanks around values. The one
// place for these, below every other part of the program.
namespace tolma::text {

// Reads one code point and moves i past it; a broken sequence reads as its first byte.
char32_t nextCodePoint(std::string_view s, size_t& i);
void appendUtf8(std::string& out, char32_t cp);
// The number of code points.
long long utf8Length(std::string_view s);

// The case of one code point, Latin-1 letters included ("Ä" ↔ "ä"); others stay.
char32_t lowerOf(char32_t c);
char32_t upperOf(char32_t c);

// Upper and lower case of a UTF-8 text, Latin-1 letters included ("müller" → "MÜLLER").
std::string upper(std::string_view s);
std::string lower(std::string_view s);

// ASCII letters only: for numbers, keys and the names of tables and files.
std::string upperAscii(std::string_view s);
std::string lowerAscii(std::string_view s);

// Without the characters of `around` at both ends.
std::string_view trimmed(std::string_view s, std::string_view around = " \t\r\n");
// Without the blanks that fixed-width values carry.
std::string trimBlanks(std::string_view s);

}  // namespace tolma::text
