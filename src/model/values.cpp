#include "model/values.h"
#include "text/text.h"

#include <cctype>
#include <cstring>

namespace tolma::model {

const std::array<std::string_view, 18> kDatumsfelder = {
    "b-reg-datum",      "meld-datum",  "anzeige-datum", "betr-beginn",   "betr-Ende",
    "b-Erl-datum",      "b-hwk-datum", "tk-beginn",     "tk-Ende",       "p-eintr-datum",
    "p-austr-datum",    "p-reg-datum", "geb-datum",     "aufenth-datum", "fzeug-datum",
    "p-gzr-ausk-datum", "p-Erl-datum", "p-hwk-datum"};

namespace {
bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (std::toupper(static_cast<unsigned char>(a[i])) !=
            std::toupper(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

// Byte offset of character `index` (0-based) of a UTF-8 text, or its size.
size_t offsetOf(std::string_view s, long long index) {
    size_t i = 0;
    for (long long n = 0; i < s.size(); ++i) {
        if ((static_cast<unsigned char>(s[i]) & 0xC0) != 0x80) {
            if (n == index) return i;
            ++n;
        }
    }
    return s.size();
}
}  // namespace

bool isDateField(std::string_view fieldName) {
    for (auto name : kDatumsfelder)
        if (equalsIgnoringCase(name, fieldName)) return true;
    return false;
}

long long characterCount(std::string_view value) {
    long long n = 0;
    for (unsigned char c : value)
        if ((c & 0xC0) != 0x80) ++n;
    return n;
}

std::string mid(std::string_view value, long long start, long long length) {
    if (start < 1 || length <= 0) return {};
    const size_t b = offsetOf(value, start - 1);
    const size_t e = offsetOf(value, start - 1 + length);
    return std::string(value.substr(b, e - b));
}

std::string firstCharacters(std::string_view value, long long size) {
    return std::string(value.substr(0, offsetOf(value, size)));
}

std::string dateFileToStore(const std::string& value) {
    if (value == "88888888") return "unbekannt";
    if (value == "99999999") return "unbegrenzt";
    if (value.empty()) return value;
    return mid(value, 7, 2) + "." + mid(value, 5, 2) + "." + mid(value, 1, 4);
}

std::string dateStoreToFile(const std::string& value) {
    if (value == "unbekannt") return "88888888";
    if (value == "unbegrenzt") return "99999999";
    if (value.empty()) return value;
    return mid(value, 7, 4) + mid(value, 4, 2) + mid(value, 1, 2);
}

void TML_Zeilenenden_ersetzen(std::string& value) {
    for (auto& c : value)
        if (c == '\n') c = ' ';
    for (auto& c : value)
        if (c == '\r') c = ' ';
}

void TML_Semikolon_entfernen(std::string& value) {
    // Only the outermost character of the untrimmed text is ever touched: blanks ahead of a
    // ";" keep it.
    const std::string t = text::trimBlanks(value);
    if (!t.empty() && t.front() == ';') value.front() = ' ';
    if (!t.empty() && t.back() == ';') value.back() = ' ';
    value = text::trimBlanks(value);
}

void TML_Klammern_ersetzen(std::string& value) {
    for (auto& c : value)
        if (c == '<') c = ' ';
    for (auto& c : value)
        if (c == '>') c = ' ';
}

std::string cleanForExport(std::string value) {
    std::string out;
    appendCleanForExport(out, value);
    return out;
}

void appendCleanForExport(std::string& out, std::string_view value) {
    const size_t start = out.size();
    out.append(value);
    char* v = out.data() + start;
    size_t n = value.size();
    for (size_t i = 0; i < n; ++i)
        if (v[i] == '\n' || v[i] == '\r') v[i] = ' ';
    // TML_Semikolon_entfernen: a ";" at either end of the trimmed text blanks the untrimmed
    // text's outermost character; then the text is trimmed.
    const std::string_view t(v, n);
    const size_t first = t.find_first_not_of(' ');
    if (first == std::string_view::npos) {
        out.resize(start);
        return;
    }
    const size_t last = t.find_last_not_of(' ');
    if (v[first] == ';') v[0] = ' ';
    if (v[last] == ';') v[n - 1] = ' ';
    const std::string_view u(v, n);
    const size_t b = u.find_first_not_of(' ');
    if (b == std::string_view::npos) {
        out.resize(start);
        return;
    }
    const size_t e = u.find_last_not_of(' ');
    if (b > 0) std::memmove(v, v + b, e - b + 1);
    n = e - b + 1;
    out.resize(start + n);
    v = out.data() + start;
    for (size_t i = 0; i < n; ++i)
        if (v[i] == '<' || v[i] == '>') v[i] = ' ';
}

bool isBlank(const std::optional<std::string>& value) {
    return !value || text::trimBlanks(*value).empty();
}

}  // namespace tolma::model

namespace tolma::model {
bool cutToFieldSize(std::string& value, int size, bool memo) {
    if (memo || characterCount(value) <= size) return false;
    value = firstCharacters(value, size);
    return true;
}
}  // namespace tolma::model
