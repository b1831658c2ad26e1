#pragma once

#include <ctime>
#include <string>
#include <string_view>

// Text as the program handles it everywhere: UTF-8, the case of German text (Latin-1 letters
// included), ASCII case for keys and names of the store, and blanks around values. The one
// place for these, below every other part of the program.
namespace tolma::text {

// Reads one code point and moves i past it; a broken sequence reads as its first byte. Inline,
// as the others of one code point: the store's collation calls them for every letter it sorts.
inline char32_t nextCodePoint(std::string_view s, size_t& i) {
    const auto c = static_cast<unsigned char>(s[i]);
    const size_t n = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 1;
    if (n == 1 || i + n > s.size()) {
        ++i;
        return c;
    }
    char32_t cp = c & (0xFF >> (n + 1));
    for (size_t k = 1; k < n; ++k) cp = (cp << 6) | (static_cast<unsigned char>(s[i + k]) & 0x3F);
    i += n;
    return cp;
}
void appendUtf8(std::string& out, char32_t cp);
// The number of code points.
long long utf8Length(std::string_view s);

// The case of one code point, Latin-1 letters included ("Ä" ↔ "ä"); others stay.
inline char32_t lowerOf(char32_t c) {
    if (c >= 'A' && c <= 'Z') return c + 32;
    if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return c + 32;
    return c;
}
inline char32_t upperOf(char32_t c) {
    if (c >= 'a' && c <= 'z') return c - 32;
    if (c >= 0xE0 && c <= 0xFE && c != 0xF7) return c - 32;
    return c;
}

// Upper and lower case of a UTF-8 text, Latin-1 letters included ("müller" → "MÜLLER").
std::string upper(std::string_view s);
std::string lower(std::string_view s);

// ASCII letters only: for numbers, keys and the names of tables and files.
std::string upperAscii(std::string_view s);
std::string lowerAscii(std::string_view s);
inline char lowerAscii(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

// Without the characters of `around` at both ends.
std::string_view trimmed(std::string_view s, std::string_view around = " \t\r\n");
// Without the blanks that fixed-width values carry.
std::string trimBlanks(std::string_view s);

// The local time `t` as strftime writes it by `format`.
std::string localTime(std::time_t t, const char* format);

}  // namespace tolma::text
