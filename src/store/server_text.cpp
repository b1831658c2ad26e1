#include "store/server_text.h"

namespace tolma::store {
namespace {

// The letters the program folds: A–Z and the Latin-1 capitals but ×, as text::lowerOf does.
// translate() rather than lower(), so that the answer depends on no locale of the server.
constexpr const char* kUpper = "ABCDEFGHIJKLMNOPQRSTUVWXYZÀÁÂÃÄÅÆÇÈÉÊËÌÍÎÏÐÑÒÓÔÕÖØÙÚÛÜÝÞ";
constexpr const char* kLower = "abcdefghijklmnopqrstuvwxyzàáâãäåæçèéêëìíîïðñòóôõöøùúûüýþ";
// The Latin-1 part alone: lower() under the collation "C" folds A–Z and nothing else.
constexpr const char* kUpperLatin1 = "ÀÁÂÃÄÅÆÇÈÉÊËÌÍÎÏÐÑÒÓÔÕÖØÙÚÛÜÝÞ";
constexpr const char* kLowerLatin1 = "àáâãäåæçèéêëìíîïðñòóôõöøùúûüýþ";
// As ranges of a bracket expression: the capitals above, and every Latin-1 letter (ß too).
constexpr const char* kLatin1Capitals = "À-ÖØ-Þ";
constexpr const char* kLatin1Letters = "À-ÿ";
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

// Format() of a date as the store holds dates ("YYYY-MM-DD[ HH:MM:SS]") with the old engine's
// codes yyyy, yy, mm, dd, hh, nn, ss; another value stays as it is.
constexpr const char* kFormat = R"(CREATE OR REPLACE FUNCTION tolma_format(v text, f text)
RETURNS text LANGUAGE plpgsql IMMUTABLE STRICT PARALLEL SAFE AS $$
DECLARE
    result text := '';
    i int := 1;
    n int := char_length(f);
    code text;
    hh text := '00';
    mi text := '00';
    ss text := '00';
BEGIN
    IF octet_length(v) < 10 OR substr(v, 5, 1) <> '-' OR substr(v, 8, 1) <> '-' THEN
        RETURN v;
    END IF;
    IF char_length(v) >= 16 THEN hh := substr(v, 12, 2); mi := substr(v, 15, 2); END IF;
    IF char_length(v) >= 19 THEN ss := substr(v, 18, 2); END IF;
    WHILE i <= n LOOP
        code := lower(substr(f, i, 4));
        IF code = 'yyyy' THEN
            result := result || substr(v, 1, 4); i := i + 4;
        ELSIF left(code, 2) = 'yy' THEN
            result := result || substr(v, 3, 2); i := i + 2;
        ELSIF left(code, 2) = 'mm' THEN
            result := result || substr(v, 6, 2); i := i + 2;
        ELSIF left(code, 2) = 'dd' THEN
            result := result || substr(v, 9, 2); i := i + 2;
        ELSIF left(code, 2) = 'hh' THEN
            result := result || hh; i := i + 2;
        ELSIF left(code, 2) = 'nn' THEN
            result := result || mi; i := i + 2;
        ELSIF left(code, 2) = 'ss' THEN
            result := result || ss; i := i + 2;
        ELSE
            result := result || substr(f, i, 1); i := i + 1;
        END IF;
    END LOOP;
    RETURN result;
END
$$)";

}  // namespace

std::vector<std::string> serverTextFunctionSql() {
    return {
        // Every row written passes through here once per index on a folded column, so the
        // common text pays for no translate(): its cost grows with the length of the list of
        // letters, lower() under "C" and the test for a Latin-1 capital do not. Not STRICT: a
        // STRICT function whose body holds a CASE is not inlined, and then runs as a query of
        // its own for each row; a Null gives Null either way.
        std::string("CREATE OR REPLACE FUNCTION tolma_fold(text) RETURNS text LANGUAGE sql "
                    "IMMUTABLE PARALLEL SAFE AS $$SELECT CASE WHEN $1 COLLATE \"C\" ~ '[") +
            kLatin1Capitals + "]' THEN translate(lower($1 COLLATE \"C\"), '" + kUpperLatin1 +
            "', '" + kLowerLatin1 + "') ELSE lower($1 COLLATE \"C\") END$$",
        std::string("CREATE OR REPLACE FUNCTION tolma_upper(text) RETURNS text LANGUAGE sql "
                    "IMMUTABLE STRICT PARALLEL SAFE AS $$SELECT translate($1, '") +
            kLower + "', '" + kUpper + "')$$",
        // Val(): the number a text begins with, blanks ignored; 0 where it begins with none.
        "CREATE OR REPLACE FUNCTION tolma_val(text) RETURNS double precision LANGUAGE sql "
        "IMMUTABLE STRICT PARALLEL SAFE AS $$SELECT coalesce(substring(translate($1, ' ' || "
        "chr(9), '') from '^[+-]?(?:[0-9]+[.]?[0-9]*|[.][0-9]+)(?:[eE][+-]?[0-9]+)?')::double "
        "precision, 0)$$",
        kLikeRegex,
        kFormat,
        // InStr([start,] text, sought): 1-based, without regard to case; 0 when not there.
        "CREATE OR REPLACE FUNCTION tolma_instr(bigint, text, text) RETURNS bigint LANGUAGE sql "
        "IMMUTABLE STRICT PARALLEL SAFE AS $$SELECT CASE WHEN $1 < 1 OR $1 > char_length($2) "
        "THEN 0 ELSE coalesce(nullif(strpos(substr(tolma_fold($2), $1::int), tolma_fold($3)), "
        "0) + $1 - 1, 0) END$$",
        // Not STRICT, for its body calls tolma_fold(), which is not: else it would not be
        // inlined. A Null still gives Null.
        "CREATE OR REPLACE FUNCTION tolma_like(text, text) RETURNS boolean LANGUAGE sql "
        "IMMUTABLE PARALLEL SAFE AS $$SELECT tolma_fold($1) ~ "
        "tolma_like_regex(tolma_fold($2))$$",
        // A text without a Latin-1 letter has no mark and no ß: its folded form is all. Not
        // STRICT, as tolma_fold().
        std::string("CREATE OR REPLACE FUNCTION tolma_primary(text) RETURNS text LANGUAGE sql "
                    "IMMUTABLE PARALLEL SAFE AS $$SELECT CASE WHEN $1 COLLATE \"C\" ~ '[") +
            kLatin1Letters + "]' THEN replace(translate(tolma_fold($1), '" + kMarked + "', '" +
            kBase + "'), 'ß', 'ss') ELSE lower($1 COLLATE \"C\") END$$",
    };
}

}  // namespace tolma::store
