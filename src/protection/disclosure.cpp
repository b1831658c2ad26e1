#include "protection/disclosure.h"

#include <algorithm>
#include <map>
#include <optional>

#include "core/output_file.h"
#include "model/relations.h"
#include "print/record_report.h"
#include "protection/protocol.h"
#include "search/index_words.h"
#include "search/phonetic.h"
#include "store/connection.h"
#include "store/jet_sql.h"
#include "text/text.h"
#include "transfer/journal.h"

namespace tolma::protection {
namespace {

std::string q(std::string_view name) {
    return store::jet::quoteName(name);
}

// The words of a name as the search compares them, each folded.
std::vector<std::string> foldedWords(const std::string& text) {
    std::vector<std::string> words = search::wordsOf(text);
    for (auto& w : words) w = search::fold(w);
    return words;
}

bool holdsEvery(const std::vector<std::string>& words, const std::vector<std::string>& wanted) {
    return std::all_of(wanted.begin(), wanted.end(), [&](const std::string& w) {
        return std::find(words.begin(), words.end(), w) != words.end();
    });
}

// The sections of a person's own tables, in the order a reader expects them. A table of a
// person's own that is not named here follows under its title from the relations.
struct Heading {
    std::string_view table, section, row;
};
constexpr Heading kHeadings[] = {
    {"person", "Person", "Personendaten"},
    {"person_staatsang", "Staatsangehörigkeiten", "Staatsangehörigkeit"},
    {"person_erlaubnis", "Erlaubnisse", "Erlaubnis"},
    {"person_handwerkskarte", "Handwerkskarten", "Handwerkskarte"},
};

std::vector<Heading> personTables() {
    std::vector<Heading> out(std::begin(kHeadings), std::end(kHeadings));
    for (const auto& r : model::relations())
        if (r.store == model::StoreKind::Data && r.owner == model::Owner::Person &&
            !r.keys.person.empty() && std::none_of(out.begin(), out.end(), [&](const Heading& h) {
                return h.table == r.table;
            }))
            out.push_back({r.table, r.title, r.title});
    return out;
}

// The row's non-empty fields, leaving out those named in `skip`.
std::vector<Fact> factsOf(store::Statement& st, const std::vector<std::string>& skip) {
    std::vector<Fact> facts;
    for (int i = 0; i < st.columnCount(); ++i) {
        const std::string field = st.columnName(i);
        if (std::find(skip.begin(), skip.end(), field) != skip.end()) continue;
        const std::string value = text::trimBlanks(st.column(i).toString());
        if (!value.empty()) facts.push_back({field, value});
    }
    return facts;
}

// The newer of two runs, by their numbers.
std::optional<transfer::ImportRun> newer(std::optional<transfer::ImportRun> a,
                                         std::optional<transfer::ImportRun> b) {
    if (!a) return b;
    if (!b) return a;
    return a->lauf >= b->lauf ? a : b;
}

// A business state the person belongs to, by the row that links them (rowid, bez-betr-nr,
// bez-betr-hist-nr, then the link's own fields): its name, its main address, the link's function
// and dates, and the import run its data came from. That is the newer of the runs that wrote the
// link and the business's row: an import writes a business state's rows anew together, so both
// name the same run unless one was written outside an import.
FactGroup businessOf(store::Connection& c, store::Statement& link) {
    const std::string nr = link.column(1).toString(), hist = link.column(2).toString();
    FactGroup group{"Betrieb " + text::trimBlanks(nr) + " (Stand " + text::trimBlanks(hist) + ")",
                    {{"betr-nr", text::trimBlanks(nr)}, {"betr-hist-nr", text::trimBlanks(hist)}}};
    const auto add = [&](const std::string& field, const std::string& value) {
        if (const std::string v = text::trimBlanks(value); !v.empty())
            group.facts.push_back({field, v});
    };
    std::optional<transfer::ImportRun> run =
        transfer::runThatWrote(c, "beziehung_betrieb_person", link.column(0).toInteger());
    auto business = c.prepare(
        "SELECT rowid, \"b-eintr-name\" FROM betrieb WHERE \"betr-nr\" = ?1 AND \"betr-hist-nr\" "
        "= ?2");
    business->bind(1, store::Variant(nr));
    business->bind(2, store::Variant(hist));
    if (business->step()) {
        add("b-eintr-name", business->column(1).toString());
        run = newer(run, transfer::runThatWrote(c, "betrieb", business->column(0).toInteger()));
    }
    auto address = c.prepare(
        "SELECT \"b-strasse\", \"b-hausnr-von\", \"b-hausnr-bis\", \"b-plz\", \"b-ort\" FROM "
        "betrieb_adresse WHERE \"betr-nr\" = ?1 AND \"betr-hist-nr\" = ?2 AND trim(\"b-adr-art\") "
        "= '1'");
    address->bind(1, store::Variant(nr));
    address->bind(2, store::Variant(hist));
    if (address->step())
        for (int i = 0; i < address->columnCount(); ++i)
            add(address->columnName(i), address->column(i).toString());
    for (int i = 3; i < link.columnCount(); ++i) {
        add(link.columnName(i), link.column(i).toString());
        // The code as stored, and in words for the reader.
        if (link.columnName(i) == "p-funktion")
            add("Funktion", print::functionName(link.column(i)));
    }
    if (run) {
        add("Importlauf", std::to_string(run->lauf));
        add("Importdatei", run->datei);
        add("Importdatum", run->datum);
    } else {
        add("Importlauf", "vor den aufgezeichneten Importläufen");
    }
    return group;
}

std::string csvField(const std::string& s) {
    if (s.find_first_of(";\"\r\n") == std::string::npos) return s;
    std::string out = "\"";
    for (char ch : s) out += ch == '"' ? std::string("\"\"") : std::string(1, ch);
    return out + "\"";
}

}  // namespace

std::string PersonQuery::criterion() const {
    std::string s = "Name";
    if (!text::trimBlanks(vornamen).empty()) s += ", Vornamen";
    if (!text::trimBlanks(geburtsdatum).empty()) s += ", Geburtsdatum";
    return s + " angegeben";
}

std::vector<PersonMatch> findPersons(store::Connection& c, const PersonQuery& query) {
    std::vector<PersonMatch> found;
    const std::vector<std::string> name = foldedWords(query.name),
                                   first = foldedWords(query.vornamen);
    const std::string born = text::trimBlanks(query.geburtsdatum);
    if (name.empty() || !c.hasTable("person")) return found;
    // Every person is read: a folded name has no index to narrow by.
    auto st = c.prepare(
        "SELECT \"pers-nr\", \"fam-name\", \"vornamen\", \"geb-datum\", \"p-eintr-name\" FROM "
        "person ORDER BY \"pers-nr\"");
    while (st->step()) {
        PersonMatch m{
            text::trimBlanks(st->column(0).toString()), text::trimBlanks(st->column(1).toString()),
            text::trimBlanks(st->column(2).toString()), text::trimBlanks(st->column(3).toString())};
        if (foldedWords(m.famName) != name && foldedWords(st->column(4).toString()) != name)
            continue;
        if (!holdsEvery(foldedWords(m.vornamen), first)) continue;
        if (!born.empty() && m.gebDatum != born) continue;
        // A person of several rows is one person.
        if (!found.empty() && text::lowerAscii(found.back().persNr) == text::lowerAscii(m.persNr))
            continue;
        found.push_back(std::move(m));
    }
    return found;
}

Disclosure gatherDisclosure(store::Connection& c, const std::string& persNr,
                            const std::string& date) {
    Disclosure d{persNr, date, {}, {}};
    std::map<std::string, long long> counted;
    for (const Heading& h : personTables()) {
        DisclosureSection section{std::string(h.section), {}};
        const model::Relation* r = model::relationOf(h.table);
        if (r && c.hasTable(std::string(h.table))) {
            const std::string key(r->keys.person);
            auto st = c.prepare("SELECT * FROM " + q(h.table) + " WHERE " + q(key) +
                                " = ?1 ORDER BY rowid");
            st->bind(1, store::Variant(persNr));
            // The person's number stands once, among the person's own fields.
            const std::vector<std::string> skip =
                h.table == "person" ? std::vector<std::string>{} : std::vector<std::string>{key};
            while (st->step())
                section.groups.push_back(
                    {std::string(h.row) + " " + std::to_string(section.groups.size() + 1),
                     factsOf(*st, skip)});
        }
        if (section.groups.size() == 1 && h.table == "person") section.groups[0].title.clear();
        if (!section.groups.empty()) counted[std::string(h.table)] = section.groups.size();
        d.sections.push_back(std::move(section));
    }
    DisclosureSection businesses{"Betriebe", {}};
    if (c.hasTable("beziehung_betrieb_person")) {
        auto links = c.prepare(
            "SELECT rowid, \"bez-betr-nr\", \"bez-betr-hist-nr\", \"p-funktion\", "
            "\"p-eintr-datum\", \"p-austr-datum\", \"pers-nr-jp\" FROM beziehung_betrieb_person "
            "WHERE \"bez-pers-nr\" = ?1 ORDER BY \"bez-betr-nr\", \"bez-betr-hist-nr\"");
        links->bind(1, store::Variant(persNr));
        while (links->step()) businesses.groups.push_back(businessOf(c, *links));
        if (!businesses.groups.empty())
            counted["beziehung_betrieb_person"] = businesses.groups.size();
    }
    d.sections.push_back(std::move(businesses));
    for (const auto& [table, n] : counted)
        d.counts += (d.counts.empty() ? "" : ", ") + table + " " + std::to_string(n);
    return d;
}

std::string disclosureCsv(const Disclosure& d) {
    std::string out =
        "\xEF\xBB\xBF"
        "Bereich;Eintrag;Feld;Wert\r\n";
    for (const auto& s : d.sections)
        for (const auto& g : s.groups)
            for (const auto& f : g.facts)
                out += csvField(s.title) + ";" + csvField(g.title) + ";" + csvField(f.field) + ";" +
                       csvField(f.value) + "\r\n";
    return out;
}

void writeDisclosure(store::Connection& c, const Disclosure& d, const PersonQuery& query,
                     const std::string& when, const std::string& path, const std::string& bytes) {
    c.beginBatch();
    try {
        writeProtocol(
            c, {0, when, workstationLogin(), "Auskunft", query.criterion(), d.persNr, d.counts});
        core::writeFileAtomically(path, bytes, core::FileAccess::Private);
        c.commitBatch();
    } catch (...) {
        c.rollbackBatch();
        throw;
    }
}

}  // namespace tolma::protection
