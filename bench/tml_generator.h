#pragma once

#include <ostream>
#include <string>

namespace tolma::bench {

// What a generated transfer file holds. The same options always give the same bytes, so a
// benchmark can be repeated on the very same input.
struct GeneratorOptions {
    long businesses = 1000;
    unsigned seed = 1;
    // Written into <struktur>; the importer picks its store by it.
    std::string structure = "BETRIEBSBEZOGEN";
    // Each business is written this many times with betr-hist-nr 1..k, as a
    // notification-related export carries every state of a business.
    int historyStates = 1;
    // Every changedEvery-th business (0: none) differs from the same file without changes:
    // another name, another site address, a person more or less. The changes draw from a
    // stream of their own, seeded by changeRound, so the other businesses keep their bytes and
    // two rounds change the same businesses in different ways.
    long changedEvery = 0;
    unsigned changeRound = 1;
};

// Writes a whole transfer file as the system's own export writes it: Windows-1252 bytes,
// CR LF line ends, one element per line. Memory use does not grow with the number of
// businesses, so files of any size can be written.
void writeTransferFile(std::ostream& out, const GeneratorOptions& options);

}  // namespace tolma::bench
