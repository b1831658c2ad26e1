#include "store/jet_lexer.h"

#include <cctype>
#include <cstdio>

#include "store/dao_error.h"
#include "text/text.h"

namespace tolma::store::jet::ast {
namespace {

bool isWordStart(unsigned char c) {
    return std::isalpha(c) || c == '_' || c >= 0x80;
}
bool isWordChar(unsigned char c) {
    return std::isalnum(c) || c == '_' || c == '$' || c >= 0x80;
}
bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

}  // namespace

void syntaxError(std::string_view text, size_t position, const std::string& what) {
    throwDao("DAO.Database", err::kSyntaxError,
             "Syntaxfehler in Abfrageausdruck '" + std::string(text) + "' an Stelle " +
                 std::to_string(position + 1) + ": " + what + ".");
}

// "YYYY-MM-DD", with " HH:MM:SS" when a time is given. The old engine reads month/day/year;
// year-month-day and day.month.year are read too.
std::string dateValue(const std::string& s) {
    int a = 0, b = 0, c = 0, h = 0, m = 0, sec = 0, n = 0;
    char sep1 = 0, sep2 = 0;
    if (std::sscanf(s.c_str(), " %d%c%d%c%d%n", &a, &sep1, &b, &sep2, &c, &n) < 5 || sep1 != sep2)
        return {};
    int year, month, day;
    if (sep1 == '/') {
        month = a, day = b, year = c;
    } else if (sep1 == '-') {
        year = a, month = b, day = c;
    } else if (sep1 == '.') {
        day = a, month = b, year = c;
    } else {
        return {};
    }
    if (year < 100) year += year < 30 ? 2000 : 1900;
    static const int days[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month < 1 || month > 12 || day < 1 || day > days[month - 1] || year > 9999) return {};
    if (month == 2 && day == 29 && !(year % 4 == 0 && (year % 100 != 0 || year % 400 == 0)))
        return {};
    std::string rest = s.substr(static_cast<size_t>(n));
    char buf[48];
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02d", year, month, day);
    if (rest.find_first_not_of(' ') == std::string::npos) return buf;
    int k = 0;
    if (std::sscanf(rest.c_str(), " %d:%d%n", &h, &m, &k) < 2) return {};
    rest = rest.substr(static_cast<size_t>(k));
    if (!rest.empty() && rest[0] == ':') {
        if (std::sscanf(rest.c_str(), ":%d%n", &sec, &k) < 1) return {};
        rest = rest.substr(static_cast<size_t>(k));
    }
    const std::string ampm = text::upperAscii(rest.substr(
        rest.find_first_not_of(' ') == std::string::npos ? rest.size()
                                                         : rest.find_first_not_of(' ')));
    if (ampm == "PM" && h < 12) h += 12;
    if (ampm == "AM" && h == 12) h = 0;
    if ((!ampm.empty() && ampm != "AM" && ampm != "PM") || h > 23 || m > 59 || sec > 59) return {};
    char time[48];
    std::snprintf(time, sizeof time, " %02d:%02d:%02d", h, m, sec);
    return buf + std::string(time);
}

std::vector<Token> lex(std::string_view text) {
    std::vector<Token> out;
    const size_t n = text.size();
    for (size_t i = 0; i < n;) {
        const auto c = static_cast<unsigned char>(text[i]);
        const size_t start = i;
        if (std::isspace(c)) {
            ++i;
        } else if (c == '[') {
            const size_t close = text.find(']', i + 1);
            if (close == std::string_view::npos)
                syntaxError(text, i, "die eckige Klammer wird nicht geschlossen");
            out.push_back(
                {TokenKind::Bracketed, std::string(text.substr(i + 1, close - i - 1)), start});
            i = close + 1;
        } else if (c == '\'' || c == '"') {
            std::string value;
            for (++i;; ++i) {
                if (i >= n) syntaxError(text, start, "die Zeichenfolge wird nicht abgeschlossen");
                if (text[i] == static_cast<char>(c)) {
                    if (i + 1 < n && text[i + 1] == static_cast<char>(c)) {
                        value += text[++i];
                        continue;
                    }
                    break;
                }
                value += text[i];
            }
            ++i;
            out.push_back({TokenKind::Text, std::move(value), start});
        } else if (c == '#') {
            const size_t close = text.find('#', i + 1);
            if (close == std::string_view::npos)
                syntaxError(text, i, "das Datum wird nicht mit # abgeschlossen");
            const std::string date = dateValue(std::string(text.substr(i + 1, close - i - 1)));
            if (date.empty()) syntaxError(text, i, "ungültiges Datum");
            out.push_back({TokenKind::Date, date, start});
            i = close + 1;
        } else if (isDigit(static_cast<char>(c)) ||
                   (c == '.' && i + 1 < n && isDigit(text[i + 1]))) {
            while (i < n && isDigit(text[i])) ++i;
            if (i < n && text[i] == '.') ++i;
            while (i < n && isDigit(text[i])) ++i;
            if (i < n && (text[i] == 'e' || text[i] == 'E')) {
                size_t j = i + 1;
                if (j < n && (text[j] == '+' || text[j] == '-')) ++j;
                if (j < n && isDigit(text[j])) {
                    i = j;
                    while (i < n && isDigit(text[i])) ++i;
                }
            }
            if (i < n && isWordChar(static_cast<unsigned char>(text[i])))
                syntaxError(text, start, "ungültige Zahl");
            out.push_back({TokenKind::Number, std::string(text.substr(start, i - start)), start});
        } else if (isWordStart(c)) {
            while (i < n && isWordChar(static_cast<unsigned char>(text[i]))) ++i;
            out.push_back({TokenKind::Word, std::string(text.substr(start, i - start)), start});
        } else {
            static const char* two[] = {"<>", "<=", ">=", "!="};
            std::string p(1, static_cast<char>(c));
            for (const char* t : two)
                if (text.substr(i, 2) == t) p = t;
            if (p.size() == 1 && std::string_view("=<>(),.*/\\+-&;^").find(static_cast<char>(c)) ==
                                     std::string_view::npos)
                syntaxError(text, i,
                            std::string("unerwartetes Zeichen '") + static_cast<char>(c) + "'");
            i += p.size();
            out.push_back({TokenKind::Punct, p == "!=" ? "<>" : p, start});
        }
    }
    out.push_back({TokenKind::End, "", n});
    return out;
}

}  // namespace tolma::store::jet::ast
