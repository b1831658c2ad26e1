#pragma once

#include <string>
#include <vector>

namespace tolma::store {
class Connection;
}

// What the office did with personal data, kept in the data store: every deletion after the
// period and every disclosure, with when, who and what, but never the personal data itself.
namespace tolma::protection {

struct ProtocolEntry {
    long nr = 0;
    std::string zeit;       // "TT.MM.JJJJ HH:MM:SS"
    std::string benutzer;   // the workstation's login
    std::string aktion;     // "Löschung", "Auskunft"
    std::string kriterium;  // what selected the data
    std::string betroffen;  // business or person numbers
    std::string anzahl;     // counts, "betrieb 3, person 2"
};

// The login of whoever runs the program, as the operating system knows it.
std::string workstationLogin();

// Makes the table of the entries where the store has none yet.
void createProtocol(store::Connection& c);
// Adds an entry inside the caller's transaction; numbers it.
void writeProtocol(store::Connection& c, ProtocolEntry entry);
// Every entry, oldest first; none where nothing was ever recorded.
std::vector<ProtocolEntry> readProtocol(store::Connection& c);

}  // namespace tolma::protection
