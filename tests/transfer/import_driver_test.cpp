// The import driver: questions, blocks, progress, cancel, and what a hostile file does.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <random>

#include "core/db_connection.h"
#include "import_fixture.h"
#include "store/connection.h"
#include "store/database.h"

namespace tolma::test {
namespace {

std::string business(const std::string& nr, const std::string& more = "") {
    return "<gem-kz>01001000</gem-kz>\n<betr-nr>" + nr +
           "</betr-nr>\n<betr-hist-nr>1</betr-hist-nr>\n"
           "<b-eintr-name>Bäckerei " +
           nr + "</b-eintr-name>\n" + more;
}

TmlFile twoBusinesses() {
    TmlFile f;
    f.betriebe = {business("1001"), business("1002")};
    return f;
}

// The lists sort and search names, towns and streets through indexes of them in the German
// order (the municipality key by lower()). A large file is read in without them; they must
// stand again after it, however it ends, and a store that lacks them, or has an older build's
// index by lower() in a place, gets them when it is opened.
TEST(ImportDriverTest, TheListsNameIndexesStandAfterEveryImportAndInEveryOpenedStore) {
    ImportFixture f;
    const std::string sql =
        "SELECT count(*) FROM sqlite_master WHERE type = 'index' AND (name LIKE 'idx*deutsch' "
        "OR name = 'idx_betrieb_lower_gem_kz')";
    const Strings six{"6"};
    EXPECT_EQ(f.rows(sql), six);
    // Larger than the empty store: read in without them.
    TmlFile large;
    large.betriebe = {business("1001", "<taetigkeiten>\n<taetigkeit>\n<tk-originaltext>" +
                                           std::string(2'000'000, 'x') +
                                           "</tk-originaltext>\n</taetigkeit>\n</taetigkeiten>\n"),
                      business("1002")};
    EXPECT_EQ(f.import(large), transfer::ImportOutcome::Finished);
    EXPECT_EQ(f.rows(sql), six);
    EXPECT_EQ(f.count("betrieb"), 2);
    EXPECT_EQ(f.count("betrieb_taetigkeit"), 1);
    // Read again as it stands, the file keeps them: it writes nothing they would follow. What
    // the store holds is looked at while the businesses are stored.
    Strings during;
    f.shell.onEvents = [&] {
        if (during.empty() && f.g().forms.startView.Label2.rfind("Verarbeite", 0) == 0)
            during = f.rows(sql);
    };
    EXPECT_EQ(f.import(large), transfer::ImportOutcome::Finished);
    EXPECT_EQ(during, six);
    // Bringing something new, over a filled store too, whose handles stand on rows, and
    // through the compaction's reopening of the store between blocks.
    TmlFile more = large;
    more.betriebe.push_back(business(
        "1003", "<taetigkeiten>\n<taetigkeit>\n<tk-originaltext>" + std::string(2'000'000, 'y') +
                    "</tk-originaltext>\n</taetigkeit>\n</taetigkeiten>\n"));
    during.clear();
    f.shell.onEvents = [&] {
        if (during.empty() && f.g().forms.startView.Label2.rfind("Verarbeite", 0) == 0)
            during = f.rows(sql);
        f.g().view.taste = 27;  // ESC after the first business
    };
    EXPECT_EQ(f.import(more), transfer::ImportOutcome::Cancelled);
    EXPECT_EQ(during, Strings{"0"});
    EXPECT_EQ(f.rows(sql), six);
    core::DB_Schliessen(f.g());
    core::DB_Binden_loesen(f.g());
    {
        auto older = store::Database::OpenDatabase(f.g().settings.db_pfad_aktuell);
        older.Execute("DROP INDEX idx_betrieb_b_eintr_name_deutsch");
        older.Execute("DROP INDEX idx_betrieb_adresse_b_ort_deutsch");
        older.connection()->execute(
            "CREATE INDEX idx_betrieb_adresse_lower_b_ort ON betrieb_adresse (lower([b-ort]))");
    }
    // Building them takes a while over a large store: the start view says so meanwhile.
    f.shell.onEvents = nullptr;
    Strings labels;
    f.shell.onRefresh = [&] { labels.push_back(f.g().forms.startView.Label2); };
    const std::string before = f.g().forms.startView.Label2;
    core::DB_Load(f.g());
    EXPECT_EQ(f.rows(sql), six);
    EXPECT_EQ(f.rows("SELECT count(*) FROM sqlite_master WHERE name LIKE 'idx*lower*'"),
              Strings{"1"});
    EXPECT_EQ(labels, (Strings{"Die Auswahllisten werden vorbereitet (1 von 2) ...",
                               "Die Auswahllisten werden vorbereitet (2 von 2) ...", before}));
    EXPECT_EQ(f.g().forms.startView.MousePointer, 0);
    labels.clear();
    core::DB_Load(f.g());  // nothing to build: nothing to say
    EXPECT_TRUE(labels.empty());
}

TEST(ImportDriverTest, ConsentRefusedStoresNothing) {
    ImportFixture f;
    EXPECT_EQ(f.import(twoBusinesses(), {core::msg::vbNo}), transfer::ImportOutcome::Cancelled);
    ASSERT_EQ(f.dialogs.shown.size(), 2u);
    EXPECT_EQ(f.dialogs.shown[0].style, 68);
    EXPECT_EQ(f.dialogs.shown[0].text.substr(0, 14),
              "Die Datei ''" + f.dir.path().string().substr(0, 2));
    EXPECT_NE(f.dialogs.shown[0].text.find(
                  "'' wird eingelesen und verarbeitet! \nJe nach Größe der Datei, kann das "
                  "Einlesen mehrere Minuten dauern!\nSoll der Vorgang gestartet werden?"),
              std::string::npos);
    EXPECT_EQ(f.lastMessage(), "Der Vorgang wurde abgebrochen!");
    EXPECT_EQ(f.dialogs.shown.back().style, 64);
    EXPECT_EQ(f.count("betrieb"), 0);
    EXPECT_FALSE(f.g().forms.marks.menue_import_datenbank);
}

TEST(ImportDriverTest, QuotesAroundThePathAreDroppedAndProgressIsShown) {
    ImportFixture f;
    const std::string path = f.write(twoBusinesses().text(), "mit blank.tml");
    std::vector<std::string> labels;
    f.shell.onRefresh = [&] { labels.push_back(f.g().forms.startView.Label2); };
    f.dialogs.answers = {core::msg::vbYes};
    EXPECT_EQ(transfer::Upd_1_Start(f.g(), "\"" + path + "\""), transfer::ImportOutcome::Finished);
    EXPECT_EQ(f.count("betrieb"), 2);
    EXPECT_EQ(labels.front(), "Die Datenübertragung wird vorbereitet, bitte warten!");
    EXPECT_NE(std::find(labels.begin(), labels.end(), "Datenbankkomprimierung, bitte warten!"),
              labels.end());
    EXPECT_NE(
        std::find(labels.begin(), labels.end(), "Verarbeite Datensatz 2 von 2 (ESC = Abbrechen)"),
        labels.end());
    EXPECT_EQ(f.g().forms.startView.Label2, "Auswahl von Gewerbedaten!");
    EXPECT_EQ(f.g().forms.startView.ProgressBar1Value, 0);
    EXPECT_TRUE(f.g().stores.rs_betrieb.isSet());  // the store is bound again
}

TEST(ImportDriverTest, AHugeAnnouncedCountIsNotCopiedIntoTheLabelPerRecord) {
    ImportFixture f;
    TmlFile file = twoBusinesses();
    file.announced = "2" + std::string(1'000'000, '0');
    size_t longest = 0;
    f.shell.onRefresh = [&] { longest = std::max(longest, f.g().forms.startView.Label2.size()); };
    EXPECT_EQ(f.import(file), transfer::ImportOutcome::Finished);
    EXPECT_EQ(f.count("betrieb"), 2);
    EXPECT_LT(longest, 100u);
}

TEST(ImportDriverTest, EmptyMissingAndGarbageFilesHoldNoData) {
    ImportFixture f;
    std::mt19937 random(7);
    std::string garbage(300000, '\0');
    for (auto& c : garbage) c = static_cast<char>(random());
    for (const std::string& bytes :
         {std::string(), garbage,
          std::string("<struktur>BETRIEBSBEZOGEN</struktur><tml-version>151</"
                      "tml-version><betrieb>ohne Ende")}) {
        EXPECT_EQ(f.importBytes(bytes), transfer::ImportOutcome::Finished);
        EXPECT_EQ(f.lastMessage(), "Die Transfer-Datei enthält keine Gewerbedaten!");
    }
    f.dialogs.answers = {core::msg::vbYes};
    EXPECT_EQ(transfer::Upd_1_Start(f.g(), (f.dir.path() / "gibt-es-nicht.tml").string()),
              transfer::ImportOutcome::Finished);
    EXPECT_EQ(f.lastMessage(), "Die Transfer-Datei enthält keine Gewerbedaten!");
    EXPECT_FALSE(std::filesystem::exists(f.dir.path() / "gibt-es-nicht.tml"));
    EXPECT_EQ(f.count("betrieb"), 0);
}

TEST(ImportDriverTest, VersionIsComparedWithTheProgramsOwn) {
    struct Case {
        const char* version;
        int answer;
        transfer::ImportOutcome outcome;
        const char* logged;  // what follows the path in the log entry
    } cases[] = {
        {"1.5.1", 0, transfer::ImportOutcome::Finished, nullptr},
        {"151", 0, transfer::ImportOutcome::Finished, nullptr},
        {"1.6.0", core::msg::vbNo, transfer::ImportOutcome::Cancelled, "'' ist nicht kompatibel!"},
        {"1.6.0", core::msg::vbYes, transfer::ImportOutcome::Finished, "'' ist nicht kompatibel!"},
        {"V1.4", core::msg::vbYes, transfer::ImportOutcome::Finished, "''ist nicht kompatibel!"},
        {"neu", core::msg::vbNo, transfer::ImportOutcome::Cancelled, "''ist nicht kompatibel!"},
    };
    for (const auto& c : cases) {
        ImportFixture f;
        TmlFile file = twoBusinesses();
        file.version = c.version;
        std::deque<int> answers{core::msg::vbYes};
        if (c.answer) answers.push_back(c.answer);
        EXPECT_EQ(f.import(file, answers), c.outcome) << c.version;
        EXPECT_EQ(f.count("betrieb"), c.outcome == transfer::ImportOutcome::Finished ? 2 : 0)
            << c.version;
        if (!c.logged) {
            EXPECT_EQ(f.dialogs.shown.size(), 2u) << c.version;
            continue;
        }
        EXPECT_NE(f.logText().find("Fehlertext:             Die Datei-Version ''" +
                                   f.dir.path().string() + "/test.tml" + c.logged),
                  std::string::npos)
            << c.version;
        const auto& question = f.dialogs.shown[1];
        EXPECT_EQ(question.style, 68);
        const bool newer = std::string(c.version) == "1.6.0";
        EXPECT_NE(
            question.text.find(
                newer
                    ? "Bitte installieren Sie die neueste Version des Schnittstellenprogrammes, \n"
                    : "Bitte verwenden Sie eine neuere tml-Datei (neuer Download),\n"),
            std::string::npos);
    }
}

TEST(ImportDriverTest, KindQuestionAnsweredNoStoresNothing) {
    ImportFixture f;
    TmlFile file = twoBusinesses();
    file.struktur = "";
    EXPECT_EQ(f.import(file, {core::msg::vbYes, core::msg::vbNo}),
              transfer::ImportOutcome::Cancelled);
    EXPECT_EQ(
        f.dialogs.shown[1].text,
        "Sie wollen Daten der Datei-Art ''''in die Datenbank schreiben.\nDie derzeitige Datenbank "
        "ist aber für "
        "die Daten-Art''BETRIEBSBEZOGEN'' definiert\nWollen Sie die Datenbank/Daten-Art wechseln?");
    EXPECT_EQ(f.count("betrieb"), 0);
    EXPECT_EQ(f.g().settings.caption, "TOLMA_4x_Access (betriebsbezogene Daten)");
}

TEST(ImportDriverTest, LfAndCrLfFilesGiveTheSameRows) {
    ImportFixture crlf, lf;
    TmlFile file = twoBusinesses();
    crlf.import(file);
    file.lineEnd = "\n";
    lf.import(file);
    const std::string q =
        "SELECT [betr-nr], [b-eintr-name], [gem-kz] FROM betrieb ORDER BY [betr-nr]";
    EXPECT_EQ(crlf.rows(q), lf.rows(q));
    EXPECT_EQ(lf.rows(q).size(), 2u);
    EXPECT_EQ(lf.rows(q)[0], "1001|Bäckerei 1001|01001000");
}

TEST(ImportDriverTest, EmptyLineOfAnLfFileGivesUpItsElement) {
    ImportFixture f;
    TmlFile file;
    file.lineEnd = "\n";
    file.betriebe = {business("1001", "\n<b-rechtsform>350</b-rechtsform>\n"), business("1002")};
    f.import(file, {core::msg::vbYes, core::msg::vbNo});
    EXPECT_EQ(f.rows("SELECT [betr-nr] FROM betrieb"), (Strings{"1002"}));
    EXPECT_EQ(f.entries("Upd_2_Read"), 1);
}

TEST(ImportDriverTest, ElementsCrossingTheBlockBoundaryAreReadWhole) {
    ImportFixture f;
    // Junk between businesses is thrown away; it pushes the second business across the
    // boundary, and a long head pushes the first one across too.
    TmlFile file;
    file.cp1252 = false;
    file.betriebe = {business("1001")};
    std::string text = file.text();
    const size_t first = text.find("<betrieb>");
    text.insert(first, std::string(transfer::kBlockSize - first - 4, ' '));
    const size_t end = text.find("</betrieb>") + 12;
    std::string second;
    for (char c : "<betrieb>\n" + business("1002", "<b-bemerkung>über die Grenze</b-bemerkung>\n") +
                      "</betrieb>\n")
        second += c == '\n' ? std::string("\r\n") : std::string(1, c);
    text.insert(end, std::string(2 * transfer::kBlockSize - end - 20, 'x') + second);
    EXPECT_GT(text.size(), 2 * transfer::kBlockSize);
    f.importBytes(model::utf8ToCp1252(text));
    EXPECT_EQ(f.rows("SELECT [betr-nr], [b-bemerkung] FROM betrieb ORDER BY [betr-nr]"),
              (Strings{"1001|", "1002|über die Grenze"}));
    EXPECT_FALSE(f.g().log.fehler_vorhanden) << f.logText();
}

TEST(ImportDriverTest, EscStopsBetweenRecordsKeepingTheOneUnderWay) {
    ImportFixture f;
    TmlFile file;
    for (int i = 0; i < 5; ++i) file.betriebe.push_back(business(std::to_string(1001 + i)));
    int calls = 0;
    f.shell.onEvents = [&] {
        if (++calls == 2) f.g().view.taste = 27;
    };
    EXPECT_EQ(f.import(file), transfer::ImportOutcome::Cancelled);
    EXPECT_EQ(f.count("betrieb"), 2);
    EXPECT_EQ(f.lastMessage(), "Der Vorgang wurde abgebrochen!");
    EXPECT_EQ(f.g().view.taste, 0);
    EXPECT_FALSE(f.g().forms.marks.menue_import_datenbank);
}

TEST(ImportDriverTest, ClosingTagAheadOfTheOpeningOneEndsInTheHandler) {
    ImportFixture f;
    EXPECT_EQ(f.importBytes("<struktur>BETRIEBSBEZOGEN</struktur><tml-version>151</tml-version>\n</"
                            "betrieb>\n<betrieb>\n"
                            "<betr-nr>1</betr-nr>\n</betrieb>\n"),
              transfer::ImportOutcome::Failed);
    EXPECT_EQ(f.g().forms.startView.Label2, "ACHTUNG UPDATE-FEHLER!");
    EXPECT_TRUE(f.g().forms.marks.menue_import_datenbank);
    EXPECT_EQ(f.entries("Upd_1_Start"), 1);
    EXPECT_EQ(f.dialogs.shown.size(), 1u);  // no message after the consent
}

TEST(ImportDriverTest, HostileKeysDeleteNothingTheFileDoesNotName) {
    ImportFixture f;
    f.import(twoBusinesses());
    TmlFile hostile;
    hostile.betriebe = {
        business("x' OR 'a'='a"), business("1');DROP--"),
        business("O'Brien",
                 "<personen>\n<person>\n<pers-nr>' OR ''='</pers-nr>\n<p-art>NP</p-art>\n"
                 "<fam-name>O'Brien</fam-name>\n</person>\n</personen>\n")};
    f.import(hostile);
    EXPECT_EQ(f.rows("SELECT [betr-nr] FROM betrieb ORDER BY [betr-nr]"),
              (Strings{"1');DROP--", "1001", "1002", "O'Brien", "x' OR 'a'='a"}));
    f.import(hostile);  // and the same file again replaces exactly its own rows
    EXPECT_EQ(f.count("betrieb"), 5);
    EXPECT_EQ(f.rows("SELECT [pers-nr], [fam-name] FROM person"), (Strings{"' OR ''='|O'Brien"}));
    EXPECT_EQ(f.count("beziehung_betrieb_person"), 1);
}

TEST(ImportDriverTest, MissingClosingTagOfASectionGivesUpOnlyThatRecord) {
    ImportFixture f;
    TmlFile file;
    file.betriebe = {business("1001", "<taetigkeiten>\n<taetigkeit>\n<tk-schl>1</tk-schl>\n"),
                     business("1002")};
    f.import(file, {core::msg::vbYes, core::msg::vbNo});
    EXPECT_EQ(f.rows("SELECT [betr-nr] FROM betrieb"), (Strings{"1002"}));
    EXPECT_EQ(f.entries("Upd_3_Betr"), 1);
    EXPECT_EQ(f.entries("Upd_2_Read"), 1);
    EXPECT_NE(f.logText().find("Fehlernummer:           13\r\n"), std::string::npos);
}

TEST(ImportDriverTest, TenMegabyteLineInAMemoIsStoredWhole) {
    ImportFixture f;
    TmlFile file;
    file.betriebe = {
        business("1001", "<b-bemerkung>" + std::string(10'000'000, 'a') + "</b-bemerkung>\n")};
    f.import(file);
    EXPECT_EQ(f.rows("SELECT Len([b-bemerkung]) FROM betrieb"), (Strings{"10000000"}));
}

TEST(ImportDriverTest, APipeOrADirectoryIsRefusedAndNeverWaitedOn) {
    ImportFixture f;
    const std::string pipe = (f.home() / "rohr.tml").string();
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    for (const auto& [path, kind] :
         {std::pair{pipe, std::string("eine benannte Pipe (FIFO)")},
          std::pair{f.home().string(), std::string("ein Verzeichnis")}}) {
        f.dialogs.answers = {core::msg::vbYes};
        const std::string file = path;  // a structured binding cannot be captured by clang 14
        auto run =
            std::async(std::launch::async, [&] { return transfer::Upd_1_Start(f.g(), file); });
        const bool prompt = run.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
        if (!prompt) ::close(::open(pipe.c_str(), O_WRONLY | O_NONBLOCK));  // lets a reader go
        EXPECT_TRUE(prompt) << kind;
        EXPECT_EQ(run.get(), transfer::ImportOutcome::Failed) << kind;
        EXPECT_NE(
            model::cp1252ToUtf8(f.logText())
                .find("kann nicht gelesen werden. Sie ist " + kind + ", keine gewöhnliche Datei."),
            std::string::npos)
            << kind;
    }
}

TEST(ImportDriverTest, Utf8FileIsReadAsUtf8) {
    ImportFixture f;
    TmlFile file = twoBusinesses();
    file.cp1252 = false;
    file.betriebe[0] += "<b-ort>Görlitz – Zentrum</b-ort>\n";
    f.import(file, {core::msg::vbYes, core::msg::vbNo});
    EXPECT_EQ(f.rows("SELECT [b-eintr-name] FROM betrieb WHERE [betr-nr] = '1002'"),
              (Strings{"Bäckerei 1002"}));
}

}  // namespace
}  // namespace tolma::test
