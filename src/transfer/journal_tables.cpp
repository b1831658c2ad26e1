#include "transfer/journal_tables.h"

#include "model/schema.h"
#include "store/connection.h"
#include "store/jet_sql.h"
#include "transfer/journal.h"

namespace tolma::transfer::journal {

std::string recordTableOf(const std::string& table) {
    return "tolma_rueck_" + table;
}

bool tableExists(store::Connection& c, const std::string& name) {
    return c.hasTable(name);
}

std::vector<std::string> columnsOf(store::Connection& c, const std::string& table) {
    std::vector<std::string> columns;
    auto st = c.prepare("SELECT name FROM pragma_table_info(?1)");
    st->bind(1, store::Variant(table));
    while (st->step()) columns.push_back(st->column(0).toString());
    return columns;
}

std::vector<std::string> recordedTables(store::Connection& c) {
    std::vector<std::string> tables;
    for (const auto& t : model::dataTables())
        if (tableExists(c, t.name)) tables.push_back(t.name);
    return tables;
}

std::string columnList(const std::vector<std::string>& columns, const std::string& prefix) {
    std::string s;
    for (size_t i = 0; i < columns.size(); ++i)
        s += (i ? ", " : "") + prefix + store::jet::quoteName(columns[i]);
    return s;
}

void createRecordTables(store::Connection& c) {
    c.execute(
        "CREATE TABLE IF NOT EXISTS tolma_import_lauf (lauf INTEGER PRIMARY KEY, datum TEXT, datei "
        "TEXT, "
        "betriebe INTEGER, zurueckgenommen INTEGER DEFAULT 0)");
    c.execute(
        "CREATE TABLE IF NOT EXISTS tolma_import_marke (lauf INTEGER, tabelle TEXT, hoechste "
        "INTEGER)");
    for (const auto& table : recordedTables(c))
        c.execute("CREATE TABLE IF NOT EXISTS " + store::jet::quoteName(recordTableOf(table)) +
                  " (lauf INTEGER, art TEXT, rid INTEGER, " + columnList(columnsOf(c, table)) +
                  ")");
}

void dropRecordsOf(store::Connection& c, const std::string& condition,
                   const std::vector<store::Variant>& params) {
    for (const auto& table : recordedTables(c))
        if (tableExists(c, recordTableOf(table)))
            c.execute("DELETE FROM " + store::jet::quoteName(recordTableOf(table)) + " WHERE " +
                          condition,
                      params);
    c.execute("DELETE FROM tolma_import_marke WHERE " + condition, params);
}

ImportRun runFrom(store::Statement& st) {
    ImportRun r;
    r.lauf = static_cast<long>(st.column(0).toInteger());
    r.datum = st.column(1).toString();
    r.datei = st.column(2).toString();
    r.betriebe = static_cast<long>(st.column(3).toInteger());
    r.zurueckgenommen = st.column(4).toInteger() != 0;
    return r;
}

}  // namespace tolma::transfer::journal
