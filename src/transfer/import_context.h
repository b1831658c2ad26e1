#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "core/globals.h"
#include "model/relations.h"
#include "transfer/import_listener.h"

namespace tolma::transfer {

// The import's shared values, alive for one run of the driver.
struct ImportContext {
    explicit ImportContext(core::Globals& globals) : g(globals) {}

    core::Globals& g;
    std::string akt_struktur;      // <struktur> of the file, untrimmed
    std::string akt_jp_nr;         // the legal person that natural persons hang under
    std::string akt_jp_nr_vorher;  // the legal person before it
    std::int16_t akt_bez_sort_nr = 0;
    std::string akt_inhalt, akt_name;
    // The location values that Upd_4_Andere's trap reports; nothing in the import fills them.
    std::string fehlerortung, ortungsNummer;
    // What a listener removed ahead of the current block's elements (see RemovedAhead).
    RemovedAhead* removedAhead = nullptr;
    // The business whose persons' permits and craft cards went already, with its other rows:
    // a removal of a person's ones then meets only rows of the run.
    std::string personPermitsGoneOf;
    // The business state whose links to persons the store is known to hold only as written in
    // this element (its old ones went, or there were none), and the keys of those written: a
    // link that stands already is then found without asking the store.
    std::string linksKnownOf;
    std::set<std::string> linksWritten;
    // The persons met before in the open block: the rows the store holds of them in the tables
    // kept by person are the block's own (the old ones went at their first meet), so removing
    // them keeps no image for taking back. Emptied when a block begins.
    std::unordered_set<std::string> personsOfBlock;
    // The key of a business's rows: its number, and its state where the data are by state;
    // without regard to case.
    std::string businessKey(const std::string& betrNr, const std::string& betrHistNr) const;
    static std::string foldedKey(std::string key);

    // The tables whose rows a removal by business number, or by person number, may meet: a bit
    // for each table, by its place among the declared relations.
    static unsigned tableBit(const model::Relation& table) {
        return 1u << (&table - model::relations().data());
    }
    // Whether a table of the store may hold rows of a business or person number. A removal by a
    // number the table cannot hold would delete nothing, so it is left out: a first import into
    // an empty store then runs no deletes at all, and a replace only those that meet rows.
    bool mayHoldBusiness(const std::string& betrNr, unsigned tables);
    bool mayHoldPerson(const std::string& persNr, unsigned tables);
    // Before a block's elements are read: a run that leaves most of what it reads as it
    // stands asks the store for the numbers of the block's other elements only, rather than
    // loading every number the store holds. Once it reads more, it loads them after all.
    void lookUpKeys(const std::vector<ReadElement>& elements, const std::vector<bool>& unchanged);
    // All the tables at once, for the removals of one business or person.
    unsigned businessTables(const std::string& betrNr);
    unsigned personTables(const std::string& persNr);
    // Whether a field takes dates, worked out once per field of a recordset rather than per value.
    bool isDateField(const std::string& fieldName);
    void noteBusiness(const std::string& betrNr);
    void notePerson(const std::string& persNr);

    // The numbers of the store's tables, by a hash of the number: two numbers of the same hash
    // share their tables, which costs at most a removal that finds nothing.
    class KeyTables {
      public:
        void add(std::uint64_t hash, unsigned tables) { loaded_.emplace_back(hash, tables); }
        void seal();  // after the adds of a table: sorts and merges
        void note(std::uint64_t hash);
        unsigned tablesOf(std::uint64_t hash) const;
        bool knows(std::uint64_t hash) const;  // noted, or loaded or asked for
        // Only the numbers asked for are known: any other may be held anywhere.
        bool partial = false;

      private:
        std::optional<unsigned> known(std::uint64_t hash) const;  // the tables, if known
        std::vector<std::pair<std::uint64_t, unsigned>> loaded_;
        size_t sorted_ = 0;  // the front of loaded_ that is sorted and merged
        // Stored by this run: every table. Gathered in a set and merged now and then into a
        // sorted list, which holds a number in a fifth of the room.
        std::unordered_set<std::uint64_t> noted_;
        std::vector<std::uint64_t> stored_;
    };

  private:
    void loadKeys();
    void askFor(const std::vector<std::string>& keys, bool persons);
    bool keysLoaded_ = false, keysMissing_ = false, keysAsked_ = false;
    size_t elementsSeen_ = 0, elementsRead_ = 0;  // by lookUpKeys
    KeyTables businesses_, persons_;
    std::unordered_map<const std::string*, std::pair<std::string, bool>> dateFields_;
};

}  // namespace tolma::transfer
