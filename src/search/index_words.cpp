#include "search/index_words.h"

#include <sqlite3.h>

#include <stdexcept>

#include <string_view>

#include "search/phonetic.h"
#include "store/connection.h"
#include "store/german_text.h"

namespace tolma::search {
namespace {

bool isWordByte(unsigned char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c >= 0x80;
}

// Calls `each` with every word of the text, in order.
template <typename Each>
void forEachWord(std::string_view text, Each&& each) {
    size_t i = 0;
    while (i < text.size()) {
        while (i < text.size() && !isWordByte(static_cast<unsigned char>(text[i]))) ++i;
        const size_t start = i;
        while (i < text.size() && isWordByte(static_cast<unsigned char>(text[i]))) ++i;
        if (i > start) each(text.substr(start, i - start));
    }
}

bool isAscii(std::string_view w) {
    for (char c : w)
        if (static_cast<unsigned char>(c) >= 0x80) return false;
    return true;
}

char lowerAscii(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

// Appends a word in its form and a blank. Most words are plain ASCII: those skip the general
// routines and their strings, with the same result.
void appendWord(std::string& out, std::string_view w, WordForm form) {
    switch (form) {
        case WordForm::Exact:
            if (isAscii(w))
                for (char c : w) out += lowerAscii(c);
            else
                out += store::german::lower(w);
            break;
        case WordForm::Folded:
            if (isAscii(w)) {
                for (size_t i = 0; i < w.size(); ++i) {
                    const char c = lowerAscii(w[i]);
                    out += c;
                    // ae, oe and ue as the plain vowel, as fold() has it.
                    if ((c == 'a' || c == 'o' || c == 'u') && i + 1 < w.size() &&
                        lowerAscii(w[i + 1]) == 'e')
                        ++i;
                }
            } else {
                out += fold(w);
            }
            break;
        case WordForm::Sound: {
            const std::string code = koelnerPhonetik(w);
            if (code.empty()) return;
            out += code;
            break;
        }
    }
    out += ' ';
}

void wordsFunction(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    const int form = sqlite3_value_int(argv[0]);
    if (form < 0 || form > 2) {
        sqlite3_result_error(ctx, "tolma_such_worte: unbekannte Form", -1);
        return;
    }
    size_t size = 0;
    for (int i = 1; i < argc; ++i) size += static_cast<size_t>(sqlite3_value_bytes(argv[i])) + 1;
    std::string out;
    out.reserve(size + size / 4);  // a word folded or by sound is no longer than as written
    for (int i = 1; i < argc; ++i) {
        const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(argv[i]));
        if (!text) continue;
        const std::string_view view(text, static_cast<size_t>(sqlite3_value_bytes(argv[i])));
        forEachWord(view,
                    [&](std::string_view w) { appendWord(out, w, static_cast<WordForm>(form)); });
    }
    sqlite3_result_text(ctx, out.data(), static_cast<int>(out.size()), SQLITE_TRANSIENT);
}

}  // namespace

std::vector<std::string> wordsOf(const std::string& text) {
    std::vector<std::string> words;
    forEachWord(text, [&](std::string_view w) { words.emplace_back(w); });
    return words;
}

std::string wordColumn(const std::string& text, WordForm form) {
    std::string out;
    forEachWord(text, [&](std::string_view w) { appendWord(out, w, form); });
    return out;
}

void registerWordFunction(store::Connection& c) {
    auto& done = c.memo("tolma_such_worte");
    if (done) return;
    // Deterministic, so that SQLite may work it out once where a statement repeats it.
    if (sqlite3_create_function(c.handle(), "tolma_such_worte", -1,
                                SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr, wordsFunction, nullptr,
                                nullptr) != SQLITE_OK)
        throw std::runtime_error(sqlite3_errmsg(c.handle()));
    done = std::make_shared<int>(1);
}

}  // namespace tolma::search
