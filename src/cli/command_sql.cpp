#include <ostream>

#include "cli/cli.h"
#include "cli/options.h"
#include "core/program_paths.h"
#include "model/default_stores.h"
#include "store/connection.h"
#include "store/dao_error.h"
#include "store/database.h"
#include "store/jet_sql.h"

namespace tolma::cli {
namespace {

// One value in a tab-separated line: tabs and line ends inside it are written as escapes.
std::string cell(const store::Variant& v) {
    std::string out;
    for (char c : v.toString()) {
        switch (c) {
            case '\t': out += "\\t"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\\': out += "\\\\"; break;
            default: out += c;
        }
    }
    return out;
}

// The data store of the active data kind, as the settings row names it.
std::filesystem::path activeDataStore(const store::Database& settings, const core::ProgramPaths& paths) {
    auto rs = settings.OpenRecordset("Optionen");
    std::string kind = "BETRIEBSBEZOGEN";
    std::string path;
    if (rs.RecordCount() > 0) {
        kind = rs.Fields("datenart").Value().toString();
        path = rs.Fields(kind == "MELDUNGSBEZOGEN" ? "db_meldungsbezogen" : "db_betriebsbezogen").Value().toString();
    }
    if (!path.empty() && std::filesystem::exists(path)) return path;
    return paths.dbDir() / (kind == "MELDUNGSBEZOGEN" ? model::kNotificationStoreFile : model::kBusinessStoreFile);
}

}  // namespace

int commandSql(const Options& options, const std::vector<std::string>& args, std::ostream& out,
               std::ostream& err) {
    bool settingsStore = false;
    std::string statement;
    for (const auto& a : args) {
        if (a == "--settings")
            settingsStore = true;
        else if (statement.empty())
            statement = a;
        else {
            err << "Nur eine Anweisung ist erlaubt.\n";
            return kExitUsage;
        }
    }
    if (statement.empty()) {
        err << "Aufruf: tolma-cli [--home VERZEICHNIS] sql [--settings] ANWEISUNG\n";
        return kExitUsage;
    }
    try {
        const core::ProgramPaths paths = core::resolvePaths(core::executableDir(), options.home);
        core::copyMissingStores(paths);
        // The settings store is held exclusively, as the desktop program holds it.
        const store::Database settings =
            store::Database::OpenDatabase(paths.dbDir() / model::kSettingsStoreFile, true);
        const store::Database db =
            settingsStore ? settings : store::Database::OpenDatabase(activeDataStore(settings, paths));

        const std::string translated = store::jet::translate(statement);
        if (store::jet::parseSelect(translated).isSelect) {
            store::Recordset rs = db.OpenRecordset(statement);
            const auto& fields = rs.fieldInfos();
            for (size_t i = 0; i < fields.size(); ++i) out << (i ? "\t" : "") << fields[i].name;
            out << "\n";
            const long n = rs.RecordCount();
            for (long r = 0; r < n; ++r) {
                const auto row = rs.rowAt(r);
                for (size_t i = 0; i < row.size(); ++i) out << (i ? "\t" : "") << cell(row[i]);
                out << "\n";
            }
            return kExitOk;
        }
        auto st = db.connection()->prepare(translated);
        if (st->columnCount() > 0) {
            for (int i = 0; i < st->columnCount(); ++i)
                out << (i ? "\t" : "") << st->columnName(i);
            out << "\n";
            while (st->step()) {
                for (int i = 0; i < st->columnCount(); ++i) out << (i ? "\t" : "") << cell(st->column(i));
                out << "\n";
            }
            return kExitOk;
        }
        out << db.Execute(statement) << "\n";
        return kExitOk;
    } catch (const store::DaoError& e) {
        err << "Datenbank-Fehler: " << e.description() << " (" << e.number() << ")\n";
    } catch (const std::exception& e) {
        err << "Fehler: " << e.what() << "\n";
    }
    return kExitFailed;
}

}  // namespace tolma::cli
