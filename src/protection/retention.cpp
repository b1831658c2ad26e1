#include "protection/retention.h"

#include <algorithm>
#include <cstdlib>
#include <map>

#include "core/db_connection.h"
#include "core/error_log.h"
#include "core/globals.h"
#include "core/settings.h"
#include "core/store_work.h"
#include "model/relations.h"
#include "protection/protocol.h"
#include "search/search_index.h"
#include "store/connection.h"
#include "store/jet_sql.h"
#include "store/server_work.h"
#include "text/text.h"
#include "transfer/element_fingerprint.h"
#include "transfer/journal.h"

namespace tolma::protection {
namespace {

constexpr const char* kTitle = "Löschfristen";
constexpr const char* kBusinesses = "tolma_loesch_betrieb";
constexpr const char* kPersons = "tolma_loesch_person";

bool leapYear(int y) {
    return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

int daysIn(int year, int month) {
    static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && leapYear(year) ? 29 : days[month - 1];
}

std::optional<int> dayOf(std::string_view year, std::string_view month, std::string_view day) {
    auto number = [](std::string_view s) {
        int n = 0;
        for (char c : s) {
            if (c < '0' || c > '9') return -1;
            n = n * 10 + (c - '0');
        }
        return n;
    };
    const int y = number(year), m = number(month), d = number(day);
    if (y < 1 || m < 1 || m > 12 || d < 1 || d > daysIn(y, m)) return std::nullopt;
    return y * 10000 + m * 100 + d;
}

std::string q(std::string_view name) {
    return store::jet::quoteName(name);
}

// The rows of a table that go: those of the businesses and, of a person's own tables, those of
// the persons that go.
std::string goingRows(const model::Relation& r) {
    std::string cond;
    if (!r.keys.number.empty())
        cond = q(r.keys.number) + " IN (SELECT nr FROM " + kBusinesses + ")";
    if (r.owner == model::Owner::Person && !r.keys.person.empty())
        cond += (cond.empty() ? "" : " OR ") + q(r.keys.person) + " IN (SELECT nr FROM " +
                kPersons + ")";
    return cond;
}

std::vector<const model::Relation*> dataTables(store::Connection& c) {
    std::vector<const model::Relation*> tables;
    for (const auto& r : model::relations())
        if (r.store == model::StoreKind::Data && !goingRows(r).empty() &&
            c.hasTable(std::string(r.table)))
            tables.push_back(&r);
    return tables;
}

void fillKeys(store::Connection& c, const char* table, const std::vector<std::string>& keys) {
    c.execute(std::string("CREATE TEMP TABLE IF NOT EXISTS ") + table + " (nr TEXT)");
    c.execute(std::string("DELETE FROM ") + table);
    for (const auto& k : keys)
        c.execute(std::string("INSERT INTO ") + table + " (nr) VALUES (?1)", {store::Variant(k)});
}

template <typename T>
std::vector<std::string> numbersOf(const std::vector<T>& items) {
    std::vector<std::string> out;
    for (const auto& i : items) out.push_back(i.nr);
    return out;
}

struct LatestState {
    std::string nr, hist, art, ende, meld, name;
};

std::vector<DeletionPlan::Business> deregisteredBefore(store::Connection& c, int before) {
    // The stored state of a business is its latest one: the highest history number.
    std::map<std::string, LatestState> latest;
    auto st = c.prepare(
        "SELECT \"betr-nr\", \"betr-hist-nr\", \"meld-art\", \"betr-ende\", \"meld-datum\", "
        "\"b-eintr-name\" FROM betrieb");
    while (st->step()) {
        LatestState s{st->column(0).toString(), st->column(1).toString(), st->column(2).toString(),
                      st->column(3).toString(), st->column(4).toString(), st->column(5).toString()};
        const std::string key = text::lowerAscii(text::trimmed(s.nr));
        auto it = latest.find(key);
        if (it == latest.end())
            latest.emplace(key, std::move(s));
        else if (std::atol(s.hist.c_str()) >= std::atol(it->second.hist.c_str()))
            it->second = std::move(s);
    }
    std::vector<DeletionPlan::Business> out;
    for (const auto& [key, s] : latest) {
        if (text::trimmed(s.art) != "03") continue;
        std::optional<int> day = storedDay(text::trimmed(s.ende));
        if (!day) day = storedDay(text::trimmed(s.meld));
        if (day && *day < before) out.push_back({s.nr, s.name, showDay(*day)});
    }
    return out;
}

std::string personName(store::Connection& c, const std::string& nr) {
    auto& st = c.cached(
        "SELECT \"fam-name\", \"vornamen\", \"p-eintr-name\" FROM person WHERE \"pers-nr\" = ?1");
    st.bind(1, store::Variant(nr));
    std::string name;
    if (st.step()) {
        const std::string fam(text::trimmed(st.column(0).toString())),
            first(text::trimmed(st.column(1).toString())),
            entered(text::trimmed(st.column(2).toString()));
        name = !fam.empty() ? fam + (first.empty() ? "" : ", " + first) : entered;
    }
    st.reset();
    return name;
}

std::string countsText(const DeletionPlan& plan) {
    std::string s;
    for (const auto& [table, n] : plan.rows)
        s += (s.empty() ? "" : ", ") + table + " " + std::to_string(n);
    return s;
}

std::string counted(size_t n, const char* one, const char* many) {
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

std::string joined(const std::vector<std::string>& items) {
    std::string s;
    for (const auto& i : items) s += (s.empty() ? "" : ", ") + i;
    return s;
}

}  // namespace

std::optional<int> isoDay(std::string_view t) {
    if (t.size() != 10 || t[4] != '-' || t[7] != '-') return std::nullopt;
    return dayOf(t.substr(0, 4), t.substr(5, 2), t.substr(8, 2));
}

std::optional<int> storedDay(std::string_view t) {
    if (t.size() != 10 || t[2] != '.' || t[5] != '.') return std::nullopt;
    return dayOf(t.substr(6, 4), t.substr(3, 2), t.substr(0, 2));
}

std::string showDay(int day) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "%02d.%02d.%04d", day % 100, day / 100 % 100, day / 10000);
    return buf;
}

int yearsBefore(int today, int years) {
    const int y = today / 10000 - years, m = today / 100 % 100;
    const int d = std::min(today % 100, daysIn(y, m));
    return y * 10000 + m * 100 + d;
}

int retentionYears(core::Globals& g) {
    return core::positiveOption(g, "aufbewahrung_jahre", kDefaultRetentionYears);
}

void setRetentionYears(core::Globals& g, int years) {
    core::setPositiveOption(g, "aufbewahrung_jahre", years);
}

long long DeletionPlan::totalRows() const {
    long long n = 0;
    for (const auto& [table, rows] : rows) n += rows;
    return n;
}

DeletionPlan planDeletion(store::Connection& c, int before) {
    DeletionPlan plan;
    plan.before = before;
    if (!c.hasTable("betrieb")) return plan;
    plan.businesses = deregisteredBefore(c, before);
    if (plan.businesses.empty()) return plan;
    fillKeys(c, kBusinesses, numbersOf(plan.businesses));
    // A person goes with the businesses unless a business that stays still refers to it.
    auto st = c.prepare(
        std::string("SELECT DISTINCT l.\"bez-pers-nr\", EXISTS (SELECT 1 FROM "
                    "beziehung_betrieb_person o WHERE o.\"bez-pers-nr\" = l.\"bez-pers-nr\" AND "
                    "o.\"bez-betr-nr\" NOT IN (SELECT nr FROM ") +
        kBusinesses +
        ")) FROM beziehung_betrieb_person l WHERE l.\"bez-betr-nr\" IN (SELECT nr FROM " +
        kBusinesses + ") ORDER BY 1");
    std::vector<std::pair<std::string, bool>> linked;
    while (st->step())
        linked.emplace_back(st->column(0).toString(), st->column(1).toInteger() != 0);
    st.reset();
    for (const auto& [nr, stays] : linked)
        (stays ? plan.kept : plan.persons).push_back({nr, personName(c, nr)});
    fillKeys(c, kPersons, numbersOf(plan.persons));
    for (const model::Relation* r : dataTables(c)) {
        auto count = c.prepare("SELECT count(*) FROM " + q(r->table) + " WHERE " + goingRows(*r));
        count->step();
        if (const long long n = count->column(0).toInteger(); n > 0)
            plan.rows.emplace_back(std::string(r->table), n);
    }
    return plan;
}

void deletePlanned(store::Connection& c, const DeletionPlan& plan, const std::string& when) {
    fillKeys(c, kBusinesses, numbersOf(plan.businesses));
    fillKeys(c, kPersons, numbersOf(plan.persons));
    // What goes is overwritten in the file, not only marked free.
    c.setSecureDelete(true);
    c.beginBatch();
    try {
        // The index stays behind until it is built anew, whatever ends the work after the
        // commit.
        search::markStale(c);
        transfer::forgetFingerprints(c);
        for (const model::Relation* r : dataTables(c)) {
            const std::string going = goingRows(*r);
            transfer::forgetImages(c, std::string(r->table), going, {});
            c.execute("DELETE FROM " + q(r->table) + " WHERE " + going);
        }
        writeProtocol(c, {0, when, workstationLogin(), "Löschung",
                          "abgemeldet vor dem " + showDay(plan.before),
                          joined(numbersOf(plan.businesses)), countsText(plan)});
        c.commitBatch();
    } catch (...) {
        c.rollbackBatch();
        c.setSecureDelete(false);
        throw;
    }
    c.setSecureDelete(false);
}

// A server keeps deleted rows in its files until their space is used again; rewriting the
// tables is what it offers to have them gone. It holds each table for a moment.
static std::string rewriteServerTables(core::Globals& g) {
    try {
        store::Connection& c = *g.stores.db_daten.connection();
        if (store::rewriteServerTables(c).empty()) return {};
        // The clerks' logins may delete rows but not rewrite tables they do not own.
        return "\nDie Tabellen auf dem Datenbankserver gehören nicht dieser Anmeldung und wurden "
               "nicht neu geschrieben: die gelöschten Zeilen verschwinden aus seinen Dateien, "
               "wenn der Server ihren Platz wieder verwendet oder der Verwalter des Servers "
               "VACUUM FULL ausführt.";
    } catch (const std::exception& e) {
        core::logTrapped(g, "Loeschfristen", e);
        return "\nDie Tabellen auf dem Datenbankserver konnten danach nicht neu geschrieben "
               "werden; "
               "die gelöschten Zeilen verschwinden aus seinen Dateien, wenn der Server ihren Platz "
               "wieder verwendet.";
    }
}

std::string describePlan(const DeletionPlan& plan) {
    std::string s = "Abgemeldet vor dem " + showDay(plan.before) + ": " +
                    std::to_string(plan.businesses.size()) +
                    (plan.businesses.size() == 1 ? " Betrieb\n" : " Betriebe\n");
    s += "Betriebe, die gelöscht werden:\n";
    for (const auto& b : plan.businesses)
        s += "  " + b.nr + "\t" + b.name + "\tabgemeldet am " + b.deregistered + "\n";
    s += "Personen, die mit ihnen gelöscht werden:" +
         std::string(plan.persons.empty() ? " keine\n" : "\n");
    for (const auto& p : plan.persons) s += "  " + p.nr + "\t" + p.name + "\n";
    s += "Personen, die bleiben (mit einem anderen Betrieb verbunden):" +
         std::string(plan.kept.empty() ? " keine\n" : "\n");
    for (const auto& p : plan.kept) s += "  " + p.nr + "\t" + p.name + "\n";
    s += "Zeilen je Tabelle:\n";
    for (const auto& [table, n] : plan.rows) s += "  " + table + "\t" + std::to_string(n) + "\n";
    return s;
}

DeletionResult deleteAfterPeriod(core::Globals& g, int before, bool checkOnly,
                                 const std::function<void(const DeletionPlan&)>& showPlan) {
    DeletionResult result;
    try {
        result.plan = planDeletion(*g.stores.db_daten.connection(), before);
    } catch (const std::exception& e) {
        core::logTrapped(g, "Loeschfristen", e);
        core::showMessage(g, "Die Löschung konnte nicht vorbereitet werden.",
                          core::msg::vbExclamation, kTitle);
        result.outcome = DeletionOutcome::Failed;
        return result;
    }
    const DeletionPlan& plan = result.plan;
    if (plan.businesses.empty()) {
        core::showMessage(g,
                          "Es gibt keine Betriebe, die vor dem " + showDay(before) +
                              " abgemeldet wurden. Es wird nichts gelöscht.",
                          core::msg::vbInformation, kTitle);
        return result;
    }
    if (showPlan) showPlan(plan);
    if (checkOnly) {
        result.outcome = DeletionOutcome::Checked;
        return result;
    }
    const core::WorkLeave leave =
        core::askWorkLeave(g, store::StoreWork::Deletion, "Loeschfristen", kTitle);
    if (!leave.granted) {
        result.outcome = DeletionOutcome::Failed;
        return result;
    }
    if (core::showMessage(
            g,
            "Es werden " + counted(plan.businesses.size(), "Betrieb", "Betriebe") +
                ", die vor dem " + showDay(before) + " abgemeldet wurden, mit " +
                counted(plan.persons.size(), "Person", "Personen") + " endgültig gelöscht (" +
                std::to_string(plan.totalRows()) +
                " Zeilen). Sie können danach nicht zurückgenommen werden.\nSoll der Vorgang "
                "gestartet werden?",
            // "Nein" by default: a second Enter must not confirm what a first one began.
            core::msg::vbQuestionYesNo | core::msg::vbDefaultButton2, kTitle) != core::msg::vbYes) {
        result.outcome = DeletionOutcome::Refused;
        return result;
    }
    try {
        deletePlanned(*g.stores.db_daten.connection(), plan,
                      text::localTime(g.clock(), "%d.%m.%Y %H:%M:%S"));
    } catch (const std::exception& e) {
        core::reopenAfterFailedChange(g, "Loeschfristen", e);
        core::showMessage(g,
                          "Die Betriebe konnten nicht gelöscht werden; der Datenbestand ist "
                          "unverändert.",
                          core::msg::vbExclamation, kTitle);
        result.outcome = DeletionOutcome::Failed;
        return result;
    }
    // From here on the businesses are gone, whatever fails after; the message says so.
    result.outcome = DeletionOutcome::Deleted;
    core::announceStoreChange(g, store::StoreWork::Deletion);
    std::string after = search::followChange(g);
    if (!after.empty()) after = "\n" + after;
    core::DB_Komprimieren(g);  // the freed pages leave the file
    if (g.stores.db_daten.isSet() && g.stores.db_daten.connection()->isServer())
        after += rewriteServerTables(g);
    if (!g.stores.db_daten.isSet())
        after += "\nDie Datenbank konnte danach nicht wieder geöffnet werden.";
    core::showMessage(g,
                      "Gelöscht: " + counted(plan.businesses.size(), "Betrieb", "Betriebe") + ", " +
                          counted(plan.persons.size(), "Person", "Personen") + " (" +
                          std::to_string(plan.totalRows()) + " Zeilen)." + after,
                      after.empty() ? core::msg::vbInformation : core::msg::vbExclamation, kTitle);
    return result;
}

}  // namespace tolma::protection
