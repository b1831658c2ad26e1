#include "transfer/element_reader.h"

#include <algorithm>
#include <functional>

#include "core/error_log.h"
#include "core/files.h"
#include "model/codepage.h"
#include "text/text.h"
#include "transfer/extract.h"

namespace tolma::transfer {
namespace {

// A tag searched in the 5 MB buffer: the buffer is full of "<", so a plain find would stop at
// every one of them.
class TagFinder {
  public:
    explicit TagFinder(std::string_view tag) : tag_(tag), searcher_(tag_.begin(), tag_.end()) {}
    size_t in(const std::string& text, size_t from) const {
        auto it = std::search(text.begin() + static_cast<long>(from), text.end(), searcher_);
        return it == text.end() ? std::string::npos : static_cast<size_t>(it - text.begin());
    }

  private:
    std::string tag_;
    std::boyer_moore_horspool_searcher<std::string::const_iterator> searcher_;
};

// The path, when it names a file that can be read to its end; opening a pipe would wait for a
// writer, with the store and the settings held, and reading a device might never end.
const std::string& readablePath(const std::string& path) {
    if (const std::string cause = core::irregularFileCause(path); !cause.empty())
        throw core::RuntimeError(75,
                                 "Die Datei ''" + path + "'' kann nicht gelesen werden. " + cause);
    return path;
}

}  // namespace

ReadElement readElement(std::string_view text) {
    ReadElement el;
    try {
        size_t pos = 0;
        for (size_t lf; (lf = text.find('\n', pos)) != std::string_view::npos; pos = lf + 1) {
            std::string_view line = text::trimmed(text.substr(pos, lf - pos), " ");
            // The test of the line's last character fails on an empty line, which only a file
            // with bare LF line ends can hold: the whole element is given up.
            if (line.empty()) throw core::invalidCall();
            if (line.back() == '\r') line = text::trimmed(line.substr(0, line.size() - 1), " ");
            if (lineStartsWith(line, "<betr-nr>")) el.betrNr = Upd_8_ExtrFeldInhalt(line);
            if (lineStartsWith(line, "<betr-hist-nr>")) el.betrHistNr = Upd_8_ExtrFeldInhalt(line);
            if (lineStartsWith(line, "<b-rechtsform>")) el.bRechtsform = Upd_8_ExtrFeldInhalt(line);
            if (lineStartsWith(line, "<meld-art>") && contentOf(line) == "03") ++el.removals;
            if (lineStartsWith(line, "<gem-kz>"))
                el.municipalities.push_back(Upd_8_ExtrFeldInhalt(line));
            if (lineStartsWith(line, "<pers-nr>"))
                if (std::string nr = Upd_8_ExtrFeldInhalt(line); nr != kKeinInhalt)
                    el.persNrs.push_back(std::move(nr));
            el.lines.push_back(line);
        }
        el.fingerprint = fingerprintOf(el.lines);
    } catch (...) {
        el.failure = std::current_exception();
    }
    return el;
}

ElementReader::ElementReader(const std::string& path, size_t blockSize)
    : file_(readablePath(path), std::ios::binary), blockSize_(blockSize) {
    thread_ = std::thread([this] { run(); });
}

ElementReader::~ElementReader() {
    {
        std::lock_guard lock(mutex_);
        stop_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

std::optional<ReadChunk> ElementReader::next() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return !ready_.empty() || done_; });
    if (ready_.empty()) {
        if (failure_) std::rethrow_exception(failure_);
        return std::nullopt;
    }
    ReadChunk chunk = std::move(ready_.front());
    ready_.pop_front();
    changed_.notify_all();
    return chunk;
}

void ElementReader::put(ReadChunk chunk) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return ready_.empty() || stop_; });
    if (stop_) return;
    ready_.push_back(std::move(chunk));
    changed_.notify_all();
}

void ElementReader::run() {
    try {
        std::string raw(blockSize_, ' ');
        for (long block = 1; file_ && file_.peek() != std::char_traits<char>::eof(); ++block) {
            {
                std::lock_guard lock(mutex_);
                if (stop_) break;
            }
            // The last block stays filled with blanks behind the file's end.
            std::fill(raw.begin(), raw.end(), ' ');
            file_.read(raw.data(), static_cast<std::streamsize>(raw.size()));
            const size_t got = static_cast<size_t>(file_.gcount());
            if (encoding_ == 0) {
                std::string_view head(raw.data(), got);
                // A sequence cut by the block's end must not count against UTF-8.
                size_t cut = head.size();
                for (size_t k = 0;
                     k < 3 && cut > 0 && (static_cast<unsigned char>(head[cut - 1]) & 0x80); ++k)
                    --cut;
                encoding_ = model::isUtf8WithNonAscii(head.substr(0, cut)) ? 2 : 1;
            }
            ReadChunk chunk;
            chunk.block = block;
            // The carry of the block before grows into this block's text.
            chunk.text = std::make_unique<std::string>(std::move(carry_));
            carry_.clear();
            if (encoding_ == 2)
                chunk.text->append(raw);
            else
                model::appendCp1252AsUtf8(*chunk.text, raw);
            cut(chunk);
            put(std::move(chunk));
        }
    } catch (...) {
        std::lock_guard lock(mutex_);
        failure_ = std::current_exception();
    }
    std::lock_guard lock(mutex_);
    done_ = true;
    changed_.notify_all();
}

void ElementReader::cut(ReadChunk& chunk) {
    const std::string& text = *chunk.text;
    chunk.holdsBetrieb = text.find("<betrieb>") != std::string::npos;
    if (!chunk.holdsBetrieb) {
        carry_ = std::move(*chunk.text);
        chunk.text->clear();
        return;
    }
    static const TagFinder opening("<betrieb>"), closingTag("</betrieb>");
    // The consumed front is skipped by an offset, not copied away.
    size_t from = 0;
    for (size_t s; (s = opening.in(text, from)) != std::string::npos;) {
        const size_t closing = closingTag.in(text, from);
        if (closing == std::string::npos) break;
        const size_t e = closing + 10;
        // A closing tag ahead of the opening one.
        if (e < s) {
            chunk.broken = true;
            break;
        }
        chunk.elements.push_back(readElement(std::string_view(text).substr(s, e - s)));
        // The character right behind </betrieb> is dropped with it: the CR of the writer's
        // line end.
        from = std::min(text.size(), e + 1);
    }
    carry_ = text.substr(from);
}

}  // namespace tolma::transfer
