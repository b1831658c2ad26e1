#include "model/codepage.h"

#include <cstdint>
#include <cstring>

namespace tolma::model {
namespace {

// Code points of the bytes 0x80 to 0x9F; 0 where the code page has no character.
constexpr char32_t kHigh[32] = {0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0,      0x017D, 0,
                                0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

void appendUtf8(char32_t cp, std::string& out) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

// Decodes one UTF-8 sequence at i; returns its length, 0 if it is invalid.
size_t decodeOne(std::string_view s, size_t i, char32_t& cp) {
    const auto c = static_cast<unsigned char>(s[i]);
    size_t n = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
    if (n == 0 || i + n > s.size()) return 0;
    cp = n == 1 ? c : c & (0x7F >> n);
    for (size_t k = 1; k < n; ++k) {
        const auto cc = static_cast<unsigned char>(s[i + k]);
        if ((cc & 0xC0) != 0x80) return 0;
        cp = (cp << 6) | (cc & 0x3F);
    }
    if ((n == 2 && cp < 0x80) || (n == 3 && cp < 0x800) || (n == 4 && cp < 0x10000) ||
        cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
        return 0;
    return n;
}

}  // namespace

std::string utf8ToCp1252(std::string_view utf8, int* lost) {
    std::string out;
    appendUtf8AsCp1252(out, utf8, lost);
    return out;
}

void appendUtf8AsCp1252(std::string& out, std::string_view utf8, int* lost) {
    out.reserve(out.size() + utf8.size());
    for (size_t i = 0; i < utf8.size();) {
        // Runs of ASCII, nearly all of a file, go over as they are.
        size_t ascii = i;
        for (std::uint64_t word = 0; ascii + sizeof word <= utf8.size(); ascii += sizeof word) {
            std::memcpy(&word, utf8.data() + ascii, sizeof word);
            if (word & 0x8080808080808080ULL) break;  // a byte of eight with its high bit
        }
        while (ascii < utf8.size() && static_cast<unsigned char>(utf8[ascii]) < 0x80) ++ascii;
        if (ascii > i) {
            out.append(utf8.data() + i, ascii - i);
            i = ascii;
            if (i == utf8.size()) break;
        }
        char32_t cp = 0;
        size_t n = decodeOne(utf8, i, cp);
        if (n == 0) {  // not UTF-8 at all: keep the byte
            out += utf8[i++];
            continue;
        }
        i += n;
        if (cp < 0x80 || (cp >= 0xA0 && cp <= 0xFF)) {
            out += static_cast<char>(cp);
            continue;
        }
        char mapped = 0;
        for (int k = 0; k < 32; ++k)
            if (kHigh[k] == cp) mapped = static_cast<char>(0x80 + k);
        if (mapped) {
            out += mapped;
        } else {
            out += '?';
            if (lost) ++*lost;
        }
    }
}

std::string cp1252ToUtf8(std::string_view cp1252) {
    std::string out;
    appendCp1252AsUtf8(out, cp1252);
    return out;
}

void appendCp1252AsUtf8(std::string& out, std::string_view cp1252) {
    out.reserve(out.size() + cp1252.size() + cp1252.size() / 8);
    size_t run = 0;  // start of the ASCII run not yet copied
    for (size_t i = 0; i < cp1252.size(); ++i) {
        const auto c = static_cast<unsigned char>(cp1252[i]);
        if (c < 0x80) continue;
        out.append(cp1252.substr(run, i - run));
        run = i + 1;
        if (c < 0xA0) {
            const char32_t cp = kHigh[c - 0x80];
            appendUtf8(cp ? cp : c, out);
        } else {
            appendUtf8(c, out);
        }
    }
    out.append(cp1252.substr(run));
}

bool isUtf8WithNonAscii(std::string_view bytes) {
    bool nonAscii = false;
    for (size_t i = 0; i < bytes.size();) {
        char32_t cp = 0;
        size_t n = decodeOne(bytes, i, cp);
        if (n == 0) return false;
        if (n > 1) nonAscii = true;
        i += n;
    }
    return nonAscii;
}

std::string blankInvalidUtf8(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size());
    for (size_t i = 0; i < bytes.size();) {
        char32_t cp = 0;
        const size_t n = decodeOne(bytes, i, cp);
        if (n == 0) {
            out += ' ';
            ++i;
        } else {
            out.append(bytes.substr(i, n));
            i += n;
        }
    }
    return out;
}

}  // namespace tolma::model
