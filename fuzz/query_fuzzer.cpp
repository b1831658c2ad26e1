// Any text given to the query language either translates for SQLite or raises the engine's
// syntax error, as a clerk's typed criterion or an administrator's `tolma-cli sql` may be
// anything. Nothing else may escape, and nothing may read outside its memory.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "store/dao_error.h"
#include "store/jet_sql.h"

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    for (const jet::Catalog* catalog : {static_cast<const jet::Catalog*>(nullptr), &keys()}) {
        try {
            jet::translate(text, catalog);
            jet::parseSelect(text, catalog);
        } catch (const tolma::store::DaoError&) {
        }
    }
    jet::soleQualifier(text);
    // A LIKE pattern and the text it is matched against, split at the first NUL.
    const size_t split = text.find('\0');
    if (split != std::string_view::npos)
        jet::likeMatch(text.substr(0, split), text.substr(split + 1));
    jet::foldCase(text);
    return 0;
}
