#include "protection/protocol.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

#include "store/connection.h"
#include "store/variant.h"

namespace tolma::protection {
namespace {

constexpr const char* kCreate =
    "CREATE TABLE IF NOT EXISTS tolma_protokoll (nr INTEGER, zeit TEXT, benutzer TEXT, aktion "
    "TEXT, kriterium TEXT, betroffen TEXT, anzahl TEXT)";

}  // namespace

std::string workstationLogin() {
    if (const passwd* pw = getpwuid(geteuid()); pw && pw->pw_name) return pw->pw_name;
    for (const char* name : {"LOGNAME", "USER"})
        if (const char* v = std::getenv(name); v && *v) return v;
    return "unbekannt";
}

void createProtocol(store::Connection& c) {
    c.createIfMissing("tolma_protokoll", {kCreate});
}

void writeProtocol(store::Connection& c, ProtocolEntry e) {
    createProtocol(c);
    // Numbered by the store's own count rather than an automatic key, which the kinds of
    // store spell differently.
    c.execute(
        "INSERT INTO tolma_protokoll (nr, zeit, benutzer, aktion, kriterium, betroffen, anzahl) "
        "SELECT coalesce(max(nr), 0) + 1, ?1, ?2, ?3, ?4, ?5, ?6 FROM tolma_protokoll",
        {store::Variant(e.zeit), store::Variant(e.benutzer), store::Variant(e.aktion),
         store::Variant(e.kriterium), store::Variant(e.betroffen), store::Variant(e.anzahl)});
}

std::vector<ProtocolEntry> readProtocol(store::Connection& c) {
    std::vector<ProtocolEntry> entries;
    if (!c.hasTable("tolma_protokoll")) return entries;
    auto st = c.prepare(
        "SELECT nr, zeit, benutzer, aktion, kriterium, betroffen, anzahl FROM tolma_protokoll "
        "ORDER BY nr");
    while (st->step())
        entries.push_back({static_cast<long>(st->column(0).toInteger()), st->column(1).toString(),
                           st->column(2).toString(), st->column(3).toString(),
                           st->column(4).toString(), st->column(5).toString(),
                           st->column(6).toString()});
    return entries;
}

}  // namespace tolma::protection
