// Any text given to the query language either translates for SQLite or raises the engine's
// syntax error, as a clerk's typed criterion or an administrator's `tolma-cli sql` may be
// anything. Nothing else may escape, and nothing may read outside its memory.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "store/dao_error.h"
#include "store/jet_sql.h"
#include "text/text.h"

namespace jet = tolma::store::jet;

namespace {

const jet::Catalog& keys() {
    static const jet::Catalog catalog = [] {
        jet::Catalog c;
        c.keyColumns = {"betr-nr", "betr-hist-nr", "pers-nr"};
        c.fingerprint = "betr-nr betr-hist-nr pers-nr";
        c.id = 1;
        return c;
    }();
    return catalog;
}

// The same text with blanks behind it means the same but has a shape key of its own. Their
// count changes from text to text, so that the blanked text is read afresh while the text itself
// may take a shape that an earlier text of the same shape left in the cache: both must translate
// alike, or both fail.
void translateAlike(std::string_view text) {
    static size_t count = 0;
    const std::string blank = std::string(text) + std::string(1 + count++ % 512, ' ');
    for (const jet::Catalog* catalog : {static_cast<const jet::Catalog*>(nullptr), &keys()}) {
        std::string sql, other;
        bool failed = false, otherFailed = false;
        try {
            sql = jet::translate(text, catalog);
            jet::parseSelect(text, catalog);
        } catch (const tolma::store::DaoError&) {
            failed = true;
        }
        try {
            other = jet::translate(blank, catalog);
        } catch (const tolma::store::DaoError&) {
            otherFailed = true;
        }
        if (failed != otherFailed || sql != other) {
            std::fprintf(stderr, "translated apart:\n%s\n%s\n", sql.c_str(), other.c_str());
            std::abort();
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    translateAlike(text);
    jet::soleQualifier(text);
    tolma::text::lower(text);
    // Split at the first NUL: two texts read one after the other, so that one input can leave
    // a shape for the next; and a LIKE pattern with the text it is matched against.
    const size_t split = text.find('\0');
    if (split != std::string_view::npos) {
        translateAlike(text.substr(0, split));
        translateAlike(text.substr(split + 1));
        jet::likeMatch(text.substr(0, split), text.substr(split + 1));
    }
    return 0;
}
