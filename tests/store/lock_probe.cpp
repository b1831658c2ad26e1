// A second program that tries to open a store, for the tests of exclusive opening.
//   lock_probe FILE exclusive|shared   exit 0 opened, 45 refused as in use, 1 other error
//   lock_probe FILE hold MARKER        holds the file exclusively, writes MARKER, waits for
//                                      the end of its input
#include <fstream>
#include <iostream>
#include <string>

#include "store/dao_error.h"
#include "store/database.h"

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    const std::string mode = argv[2];
    try {
        auto db = tolma::store::Database::OpenDatabase(argv[1], mode != "shared");
        db.lookup("SELECT count(*) AS n FROM sqlite_master", "n");  // any store, read at once
        if (mode == "hold" && argc == 4) {
            std::ofstream(argv[3]) << "gesperrt\n";
            std::string line;
            while (std::getline(std::cin, line)) {
            }
        }
    } catch (const tolma::store::DaoError& e) {
        return e.number() == tolma::store::err::kFileInUse ? 45 : 1;
    }
    return 0;
}
