#pragma once

#include <string>
#include <vector>

namespace tolma::store {
class Connection;
}

// The words of the search index's columns, also as an SQLite function, so that the index is
// filled by a few statements over the store's tables rather than business by business.
namespace tolma::search {

// The words of a text: runs of letters and digits; bytes of UTF-8 sequences count as letters.
std::vector<std::string> wordsOf(const std::string& text);

// How a column of the index holds a word.
enum class WordForm { Exact = 0, Folded = 1, Sound = 2 };

// The words of a text in one form, each followed by a blank; a word without a sound is left out.
std::string wordColumn(const std::string& text, WordForm form);

// Makes "tolma_such_worte(form, text, ...)" known on the connection: wordColumn() of its texts
// (NULL counts as empty) one after the other, `form` as the number of a WordForm.
void registerWordFunction(store::Connection& c);

}  // namespace tolma::search
