#include "store/german_text.h"

#include <vector>

#include "text/text.h"

namespace tolma::store::german {
namespace {

// The base letter of a lower-case Latin-1 letter with a mark, or 0.
char32_t baseOf(char32_t c) {
    static const char bases[] = "aaaaaaaceeeeiiiidnooooo/ouuuuyty";  // U+00E0 .. U+00FF
    if (c < 0xE0 || c > 0xFF || c == 0xF7) return 0;
    const char b = bases[c - 0xE0];
    return b == '/' ? 0 : static_cast<char32_t>(b);
}

// A text as the letters compare() weighs first (without marks, ß as ss), each with its mark
// (the marked letter, or 0), read one at a time without building the whole key.
struct Letters {
    std::string_view s;
    size_t i = 0;
    bool secondS = false;  // the second s of a ß

    bool next(char32_t& primary, char32_t& mark) {
        if (secondS) {
            secondS = false;
            primary = 's';
            mark = 0xDF;
            return true;
        }
        if (i >= s.size()) return false;
        const char32_t c = text::lowerOf(text::nextCodePoint(s, i));
        if (c == 0xDF) {  // ß
            secondS = true;
            primary = 's';
            mark = c;
        } else if (const char32_t b = baseOf(c)) {
            primary = b;
            mark = c;
        } else {
            primary = c;
            mark = 0;
        }
        return true;
    }
};

}  // namespace

int compare(std::string_view a, std::string_view b) {
    // Most values (keys, dates, many names) are plain ASCII, and most others are so up to
    // their first umlaut: that part is compared byte by byte, case aside. It has no marks, so
    // where it differs, its letters decide, and where it ends, the rest is weighed from there.
    const size_t n = a.size() < b.size() ? a.size() : b.size();
    size_t i = 0;
    for (; i < n; ++i) {
        int x = static_cast<unsigned char>(a[i]), y = static_cast<unsigned char>(b[i]);
        if ((x | y) >= 0x80) break;
        if (x >= 'A' && x <= 'Z') x += 32;
        if (y >= 'A' && y <= 'Z') y += 32;
        if (x != y) return x < y ? -1 : 1;
    }
    if (i == n) return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
    // The letters decide; at equal letters the first mark that differs. Nothing is allocated:
    // a sort calls this for every pair it weighs.
    Letters x{a.substr(i)}, y{b.substr(i)};
    int marks = 0;
    for (;;) {
        char32_t px = 0, mx = 0, py = 0, my = 0;
        const bool hx = x.next(px, mx), hy = y.next(py, my);
        if (!hx || !hy) return hx == hy ? marks : hx ? 1 : -1;
        if (px != py) return px < py ? -1 : 1;
        if (!marks && mx != my) marks = mx < my ? -1 : 1;
    }
}

std::u32string primary(std::string_view text) {
    std::u32string out;
    Letters letters{text};
    for (char32_t p = 0, m = 0; letters.next(p, m);) out += p;
    return out;
}

}  // namespace tolma::store::german
