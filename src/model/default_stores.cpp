#include "model/default_stores.h"

#include <fstream>
#include <stdexcept>

#include "model/schema.h"
#include "store/connection.h"
#include "store/database.h"

namespace tolma::model {

std::vector<std::vector<std::string>> readCodeList(const std::filesystem::path& csv) {
    std::ifstream in(csv, std::ios::binary);
    if (!in) throw std::runtime_error("Datei '" + csv.string() + "' nicht gefunden.");
    std::vector<std::vector<std::string>> rows;
    std::string line;
    bool header = true;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty()) continue;
        if (header) {
            header = false;
            continue;
        }
        std::vector<std::string> fields(1);
        bool quoted = false;
        for (size_t i = 0; i < line.size(); ++i) {
            char c = line[i];
            if (c == '"') {
                if (quoted && i + 1 < line.size() && line[i + 1] == '"') {
                    fields.back() += '"';
                    ++i;
                } else {
                    quoted = !quoted;
                }
            } else if (c == ';' && !quoted) {
                fields.emplace_back();
            } else {
                fields.back() += c;
            }
        }
        rows.push_back(std::move(fields));
    }
    return rows;
}

void writeEmptyStore(const std::filesystem::path& file, const std::vector<TableDef>& tables) {
    std::filesystem::remove(file);
    store::Database db = store::Database::CreateDatabase(file);
    auto& c = *db.connection();
    c.beginBatch();
    for (const auto& t : tables) {
        c.execute(createTableSql(t));
        for (const auto& sql : createIndexSql(t)) c.execute(sql);
    }
    c.commitBatch();
}

void writeDefaultStores(const std::filesystem::path& outDir, const std::filesystem::path& dataDir) {
    const auto gemeinden = readCodeList(dataDir / "gemeindekennzahlen.csv");
    const auto rechtsformen = readCodeList(dataDir / "rechtsformen.csv");

    // Written under temporary names first, so that a failed build leaves no half store.
    const auto settingsTmp = outDir / (std::string(kSettingsStoreFile) + ".tmp");
    writeEmptyStore(settingsTmp, settingsTables());
    {
        store::Database db = store::Database::OpenDatabase(settingsTmp);
        auto& c = *db.connection();
        c.beginBatch();
        for (const auto& row : gemeinden) {
            if (row.size() < 2)
                throw std::runtime_error("Fehlerhafte Zeile in gemeindekennzahlen.csv");
            c.execute("INSERT INTO [gemeindekennzahlen] ([gem-kz], [gem-name]) VALUES (?1, ?2)",
                      {store::Variant(row[0]), store::Variant(row[1])});
        }
        for (const auto& row : rechtsformen) {
            if (row.size() < 3) throw std::runtime_error("Fehlerhafte Zeile in rechtsformen.csv");
            c.execute(
                "INSERT INTO [Rechtsformen] ([schluessel], [bezeichnung], [typ]) VALUES (?1, ?2, "
                "?3)",
                {store::Variant(row[0]), store::Variant(row[1]), store::Variant(row[2])});
        }
        c.commitBatch();
        // The shipped file stands on its own: no write-ahead log beside it.
        c.execute("PRAGMA journal_mode = DELETE");
    }
    std::filesystem::rename(settingsTmp, outDir / kSettingsStoreFile);

    for (const char* name : {kBusinessStoreFile, kNotificationStoreFile}) {
        const auto tmp = outDir / (std::string(name) + ".tmp");
        writeEmptyStore(tmp, dataTables());
        {
            store::Database db = store::Database::OpenDatabase(tmp);
            db.connection()->execute("PRAGMA journal_mode = DELETE");
        }
        std::filesystem::rename(tmp, outDir / name);
    }
}

}  // namespace tolma::model
