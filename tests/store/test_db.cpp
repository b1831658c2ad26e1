#include "test_db.h"

#include <unistd.h>

#include <atomic>

#include "model/default_stores.h"
#include "model/schema.h"
#include "store/connection.h"

namespace tolma::test {

TempDir::TempDir() {
    static std::atomic<int> counter{0};
    dir_ = std::filesystem::temp_directory_path() /
           ("tolma-test-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
    std::filesystem::remove_all(dir_);
    std::filesystem::create_directories(dir_);
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
}

store::Database makeDataStore(const std::filesystem::path& file) {
    model::writeEmptyStore(file, model::dataTables());
    return store::Database::OpenDatabase(file);
}

store::Database copySettingsStore(const std::filesystem::path& file) {
    std::filesystem::copy_file(std::filesystem::path(TOLMA_STORE_DIR) / model::kSettingsStoreFile,
                               file);
    return store::Database::OpenDatabase(file);
}

void insert(const store::Database& db, const std::string& table, const Row& row) {
    std::string cols, marks;
    std::vector<store::Variant> values;
    for (const auto& [name, value] : row) {
        cols += (values.empty() ? "[" : ", [") + name + "]";
        marks += values.empty() ? "?" : ", ?";
        values.push_back(value);
    }
    db.connection()->execute("INSERT INTO [" + table + "] (" + cols + ") VALUES (" + marks + ")",
                             values);
}

store::Database makeSampleStore(const std::filesystem::path& file) {
    store::Database db = makeDataStore(file);
    const store::Variant null;
    auto betrieb = [&](const char* nr, const char* hist, const char* gem, const char* name,
                       const char* meldArt, store::Variant ende, const char* key) {
        insert(db, "betrieb",
               {{"betr-nr", nr},
                {"betr-hist-nr", hist},
                {"gem-kz", gem},
                {"b-eintr-name", name},
                {"meld-art", meldArt},
                {"betr-ende", ende},
                {"schluesselfeld", key},
                {"b-rechtsform", "230"}});
    };
    betrieb("1001", "1", "01001000", "Müller Bau GmbH", "01", null, "K1");
    betrieb("1002", "1", "01002000", "Öztürk Imbiss", "02", "31.12.2020", "K2");
    betrieb("1003", "1", "01001000", "Schmidt Elektro", "999", null, "");
    betrieb("1004", "1", "01002000", "Ohne Adresse", "01", null, "K1");
    betrieb("1001", "2", "01001000", "Müller Bau GmbH", "01", null, "K1");

    auto adresse = [&](const char* nr, const char* art, const char* ort, const char* strasse) {
        insert(db, "betrieb_adresse",
               {{"betr-nr", nr},
                {"betr-hist-nr", "1"},
                {"b-adr-art", art},
                {"b-ort", ort},
                {"b-strasse", strasse}});
    };
    adresse("1001", "1", "Flensburg", "Hafenstraße");
    adresse("1001", "2", "Flensburg-Mürwik", "Am Ufer");
    adresse("1002", "1", "Kiel", "Holstenstraße");
    adresse("1003", "1", "Flensburg", "Norderstraße");

    auto person = [&](const char* nr, const char* art, const char* fam, const char* eintr) {
        insert(db, "person",
               {{"pers-nr", nr}, {"p-art", art}, {"fam-name", fam}, {"p-eintr-name", eintr}});
    };
    person("5001", "NP", "Müller", "");
    person("5002", "JP", "", "Müller Bau GmbH");
    person("5003", "NP", "Öztürk", "");
    person("5004", "NP", "Vertreter", "");

    auto link = [&](const char* betr, const char* pers, int sort, const char* funktion,
                    store::Variant jp) {
        insert(db, "beziehung_betrieb_person",
               {{"bez-betr-nr", betr},
                {"bez-betr-hist-nr", "1"},
                {"bez-pers-nr", pers},
                {"bez-sort-nr", sort},
                {"p-funktion", funktion},
                {"pers-nr-jp", jp}});
    };
    link("1001", "5002", 1, "2", "");
    link("1001", "5004", 2, "3", "5002");
    link("1002", "5003", 1, "1", "");
    link("1001", "5001", 3, "1", null);
    link("1001", "9999", 4, "1", "");  // a person missing from the person table

    insert(db, "person_erlaubnis", {{"pers-nr", "5001"}, {"betr-nr", "1001"}, {"p-erl-art", "A"}});
    insert(db, "person_erlaubnis", {{"pers-nr", "5001"}, {"betr-nr", ""}, {"p-erl-art", "B"}});
    insert(db, "person_erlaubnis", {{"pers-nr", "5001"}, {"betr-nr", "1002"}, {"p-erl-art", "C"}});
    insert(db, "person_staatsang", {{"pers-nr", "5001"}, {"staat-text", "deutsch"}});
    return db;
}

}  // namespace tolma::test
