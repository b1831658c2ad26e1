#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The words of the search index. A row keeps them in one text, which the full-text index splits
// at its blanks: each word as written (in lower case), its folded spelling with a mark ahead
// where that differs, and for names its sound with another mark ahead. A folded word that equals
// a written one is found among the written words, so most words are held once.
namespace tolma::search {

inline constexpr char kFoldedMark = '_';
inline constexpr char kSoundMark = '#';

// The words of a text: runs of letters and digits; bytes of UTF-8 sequences count as letters.
std::vector<std::string> wordsOf(const std::string& text);

// The words of one row, each once and followed by a blank.
class RowWords {
  public:
    // Adds the words of a text; those of names also by their sound.
    void add(std::string_view text, bool names);
    const std::string& text() const { return text_; }
    void clear();

  private:
    void put(std::string_view word, bool names);
    // Keeps the token from `start` to the end of the text, unless it is there already; returns
    // its place among the tokens.
    std::uint32_t keep(size_t start);

    std::string text_;
    std::string scratch_;
    struct Token {
        std::uint64_t hash;
        std::uint32_t start, size;
        bool sounded;  // a word whose sound is there
    };
    std::vector<Token> tokens_;
};

}  // namespace tolma::search
