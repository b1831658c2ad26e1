#include "search/phonetic.h"

#include <vector>

#include "store/german_text.h"
#include "text/text.h"

namespace tolma::search {
namespace {

// The base letters of U+0100 to U+017F (Latin Extended-A: "ř" in "Dvořák" and its kin).
constexpr char kExtendedA[] =
    "aaaaaaccccccccddddeeeeeeeeeegggggggghhhhiiiiiiiiiiiijjkkkllllllllllnnnnnnnnnoooooooorrrrrrssss"
    "ssssttttttuuuuuuuuuuuuwwyyyzzzzzzs";

// The base letter of a two-byte sequence of Latin Extended-A, or 0.
char extendedBase(unsigned char lead, unsigned char next) {
    if (lead < 0xC4 || lead > 0xC5) return 0;
    const unsigned cp = ((lead & 0x1Fu) << 6) | (next & 0x3Fu);
    return cp >= 0x100 && cp < 0x180 ? kExtendedA[cp - 0x100] : 0;
}

// The letters of a word in capitals, umlauts and accents on their base letter, ß as S; other
// characters become a blank, which parts the word.
std::string baseLetters(std::string_view word) {
    std::string out;
    bool ascii = true;
    for (char c : word) ascii = ascii && static_cast<unsigned char>(c) < 0x80;
    if (ascii) {  // most words: no umlaut, no accent, nothing to look up
        out.reserve(word.size());
        for (char c : word)
            out += c >= 'a' && c <= 'z'   ? static_cast<char>(c - 32)
                   : c >= 'A' && c <= 'Z' ? c
                                          : ' ';
        return out;
    }
    const std::string lower = text::lower(word);
    for (size_t i = 0; i < lower.size(); ++i) {
        const auto c = static_cast<unsigned char>(lower[i]);
        if (c >= 'a' && c <= 'z') {
            out += static_cast<char>(c - 32);
        } else if (c == 0xC3 && i + 1 < lower.size()) {
            const auto d = static_cast<unsigned char>(lower[++i]);
            static const char bases[] = "AAAAAAACEEEEIIIIDNOOOOO OUUUUYTY";  // U+00E0 .. U+00FF
            if (d == 0x9F)
                out += "S";  // ß
            else if (d >= 0xA0 && d <= 0xBF && bases[d - 0xA0] != ' ')
                out += bases[d - 0xA0];
            else
                out += ' ';
        } else if (i + 1 < lower.size() &&
                   extendedBase(c, static_cast<unsigned char>(lower[i + 1]))) {
            out += static_cast<char>(extendedBase(c, static_cast<unsigned char>(lower[++i])) - 32);
        } else {
            out += ' ';
        }
    }
    return out;
}

// The code of one letter by its neighbours: `first` where it begins a word.
const char* letterCode(char c, char before, char after, bool first) {
    auto oneOf = [](char x, const char* set) {
        return x != ' ' && std::string_view(set).find(x) != std::string_view::npos;
    };
    switch (c) {
        case 'A':
        case 'E':
        case 'I':
        case 'J':
        case 'O':
        case 'U':
        case 'Y':
            return "0";
        case 'H':
            return "";
        case 'B':
            return "1";
        case 'P':
            return after == 'H' ? "3" : "1";
        case 'D':
        case 'T':
            return oneOf(after, "CSZ") ? "8" : "2";
        case 'F':
        case 'V':
        case 'W':
            return "3";
        case 'G':
        case 'K':
        case 'Q':
            return "4";
        case 'C':
            if (first) return oneOf(after, "AHKLOQRUX") ? "4" : "8";
            return oneOf(after, "AHKOQUX") && !oneOf(before, "SZ") ? "4" : "8";
        case 'X':
            return oneOf(before, "CKQ") ? "8" : "48";
        case 'L':
            return "5";
        case 'M':
        case 'N':
            return "6";
        case 'R':
            return "7";
        case 'S':
        case 'Z':
            return "8";
        default:
            return " ";  // a break between words: repeats do not join across it
    }
    return "";
}

}  // namespace

std::string koelnerPhonetik(std::string_view word) {
    const std::string w = baseLetters(word);
    std::string codes;
    codes.reserve(w.size() + 2);
    auto at = [&](size_t i) -> char { return i < w.size() ? w[i] : ' '; };
    for (size_t i = 0; i < w.size(); ++i) {
        const char c = w[i], before = i ? w[i - 1] : ' ', after = at(i + 1);
        const bool first = i == 0 || before == ' ';
        codes += letterCode(c, before, after, first);
    }
    // Repeated codes count once; a zero counts only at the beginning.
    std::string out;
    char last = 0;
    for (size_t i = 0; i < codes.size(); ++i) {
        const char c = codes[i];
        if (c == ' ') {
            last = 0;
            continue;
        }
        if (c != last && (c != '0' || out.empty())) out += c;
        last = c;
    }
    return out;
}

std::string fold(std::string_view word) {
    const std::string lower = text::lower(word);
    std::string out;
    for (size_t i = 0; i < lower.size(); ++i) {
        const auto c = static_cast<unsigned char>(lower[i]);
        if (c == 0xC3 && i + 1 < lower.size()) {
            const auto d = static_cast<unsigned char>(lower[++i]);
            static const char bases[] = "aaaaaaaceeeeiiiidnooooo ouuuuyty";
            if (d == 0x9F)
                out += "ss";
            else if (d >= 0xA0 && d <= 0xBF && bases[d - 0xA0] != ' ')
                out += bases[d - 0xA0];
            continue;
        }
        // ae, oe and ue as the plain vowel: the spelling without umlauts on a keyboard.
        if ((c == 'a' || c == 'o' || c == 'u') && i + 1 < lower.size() && lower[i + 1] == 'e') {
            out += static_cast<char>(c);
            ++i;
            continue;
        }
        if (i + 1 < lower.size() && extendedBase(c, static_cast<unsigned char>(lower[i + 1]))) {
            out += extendedBase(c, static_cast<unsigned char>(lower[++i]));
            continue;
        }
        out += static_cast<char>(c);
    }
    return out;
}

}  // namespace tolma::search
