#include "store/server_text.h"

namespace tolma::store {
namespace {

// The letters the program folds: A–Z and the Latin-1 capitals but ×, as text::lowerOf does.
// translate() rather than lower(), so that the answer depends on no locale of the server.
constexpr const char* kUpper = "ABCDEFGHIJKLMNOPQRSTUVWXYZÀÁÂÃÄÅÆÇÈÉÊËÌÍÎÏÐÑÒÓÔÕÖØÙÚÛÜÝÞ";
constexpr const char* kLower = "abcdefghijklmnopqrstuvwxyzàáâãäåæçèéêëìíîïðñòóôõöøùúûüýþ";
// Each lower-case Latin-1 letter with a mark and its base letter, as the collation weighs them.
constexpr const char* kMarked = "àáâãäåæçèéêëìíîïðñòóôõöøùúûüýþÿ";
constexpr const char* kBase = "aaaaaaaceeeeiiiidnoooooouuuuyty";

}  // namespace

std::vector<std::string> serverTextFunctionSql() {
    return {
        std::string("CREATE OR REPLACE FUNCTION tolma_fold(text) RETURNS text LANGUAGE sql "
                    "IMMUTABLE STRICT PARALLEL SAFE AS $$SELECT translate($1, '") +
            kUpper + "', '" + kLower + "')$$",
        std::string("CREATE OR REPLACE FUNCTION tolma_primary(text) RETURNS text LANGUAGE sql "
                    "IMMUTABLE STRICT PARALLEL SAFE AS $$SELECT replace(translate(tolma_fold($1), "
                    "'") +
            kMarked + "', '" + kBase + "'), 'ß', 'ss')$$",
    };
}

}  // namespace tolma::store
