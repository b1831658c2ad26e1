#include "text/text.h"

namespace tolma::text {

void appendUtf8(std::string& out, char32_t cp) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

long long utf8Length(std::string_view s) {
    long long n = 0;
    for (unsigned char c : s)
        if ((c & 0xC0) != 0x80) ++n;
    return n;
}

std::string upper(std::string_view s) {
    std::string out;
    out.reserve(s.size());
    for (size_t i = 0; i < s.size();) appendUtf8(out, upperOf(nextCodePoint(s, i)));
    return out;
}

std::string lower(std::string_view s) {
    std::string out;
    out.reserve(s.size());
    for (size_t i = 0; i < s.size();) appendUtf8(out, lowerOf(nextCodePoint(s, i)));
    return out;
}

std::string upperAscii(std::string_view s) {
    std::string out(s);
    for (char& c : out)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
    return out;
}

std::string lowerAscii(std::string_view s) {
    std::string out(s);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    return out;
}

std::string_view trimmed(std::string_view s, std::string_view around) {
    const size_t b = s.find_first_not_of(around);
    if (b == std::string_view::npos) return {};
    return s.substr(b, s.find_last_not_of(around) - b + 1);
}

std::string trimBlanks(std::string_view s) {
    return std::string(trimmed(s, " "));
}

std::string localTime(std::time_t t, const char* format) {
    std::tm tm{};
    localtime_r(&t, &tm);
    char buf[64];
    return std::string(buf, std::strftime(buf, sizeof buf, format, &tm));
}

}  // namespace tolma::text
