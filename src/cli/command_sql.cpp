#include <ostream>

#include "cli/cli.h"
#include "cli/options.h"
#include "cli/session.h"
#include "store/connection.h"
#include "store/dao_error.h"
#include "store/database.h"
#include "store/jet_sql.h"
#include "store/server_work.h"
#include "transfer/element_fingerprint.h"

namespace tolma::cli {
namespace {

// One value in a tab-separated line: tabs and line ends inside it are written as escapes.
std::string cell(const store::Variant& v) {
    std::string out;
    for (char c : v.toString()) {
        switch (c) {
            case '\t':
                out += "\\t";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\\':
                out += "\\\\";
                break;
            default:
                out += c;
        }
    }
    return out;
}

}  // namespace

int runStatement(const store::Database& db, const std::string& statement, std::ostream& out,
                 std::ostream& err);

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
    Session session(options, out);
    if (!session.start(err)) return kExitFailed;
    const int code = runStatement(
        settingsStore ? session.g.stores.db_org : session.g.stores.db_daten, statement, out, err);
    session.finish(out, err);
    return code;
}

int runStatement(const store::Database& db, const std::string& statement, std::ostream& out,
                 std::ostream& err) {
    try {
        if (!db.isSet()) {
            err << "Die Datenbank ist nicht geöffnet; Einzelheiten im Fehlerprotokoll.\n";
            return kExitFailed;
        }
        const auto prepared = store::jet::prepare(statement, &db.connection()->catalog());
        if (prepared.shape->parts.isSelect) {
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
        // The server would refuse it too, but after the question what the login may do.
        if (const std::string why = store::writeRefusal(*db.connection()); !why.empty()) {
            err << why << "\n";
            return kExitFailed;
        }
        // A statement that may change rows leaves no fingerprint to vouch for them; the settings
        // store holds none, its legal forms go into every run's fingerprint.
        transfer::forgetFingerprints(*db.connection());
        auto st = db.connection()->prepare(prepared.shape->sql);
        st->bindValues(prepared.values, prepared.shape->numeric);
        if (st->columnCount() > 0) {
            for (int i = 0; i < st->columnCount(); ++i) out << (i ? "\t" : "") << st->columnName(i);
            out << "\n";
            while (st->step()) {
                for (int i = 0; i < st->columnCount(); ++i)
                    out << (i ? "\t" : "") << cell(st->column(i));
                out << "\n";
            }
            return kExitOk;
        }
        while (st->step()) {
        }
        out << db.connection()->changes() << "\n";
        return kExitOk;
    } catch (const store::DaoError& e) {
        err << "Datenbank-Fehler: " << e.description() << " (" << e.number() << ")\n";
    } catch (const std::exception& e) {
        err << "Fehler: " << e.what() << "\n";
    }
    return kExitFailed;
}

}  // namespace tolma::cli
