#include "search/index_words.h"

#include "search/phonetic.h"
#include "store/german_text.h"
#include "text/text.h"

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

std::uint64_t hashOf(std::string_view s) {
    std::uint64_t h = 14695981039346656037ull;
    for (char c : s) h = (h ^ static_cast<unsigned char>(c)) * 1099511628211ull;
    return h;
}

}  // namespace

std::vector<std::string> wordsOf(const std::string& text) {
    std::vector<std::string> words;
    forEachWord(text, [&](std::string_view w) { words.emplace_back(w); });
    return words;
}

void RowWords::clear() {
    text_.clear();
    tokens_.clear();
}

void RowWords::add(std::string_view text, bool names) {
    forEachWord(text, [&](std::string_view w) { put(w, names); });
}

std::uint32_t RowWords::keep(size_t start) {
    const std::string_view token(text_.data() + start, text_.size() - start);
    const std::uint64_t hash = hashOf(token);
    for (std::uint32_t i = 0; i < tokens_.size(); ++i) {
        const Token& t = tokens_[i];
        if (t.hash == hash && std::string_view(text_.data() + t.start, t.size) == token) {
            text_.resize(start);
            return i;
        }
    }
    tokens_.push_back(
        {hash, static_cast<std::uint32_t>(start), static_cast<std::uint32_t>(token.size()), false});
    text_ += ' ';
    return static_cast<std::uint32_t>(tokens_.size() - 1);
}

void RowWords::put(std::string_view w, bool names) {
    // The word as written. The folded spelling and the sound follow from it, so a word that is
    // there already brings nothing new but, as a name for the first time, its sound.
    const size_t start = text_.size();
    const bool ascii = isAscii(w);
    if (ascii) {
        text_.resize(start + w.size());
        for (size_t i = 0; i < w.size(); ++i) text_[start + i] = text::lowerAscii(w[i]);
    } else {
        text_ += text::lower(w);
    }
    const size_t size = text_.size() - start;
    const std::uint32_t before = static_cast<std::uint32_t>(tokens_.size());
    const std::uint32_t at = keep(start);
    if (at == before) {
        // Most words are plain ASCII: their folded spelling differs only by ae, oe and ue.
        const std::string_view written(text_.data() + start, size);
        bool differs = !ascii;
        for (size_t i = 0; ascii && i + 1 < size && !differs; ++i)
            differs = (written[i] == 'a' || written[i] == 'o' || written[i] == 'u') &&
                      written[i + 1] == 'e';
        if (differs) {
            if (ascii) {
                scratch_.clear();
                for (size_t i = 0; i < written.size(); ++i) {
                    const char c = written[i];
                    scratch_ += c;
                    if ((c == 'a' || c == 'o' || c == 'u') && i + 1 < written.size() &&
                        written[i + 1] == 'e')
                        ++i;
                }
            } else {
                scratch_ = fold(w);
            }
            if (scratch_ != std::string_view(text_.data() + start, size)) {
                const size_t from = text_.size();
                text_ += kFoldedMark;
                text_ += scratch_;
                keep(from);
            }
        }
    }
    if (names && !tokens_[at].sounded) {
        tokens_[at].sounded = true;
        const std::string code = koelnerPhonetik(w);
        if (!code.empty()) {
            const size_t from = text_.size();
            text_ += kSoundMark;
            text_ += code;
            keep(from);
        }
    }
}

}  // namespace tolma::search
