#include "model/schema.h"

#include "store/german_text.h"

#include <cctype>

namespace tolma::model {
namespace {

FieldDef text(const char* name, int size) {
    return {name, FieldType::Text, size};
}
FieldDef memo(const char* name) {
    return {name, FieldType::Memo, 0};
}
FieldDef yesNo(const char* name) {
    return {name, FieldType::Boolean, 1};
}
FieldDef number(const char* name) {
    return {name, FieldType::Long, 4};
}

// Sizes of the kinds of values that the transfer format carries.
constexpr int kKey = 12;    // betr-nr, pers-nr
constexpr int kHistNr = 4;  // betr-hist-nr
constexpr int kGemKz = 8;   // official municipality key
constexpr int kCode = 10;   // codes and keys of code lists
constexpr int kDate = 10;   // "DD.MM.YYYY", "unbekannt", "unbegrenzt"
constexpr int kName = 150;  // names, streets, places, texts of code lists
constexpr int kShort = 20;  // yes/no words, numbers, house numbers
constexpr int kPhone = 30;
constexpr int kPath = 255;

std::vector<TableDef> makeSettings() {
    return {
        {"Optionen",
         {text("datenart", kShort), text("db_betriebsbezogen", kPath),
          text("db_meldungsbezogen", kPath), yesNo("filter_aktiv"),
          yesNo("Dateiendung_registriert"), text("exportdatenbank", kPath)},
         {}},
        {"gemeindekennzahlen", {text("gem-kz", kGemKz), text("gem-name", kName)}, {{"gem-kz"}}},
        {"aktuelleGemeinde",
         {text("gem-kz", kGemKz), text("gem-name", kName), yesNo("markiert")},
         {{"gem-kz"}}},
        {"Rechtsformen",
         {text("schluessel", kCode), text("bezeichnung", kName), text("typ", 1)},
         {{"schluessel"}}},
    };
}

std::vector<TableDef> makeData() {
    return {
        {"betrieb",
         {text("betr-nr", kKey),
          text("betr-hist-nr", kHistNr),
          text("gem-kz", kGemKz),
          text("b-eintr-name", kName),
          text("b-rechtsform", kCode),
          text("b-rechtsform-text", kName),
          memo("b-bemerkung"),
          text("b-nebenerwerb", kShort),
          text("b-gew-zusatz", kName),
          text("betr-art-text", kName),
          text("selbst-grad-text", kName),
          text("betr-beginn", kDate),
          text("betr-ende", kDate),
          text("anzeige-datum", kDate),
          text("meld-datum", kDate),
          text("meld-art", kCode),
          text("meld-art-text", kName),
          text("meld-grund-text", kName),
          text("korr-meld", kShort),
          text("daten-weit", kShort),
          text("besch-zahl-vollzeit", kShort),
          text("besch-zahl-teilzeit", kShort),
          text("zahl-vertreter", kShort),
          text("vertreter-nname", kName),
          text("vertreter-vname", kName),
          text("inhaber-bname", kName),
          text("b-reg-schl", kCode),
          text("b-reg-art-text", kName),
          text("b-reg-plz", kCode),
          text("b-reg-ort", kName),
          text("b-eintr-nr", kPhone),
          text("b-reg-datum", kDate),
          text("schluesselfeld", 50),
          text("bearb-status", 1)},
         {{"betr-nr", "betr-hist-nr"}},
         {"gem-kz", "b-eintr-name"}},
        {"betrieb_adresse",
         {text("betr-nr", kKey),          text("betr-hist-nr", kHistNr),
          text("b-adr-art", kCode),       text("b-adr-art-text", kName),
          text("b-strasse", kName),       text("b-hausnr-von", kShort),
          text("b-hausnr-bis", kShort),   text("b-adr-zusatz", kName),
          text("b-plz", kCode),           text("b-ort", kName),
          text("b-ortsteil", kName),      text("b-land-text", kName),
          text("b-postfach-nr", kShort),  text("b-postfach-plz", kCode),
          text("b-postfach-land", kName), text("b-tel-vw", kPhone),
          text("b-tel-nr", kPhone),       text("b-fax-vw", kPhone),
          text("b-fax-nr", kPhone),       text("b-email", kName),
          text("b-homepage", kName)},
         {{"betr-nr", "betr-hist-nr"}},
         {"b-ort", "b-strasse"}},
        {"betrieb_taetigkeit",
         {text("betr-nr", kKey), text("betr-hist-nr", kHistNr), text("tk-schl", kCode),
          memo("tk-originaltext"), text("tk_hwk_id", kShort), text("tk-beginn", kDate),
          text("tk-ende", kDate), text("tk-schwerp", kShort), text("tk-ummeldung", kShort)},
         {{"betr-nr", "betr-hist-nr"}}},
        {"betrieb_erlaubnis",
         {text("betr-nr", kKey), text("betr-hist-nr", kHistNr), text("b-erl-art", kName),
          text("b-erl-status", kName), text("b-erl-datum", kDate), text("b-erl-behoerde", kName),
          text("b-erl-plz", kCode), text("b-erl-ort", kName)},
         {{"betr-nr", "betr-hist-nr"}}},
        {"betrieb_handwerkskarte",
         {text("betr-nr", kKey), text("betr-hist-nr", kHistNr), text("b-hwk-schl", kCode),
          text("b-hwk-art", kName), text("b-hwk-status", kName), text("b-hwk-datum", kDate),
          text("b-hwk-behoerde", kName), text("b-hwk-plz", kCode), text("b-hwk-ort", kName)},
         {{"betr-nr", "betr-hist-nr"}}},
        {"betrieb_meldgrundsonst",
         {text("betr-nr", kKey), text("betr-hist-nr", kHistNr), text("meld-grund-sonst-text", 255)},
         {{"betr-nr", "betr-hist-nr"}}},
        {"person",
         {text("pers-nr", kKey),
          text("p-art", kCode),
          text("p-nebenerwerb", kShort),
          text("fam-name", kName),
          text("vornamen", kName),
          text("geb-name", kName),
          text("kuenstlername", kName),
          text("namenstitel-text", kName),
          text("namenszusatz-text", kName),
          text("nachtitel-text", kName),
          text("geschlecht", kShort),
          text("geb-datum", kDate),
          text("geb-ort", kName),
          text("geb-land", kName),
          text("p-strasse", kName),
          text("p-hausnr-von", kShort),
          text("p-hausnr-bis", kShort),
          text("p-adr-zusatz", kName),
          text("p-plz", kCode),
          text("p-ort", kName),
          text("p-ortsteil", kName),
          text("p-land-text", kName),
          text("p-postfach-nr", kShort),
          text("p-postfach-plz", kCode),
          text("p-tel-vw", kPhone),
          text("p-tel-nr", kPhone),
          text("p-fax-vw", kPhone),
          text("p-fax-nr", kPhone),
          text("p-email", kName),
          memo("p-bemerkung"),
          text("aufenth-vor", kName),
          text("aufenth-datum", kDate),
          text("aufenth-auflage", kName),
          text("aufenth-behoerde", kName),
          text("aufenth-plz", kCode),
          text("aufenth-ort", kName),
          text("fzeug-datum", kDate),
          text("p-gzr-ausk-datum", kDate),
          text("p-eintr-name", kName),
          text("p-rechtsform-text", kName),
          text("p-zahl-vertreter", kShort),
          text("p-reg-schl", kCode),
          text("p-reg-art-text", kName),
          text("p-reg-plz", kCode),
          text("p-reg-ort", kName),
          text("p-eintr-nr", kPhone),
          text("p-reg-datum", kDate)},
         {{"pers-nr"}},
         {"p-eintr-name", "fam-name"}},
        {"person_staatsang",
         {text("pers-nr", kKey), text("staat-schl", kCode), text("staat-text", kName)},
         {{"pers-nr"}}},
        {"person_erlaubnis",
         {text("pers-nr", kKey), text("betr-nr", kKey), text("p-erl-art", kName),
          text("p-erl-status", kName), text("p-erl-datum", kDate), text("p-erl-behoerde", kName),
          text("p-erl-plz", kCode), text("p-erl-ort", kName), text("p-erl-relevant", kShort)},
         {{"pers-nr", "betr-nr"}, {"betr-nr"}}},
        {"person_handwerkskarte",
         {text("pers-nr", kKey), text("betr-nr", kKey), text("p-hwk-schl", kCode),
          text("p-hwk-art", kName), text("p-hwk-status", kName), text("p-hwk-datum", kDate),
          text("p-hwk-behoerde", kName), text("p-hwk-plz", kCode), text("p-hwk-ort", kName),
          text("p-hwk-relevant", kShort)},
         {{"pers-nr", "betr-nr"}, {"betr-nr"}}},
        {"beziehung_betrieb_person",
         {text("bez-betr-nr", kKey), text("bez-betr-hist-nr", kHistNr), text("bez-pers-nr", kKey),
          number("bez-sort-nr"), text("p-funktion", 50), text("p-eintr-datum", kDate),
          text("p-austr-datum", kDate), text("pers-nr-jp", kKey)},
         {{"bez-betr-nr", "bez-betr-hist-nr"}, {"bez-pers-nr"}}},
    };
}

bool sameName(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

std::string identifierPart(const std::string& s) {
    std::string r;
    for (char c : s) r += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    return r;
}

}  // namespace

const FieldDef* TableDef::field(std::string_view fieldName) const {
    for (const auto& f : fields)
        if (sameName(f.name, fieldName)) return &f;
    return nullptr;
}

const std::vector<TableDef>& settingsTables() {
    static const std::vector<TableDef> tables = makeSettings();
    return tables;
}

const std::vector<TableDef>& dataTables() {
    static const std::vector<TableDef> tables = makeData();
    return tables;
}

const TableDef* findTable(std::string_view tableName) {
    for (const auto* list : {&settingsTables(), &dataTables()})
        for (const auto& t : *list)
            if (sameName(t.name, tableName)) return &t;
    return nullptr;
}

std::string createTableSql(const TableDef& table) {
    std::string sql = "CREATE TABLE [" + table.name + "] (";
    for (size_t i = 0; i < table.fields.size(); ++i) {
        const auto& f = table.fields[i];
        sql += i ? ", " : "";
        sql += "[" + f.name + "] ";
        switch (f.type) {
            case FieldType::Text:
                sql += "VARCHAR(" + std::to_string(f.size) + ") COLLATE NOCASE";
                break;
            case FieldType::Memo:
                sql += "LONGTEXT COLLATE NOCASE";
                break;
            case FieldType::Boolean:
                sql += "BOOLEAN";
                break;
            case FieldType::Long:
                sql += "INTEGER";
                break;
        }
    }
    return sql + ")";
}

std::vector<std::string> createIndexSql(const TableDef& table) {
    std::vector<std::string> out;
    for (const auto& index : table.indexes) {
        std::string name = "idx_" + identifierPart(table.name);
        std::string cols;
        for (const auto& c : index) {
            name += "_" + identifierPart(c);
            cols += (cols.empty() ? "[" : ", [") + c + "]";
        }
        out.push_back("CREATE INDEX [" + name + "] ON [" + table.name + "] (" + cols + ")");
    }
    for (const auto& index : prefixIndexesOf(table)) out.push_back(index.create);
    return out;
}

std::vector<PrefixIndex> prefixIndexesOf(const TableDef& table) {
    std::vector<PrefixIndex> out;
    for (const auto& field : table.prefixIndexes) {
        const std::string byLower =
            "idx_" + identifierPart(table.name) + "_lower_" + identifierPart(field);
        if (field == "gem-kz") {
            // The municipality key is digits, which lower() leaves as they are. An index of it
            // in the German order would draw the filter's look-ups by key away from the list's
            // order of business numbers.
            out.push_back(
                {byLower,
                 "CREATE INDEX [" + byLower + "] ON [" + table.name + "] (lower([" + field + "]))",
                 ""});
            continue;
        }
        // Names, towns, streets in the German order: a list sorted by one reads it from the
        // front and shows its first screen at once, and typing finds the rows that begin so
        // within it.
        const std::string name =
            "idx_" + identifierPart(table.name) + "_" + identifierPart(field) + "_deutsch";
        out.push_back({name,
                       "CREATE INDEX [" + name + "] ON [" + table.name + "] ([" + field +
                           "] COLLATE " + store::german::kCollation + ")",
                       byLower});
    }
    return out;
}

}  // namespace tolma::model
