#pragma once

#include <cstdint>
#include <string>

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
};

}  // namespace tolma::transfer
