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

// The old engine's LIKE pattern ("*", "?", "#", "[a-c]", "[!x]", a lone "[" for itself) as a
// regular expression of the whole text, for a folded text and a folded pattern.
constexpr const char* kLikeRegex = R"(CREATE OR REPLACE FUNCTION tolma_like_regex(p text)
RETURNS text LANGUAGE plpgsql IMMUTABLE STRICT PARALLEL SAFE AS $$
DECLARE
    r text := '^';
    i int := 1;
    n int := char_length(p);
    c text;
    k int;
    cls text;
    body text;
BEGIN
    WHILE i <= n LOOP
        c := substr(p, i, 1);
        IF c = '*' THEN
            r := r || '.*';
        ELSIF c = '?' THEN
            r := r || '.';
        ELSIF c = '#' THEN
            r := r || '[0-9]';
        ELSIF c = '[' AND strpos(substr(p, i + 1), ']') > 0 THEN
            k := strpos(substr(p, i + 1), ']');
            cls := substr(p, i + 1, k - 1);
            body := '';
            IF left(cls, 1) = '!' THEN
                cls := substr(cls, 2);
                IF cls = '' THEN r := r || '.'; i := i + k + 1; CONTINUE; END IF;
                body := '^';
            ELSIF cls = '' THEN
                r := r || '(?:a^)';
                i := i + k + 1;
                CONTINUE;
            END IF;
            WHILE cls <> '' LOOP
                IF char_length(cls) >= 3 AND substr(cls, 2, 1) = '-' THEN
                    body := body || regexp_replace(left(cls, 1), '([\\\^\-\[\]])', '\\\1')
                        || '-' || regexp_replace(substr(cls, 3, 1), '([\\\^\-\[\]])', '\\\1');
                    cls := substr(cls, 4);
                ELSE
                    body := body || regexp_replace(left(cls, 1), '([\\\^\-\[\]])', '\\\1');
                    cls := substr(cls, 2);
                END IF;
            END LOOP;
            r := r || '[' || body || ']';
            i := i + k;
        ELSE
            r := r || regexp_replace(c, '([\\.+*?()\[\]{}|^$])', '\\\1');
        END IF;
        i := i + 1;
    END LOOP;
    RETURN r || '$';
END
$$)";

}  // namespace

std::vector<std::string> serverTextFunctionSql() {
    return {
        std::string("CREATE OR REPLACE FUNCTION tolma_fold(text) RETURNS text LANGUAGE sql "
                    "IMMUTABLE STRICT PARALLEL SAFE AS $$SELECT translate($1, '") +
            kUpper + "', '" + kLower + "')$$",
        std::string("CREATE OR REPLACE FUNCTION tolma_upper(text) RETURNS text LANGUAGE sql "
                    "IMMUTABLE STRICT PARALLEL SAFE AS $$SELECT translate($1, '") +
            kLower + "', '" + kUpper + "')$$",
        // Val(): the number a text begins with, blanks ignored; 0 where it begins with none.
        "CREATE OR REPLACE FUNCTION tolma_val(text) RETURNS double precision LANGUAGE sql "
        "IMMUTABLE STRICT PARALLEL SAFE AS $$SELECT coalesce(substring(translate($1, ' ' || "
        "chr(9), '') from '^[+-]?(?:[0-9]+[.]?[0-9]*|[.][0-9]+)(?:[eE][+-]?[0-9]+)?')::double "
        "precision, 0)$$",
        kLikeRegex,
        "CREATE OR REPLACE FUNCTION tolma_like(text, text) RETURNS boolean LANGUAGE sql "
        "IMMUTABLE STRICT PARALLEL SAFE AS $$SELECT tolma_fold($1) ~ "
        "tolma_like_regex(tolma_fold($2))$$",
        std::string("CREATE OR REPLACE FUNCTION tolma_primary(text) RETURNS text LANGUAGE sql "
                    "IMMUTABLE STRICT PARALLEL SAFE AS $$SELECT replace(translate(tolma_fold($1), "
                    "'") +
            kMarked + "', '" + kBase + "'), 'ß', 'ss')$$",
    };
}

}  // namespace tolma::store
