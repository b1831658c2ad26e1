// A second program that tries to open a store, for the tests of exclusive opening.
// Exit code: 0 opened, 45 refused because the file is in use, 1 any other error.
#include <string>

#include "store/dao_error.h"
#include "store/database.h"

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    try {
        auto db = tolma::store::Database::OpenDatabase(argv[1], std::string(argv[2]) == "exclusive");
        db.OpenRecordset("Optionen").RecordCount();
    } catch (const tolma::store::DaoError& e) {
        return e.number() == tolma::store::err::kFileInUse ? 45 : 1;
    }
    return 0;
}
