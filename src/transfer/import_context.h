#pragma once

#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

#include "core/globals.h"

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
    // What a check of the file counts: businesses that replace a stored state, notifications
    // of removal, and the municipalities the file's businesses lie in.
    long replacing = 0, removals = 0;
    std::unordered_set<std::string> municipalities;
    // The business numbers the run stored, for the search index.
    std::vector<std::string> touched;

    // Whether the store may hold rows of a business or person number. A removal by a number the
    // store cannot hold would delete nothing, so it is left out: a first import into an empty
    // store then runs no deletes at all.
    bool mayHoldBusiness(const std::string& betrNr);
    bool mayHoldPerson(const std::string& persNr);
    void noteBusiness(const std::string& betrNr);
    void notePerson(const std::string& persNr);

  private:
    void loadKeys();
    bool keysLoaded_ = false;
    std::unordered_set<std::string> businesses_, persons_;
};

}  // namespace tolma::transfer
