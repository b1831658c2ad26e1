// Build step: writes the three default stores from the schema and the code lists.
#include <exception>
#include <iostream>

#include "model/default_stores.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "Aufruf: tolma-mkstores ZIELVERZEICHNIS DATENVERZEICHNIS\n";
        return 2;
    }
    try {
        tolma::model::writeDefaultStores(argv[1], argv[2]);
    } catch (const std::exception& e) {
        std::cerr << "Fehler beim Erzeugen der Datenbanken: " << e.what() << "\n";
        return 1;
    }
    return 0;
}
