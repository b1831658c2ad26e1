// A disk that runs full: whatever the import, the export or a copy of a whole store was doing,
// the run ends with an error and a log entry, the store stays usable and no file is left that
// looks complete. The disk runs full through the test hook that limits the bytes written.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "core/db_connection.h"
#include "core/error_log.h"
#include "core/output_file.h"
#include "import_fixture.h"
#include "options/options_form.h"
#include "store/connection.h"
#include "store/disk_space.h"
#include "transfer/export_form.h"
#include "transfer/journal.h"
#include "transfer/tml_writer.h"

namespace tolma::test {
namespace {

// Lifts the limit however the test ends.
struct DiskLimit {
    explicit DiskLimit(long long bytes) { store::disk_space::limit(bytes); }
    ~DiskLimit() { store::disk_space::unlimit(); }
};

TmlFile manyBusinesses(int n) {
    TmlFile f;
    for (int i = 0; i < n; ++i) {
        const std::string nr = std::to_string(100000 + i);
        f.betriebe.push_back(
            "<gem-kz>01001000</gem-kz>\n<betr-nr>" + nr +
            "</betr-nr>\n<betr-hist-nr>1</betr-hist-nr>\n"
            "<b-eintr-name>Bäckerei Nummer " +
            nr +
            " mit einem recht langen Namen</b-eintr-name>\n"
            "<adressen>\n<adresse art=\"1\">\n<b-adr-art>1</b-adr-art>\n<b-strasse>Großstraße " +
            nr + "</b-strasse>\n<b-ort>Husum</b-ort>\n</adresse>\n</adressen>");
    }
    return f;
}

std::vector<std::string> filesIn(const std::string& dir) {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(dir))
        names.push_back(e.path().filename().string());
    return names;
}

std::string integrity(const store::Database& db) {
    auto v = db.lookup("SELECT integrity_check AS ok FROM pragma_integrity_check", "ok");
    return v ? v->toString() : "";
}

TEST(FullDiskTest, ImportEndsInItsErrorHandlerAndTheStoreStaysUsable) {
    ImportFixture f;
    const TmlFile file = manyBusinesses(3000);
    {
        DiskLimit full(400'000);
        const auto outcome = f.import(file);
        EXPECT_TRUE(outcome == transfer::ImportOutcome::Failed ||
                    outcome == transfer::ImportOutcome::StoreFailed);
        EXPECT_NE(model::cp1252ToUtf8(f.logText())
                      .find("Nicht genügend Speicherplatz auf dem Datenträger"),
                  std::string::npos);
        EXPECT_NE(f.g().log.storeFault.empty() ? f.g().log.lastLoggedError : f.g().log.storeFault,
                  "");
    }
    // What was committed is whole; the next import, with room, stores everything.
    EXPECT_EQ(integrity(f.g().stores.db_daten), "ok");
    EXPECT_EQ(f.import(file), transfer::ImportOutcome::Finished);
    EXPECT_EQ(f.count("betrieb"), 3000);
    EXPECT_EQ(f.count("betrieb_adresse"), 3000);
}

TEST(FullDiskTest, ExportLeavesNoFileAndNoSuccessMessage) {
    ImportFixture f;
    ASSERT_EQ(f.import(manyBusinesses(300)), transfer::ImportOutcome::Finished);
    const size_t shownBefore = f.dialogs.shown.size();
    for (long long room : {0LL, 30'000LL}) {
        DiskLimit full(room);
        transfer::VerwaltungsblockForm form = transfer::Frm_Verwaltungsblock_Load(f.g());
        const auto result = transfer::Frm_Verwaltungsblock_Command1_Click(f.g(), form, 0);
        EXPECT_EQ(result.outcome, transfer::ExportResult::Outcome::Failed) << room;
        EXPECT_TRUE(result.files.empty());
        EXPECT_TRUE(filesIn(f.g().paths.pfad_dat).empty()) << filesIn(f.g().paths.pfad_dat).front();
    }
    for (size_t i = shownBefore; i < f.dialogs.shown.size(); ++i)
        EXPECT_EQ(f.dialogs.shown[i].text.find("erstellt!"), std::string::npos);
    EXPECT_NE(f.logText().find("Fehler in Sub/Function: TML_Exp_1"), std::string::npos);
}

TEST(FullDiskTest, TheWriterNamesTheFileOnlyWhenAllOfItIsWritten) {
    TempDir dir;
    const std::string path = (dir.path() / "ausgabe.tml").string();
    {
        DiskLimit full(1000);
        transfer::TmlWriter out;
        out.open(path);
        for (int i = 0; i < 100; ++i) out.line("<b-eintr-name>Bäckerei</b-eintr-name>");
        try {
            out.commit();
            ADD_FAILURE() << "a full disk must raise";
        } catch (const core::RuntimeError& e) {
            EXPECT_EQ(e.number(), 61);
            EXPECT_NE(std::string(e.what()).find("ausgabe.tml"), std::string::npos);
        }
    }
    EXPECT_TRUE(filesIn(dir.path().string()).empty());

    transfer::TmlWriter out;
    out.open(path);
    out.line("<betrieb>");
    EXPECT_FALSE(std::filesystem::exists(path));  // not before it is whole
    out.commit();
    EXPECT_EQ(std::filesystem::file_size(path), 11u);
    EXPECT_EQ(std::filesystem::status(path).permissions() & std::filesystem::perms::all,
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST(FullDiskTest, OutputFilesAreWholeOrAbsentAndPrivateWhereAsked) {
    TempDir dir;
    const std::string pdf(72'092, '%');  // as large as an evaluation's PDF
    const auto path = dir.path() / "auswertung.pdf";
    for (long long room : {0LL, 4'096LL, 32'768LL}) {
        DiskLimit full(room);
        try {
            core::writeFileAtomically(path, pdf, core::FileAccess::Shared);
            ADD_FAILURE() << "a full disk must raise: " << room;
        } catch (const core::FileWriteError& e) {
            EXPECT_EQ(e.number(), core::kDiskFullError);
            EXPECT_EQ(e.cause(), "Nicht genügend Speicherplatz auf dem Datenträger");
            EXPECT_NE(std::string(e.what()).find(path.string()), std::string::npos);
        }
        EXPECT_TRUE(filesIn(dir.path().string()).empty()) << room;
    }

    // A temporary file left by a killed run, readable by all, is not reused for a private file.
    const mode_t umask = ::umask(022);
    std::ofstream(core::OutputFile::temporaryName(path)) << "alt";
    core::writeFileAtomically(path, pdf, core::FileAccess::Private);
    const auto csv = dir.path() / "auswertung.csv";
    core::writeFileAtomically(csv, "Gemeinde;Anmeldungen\r\n", core::FileAccess::Shared);
    ::umask(umask);
    namespace fs = std::filesystem;
    EXPECT_EQ(fs::file_size(path), pdf.size());
    EXPECT_EQ(fs::status(path).permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(fs::status(csv).permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read |
                  fs::perms::others_read);
    EXPECT_EQ(filesIn(dir.path().string()).size(), 2u);
}

TEST(FullDiskTest, CopiesOfWholeStoresAreWholeOrAbsent) {
    // A first start that runs out of room leaves no store behind that the next start would take.
    ImportFixture f;  // started once with room: the settings store is there
    const auto db = f.home() / "DB";
    f.newRun();
    for (const auto& name : filesIn(db.string()))
        if (name != "TL_Org.mdb") std::filesystem::remove(db / name);
    {
        DiskLimit full(50'000);
        f.start();
    }
    for (const auto& name : filesIn(db.string())) EXPECT_EQ(name, "TL_Org.mdb");
    f.newRun();
    f.start();
    EXPECT_TRUE(f.g().stores.db_daten.isSet());
    EXPECT_EQ(integrity(f.g().stores.db_daten), "ok");

    // "Datenbank leeren" without room keeps the store as it was.
    ASSERT_EQ(f.import(manyBusinesses(5)), transfer::ImportOutcome::Finished);
    {
        DiskLimit full(10'000);
        options::OptionsForm form;
        f.dialogs.answers = {core::msg::vbYes};
        options::Command4_Click(f.g(), form, 0);
    }
    EXPECT_EQ(f.count("betrieb"), 5);
    for (const auto& name : filesIn(db.string()))
        EXPECT_EQ(name.find("unvollstaendig"), std::string::npos);
}

// Taking back on a full disk: SQLite rolls the transaction back itself, and what the clerk and
// the log are told is that, in German, with the data as they were.
TEST(FullDiskTest, ATakingBackWithoutRoomSaysSoAndChangesNothing) {
    ImportFixture f;
    ASSERT_EQ(f.import(manyBusinesses(2000)), transfer::ImportOutcome::Finished);
    TmlFile replaced = manyBusinesses(2000);
    for (auto& b : replaced.betriebe) b.replace(b.find("Husum"), 5, "Flensburg");
    ASSERT_EQ(f.import(replaced), transfer::ImportOutcome::Finished);
    const auto before = f.rows("SELECT [b-ort] FROM betrieb_adresse");
    transfer::TakeBackResult result;
    // The limit counts from the store's next opening on.
    core::DB_Schliessen(f.g());
    core::DB_Binden_loesen(f.g());
    {
        DiskLimit full(0);
        core::DB_Load(f.g());
        ASSERT_TRUE(f.g().stores.db_daten.isSet());
        // A small cache writes pages out during a statement, where SQLite, finding no room,
        // rolls back the whole transaction on its own.
        f.g().stores.db_daten.connection()->execute("PRAGMA cache_size = 8");
        f.dialogs.answers = {core::msg::vbYes};
        result = transfer::askAndTakeBack(f.g(), std::nullopt);
    }
    EXPECT_EQ(result.outcome, transfer::TakeBackOutcome::Failed);
    EXPECT_EQ(f.lastMessage(),
              "Der Import konnte nicht zurückgenommen werden; der Datenbestand ist unverändert.");
    const std::string log = model::cp1252ToUtf8(f.logText());
    EXPECT_NE(log.find("Nicht genügend Speicherplatz auf dem Datenträger"), std::string::npos)
        << log;
    EXPECT_EQ(log.find("ROLLBACK"), std::string::npos) << log;
    EXPECT_EQ(f.rows("SELECT [b-ort] FROM betrieb_adresse"), before);
    for (const auto& run : transfer::importRuns(*f.g().stores.db_daten.connection()))
        EXPECT_FALSE(run.zurueckgenommen);
    // With room again, the same taking back works.
    f.dialogs.answers = {core::msg::vbYes};
    EXPECT_EQ(transfer::askAndTakeBack(f.g(), std::nullopt).outcome,
              transfer::TakeBackOutcome::Done);
    EXPECT_EQ(f.rows("SELECT DISTINCT [b-ort] FROM betrieb_adresse"),
              std::vector<std::string>{"Husum"});
}

}  // namespace
}  // namespace tolma::test
