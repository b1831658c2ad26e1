#pragma once

#include <string>
#include <string_view>
#include <vector>

// The words of the old engine's query language: names, literals and signs with where they stand,
// for the parser to read.
namespace tolma::store::jet::ast {

enum class TokenKind { Word, Bracketed, Text, Date, Number, Punct, End };

struct Token {
    TokenKind kind;
    std::string
        text;  // as written; for Text and Date the value (quotes removed, dates as YYYY-MM-DD)
    size_t position;  // 0-based, in the text as written
};

// Splits a query text; a literal or name that is never closed is a syntax error.
std::vector<Token> lex(std::string_view text);

// The date of a #...# literal's inside as the store holds dates, empty when it is no date.
std::string dateValue(const std::string& written);

// Raises the engine's syntax error with the text as written and the 0-based position.
[[noreturn]] void syntaxError(std::string_view text, size_t position, const std::string& what);

}  // namespace tolma::store::jet::ast
