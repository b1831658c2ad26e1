#include "transfer/import_driver.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>

#include "core/db_connection.h"
#include "core/error_log.h"
#include "core/files.h"
#include "model/codepage.h"
#include "model/values.h"
#include "search/index_upkeep.h"
#include "store/connection.h"
#include "text/text.h"
#include "transfer/element_reader.h"
#include "transfer/import_context.h"
#include "transfer/import_journal.h"
#include "transfer/record_import.h"

namespace tolma::transfer {
namespace {

const char* kAbgebrochen = "Der Vorgang wurde abgebrochen!";
const char* kTitel = "Datenbank-Update!";
constexpr size_t kLabelCountChars = 20;

// The value between the first opening and the first closing tag, when both are in the text.
bool headValue(const std::string& head, const std::string& tag, std::string& value) {
    const std::string open = "<" + tag + ">", close = "</" + tag + ">";
    const size_t a = head.find(open), b = head.find(close);
    if (a == std::string::npos || b == std::string::npos) return false;
    const size_t start = a + open.size();
    if (b < start) throw core::invalidCall();
    value = head.substr(start, b - start);
    return true;
}

// Val() of the old platform: the leading number of a text, 0 without one.
long leadingNumber(const std::string& text) {
    const std::string t = text::trimBlanks(text);
    return std::strtol(t.c_str(), nullptr, 10);
}

// The version of a file: every digit of the text, read as one number.
double versionNumber(const std::string& text) {
    double v = 0;
    for (char c : text)
        if (c >= '0' && c <= '9') v = v * 10 + (c - '0');
    return v;
}

// Commits the records of one block when the block is done, however it ends. A failed commit
// (a full disk) is raised by commit(); on the way out of an error it can only be dropped.
class Batch {
  public:
    explicit Batch(const store::Database& db) {
        if (db.isSet()) {
            connection_ = db.connection();
            connection_->beginBatch();
        }
    }
    ~Batch() {
        try {
            commit();
        } catch (const std::exception&) {
        }
    }
    void commit() {
        if (auto c = std::move(connection_)) c->commitBatch();
    }
    void rollback() noexcept {
        if (auto c = std::move(connection_)) c->rollbackBatch();
    }
    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;

  private:
    std::shared_ptr<store::Connection> connection_;
};

std::string runTime(const core::Globals& g) {
    const std::time_t t = g.clock();
    std::tm tm{};
    localtime_r(&t, &tm);
    char buf[32];
    std::strftime(buf, sizeof buf, "%d.%m.%Y %H:%M:%S", &tm);
    return buf;
}

}  // namespace

int keptImportRuns(core::Globals& g) {
    try {
        if (auto v = g.db_org.lookup(
                "SELECT wert FROM tolma_optionen WHERE name = 'importlaeufe_behalten'", "wert"))
            if (const long n = std::atol(v->toString().c_str()); n > 0) return static_cast<int>(n);
    } catch (const std::exception&) {
        // a settings store without the table: the default
    }
    return kDefaultKeptRuns;
}

void setKeptImportRuns(core::Globals& g, int runs) {
    const auto& c = g.db_org.connection();
    c->execute("CREATE TABLE IF NOT EXISTS tolma_optionen (name TEXT PRIMARY KEY, wert TEXT)");
    c->execute("INSERT OR REPLACE INTO tolma_optionen VALUES ('importlaeufe_behalten', ?1)",
               {store::Variant(std::to_string(std::max(1, runs)))});
}

namespace {

// One run of Upd_1_Start, its numbered steps each a function of its own. A step that ends the
// run early (a question answered No, ESC) returns false; every path then takes the end.
class Run {
  public:
    Run(core::Globals& g, std::string path, ImportCheck* check, ImportCounts* counts)
        : g_(g),
          view_(g.startView),
          ctx_(g),
          check_(check),
          counts_(counts),
          path_(std::move(path)),
          recording_{g, {}} {}

    ImportOutcome go() {
        prepare();
        ImportOutcome outcome;
        try {
            if (ask() && readBlocks()) finishRecords();
            outcome = end();
        } catch (const std::exception& e) {
            outcome = failed(e);
        }
        if (counts_) *counts_ = {records_, ctx_.removals};
        return outcome;
    }

  private:
    // Step 1: the marks and the waiting picture.
    void prepare() {
        g_.akt_schritt = 0;
        g_.msg_text.clear();
        g_.storeFault.clear();
        g_.marks.menue_import_datenbank = true;
        view_.Label2 = "Die Datenübertragung wird vorbereitet, bitte warten!";
        view_.MousePointer = 11;
        g_.refreshView();
        g_.akt_schritt = 11;
    }

    // Steps 11 to 14: the file, the consent, the start picture; the store's controls let go.
    bool ask() {
        if (!path_.empty() && path_.front() == '"') {
            path_.pop_back();
            if (!path_.empty()) path_.erase(0, 1);
        }
        g_.akt_schritt = 13;
        view_.ProgressBar1Max = 1000;
        view_.ProgressBar1Value = 0;
        if (!checking() &&
            core::showMessage(
                g_,
                "Die Datei ''" + path_ + "'' wird eingelesen und verarbeitet! \n" +
                    "Je nach Größe der Datei, kann das Einlesen mehrere Minuten dauern!\n" +
                    "Soll der Vorgang gestartet werden?",
                core::msg::vbQuestionYesNoNo, kTitel) == core::msg::vbNo)
            return stop();
        g_.akt_schritt = 14;
        view_.Image2Visible = true;
        view_.SSTab1Visible = false;
        view_.Frame_AnzahlVisible = false;
        view_.Frame_UeberschriftVisible = false;
        g_.refreshView();
        core::DB_Binden_loesen(g_);
        g_.akt_schritt = 2;
        return true;
    }

    // Steps 2 to 6: the file block by block, each block's records in one transaction. The
    // reading thread reads, converts and cuts the blocks ahead; this thread stores them.
    bool readBlocks() {
        // A missing file reads as an empty one.
        ElementReader reader(path_, kBlockSize);
        leaveOutListIndexes();
        while (auto chunk = reader.next()) {
            g_.akt_schritt = 3;
            if (!checking() && (chunk->block == 1 || chunk->block % 10 == 0)) {
                view_.Label2 = "Datenbankkomprimierung, bitte warten!";
                g_.refreshView();
                if (searchUpkeep_) searchUpkeep_->settle();
                core::DB_Komprimieren(g_);
            }
            g_.akt_schritt = 4;
            if (!chunk->holdsBetrieb) {
                g_.akt_schritt = 6;
                continue;
            }
            if (records_ == 0 && !readHead(*chunk->text)) return false;
            g_.akt_schritt = 5;
            if (!storeRecords(*chunk)) return false;
            g_.akt_schritt = 6;
        }
        return true;
    }

    // A file that brings much against what the store holds is read in without the lists'
    // indexes by names, towns and streets; they are built anew at the end. A small file keeps
    // them, since building them anew costs as much as the store is large.
    void leaveOutListIndexes() {
        if (checking() || !g_.db_daten.isSet()) return;
        std::error_code e1, e2;
        const auto fileSize = std::filesystem::file_size(path_, e1);
        const auto storeSize = std::filesystem::file_size(g_.db_pfad_aktuell, e2);
        if (e1 || e2 || fileSize <= storeSize / 2) return;
        core::dropListIndexes(g_);
        listIndexesLeftOut_ = true;
    }

    // The head, the text ahead of the first <betrieb>: the kind of data and the version.
    bool readHead(const std::string& text) {
        const std::string head = text.substr(0, text.find("<betrieb>") + 1);
        std::string struktur, version;
        if (headValue(head, "struktur", ctx_.akt_struktur))
            struktur = text::trimBlanks(ctx_.akt_struktur);
        headValue(head, "zahl-betriebe-gesamt", announced_);
        if (headValue(head, "tml-version", version)) version = text::trimBlanks(version);
        if (checking()) {
            check_->struktur = struktur;
            check_->version = version;
            headValue(head, "ersteller", check_->ersteller);
            headValue(head, "erstelldatum", check_->erstelldatum);
        }
        return checkKind(struktur) && checkVersion(version);
    }

    bool checkKind(const std::string& struktur) {
        if (text::upperAscii(struktur) == text::upperAscii(g_.datenart_wert)) return true;
        if (checking()) {
            check_->warnings.push_back("Die Datei enthält Daten der Art ''" +
                                       text::upperAscii(struktur) +
                                       "'', die aktive Datenbank ist für die Daten-Art ''" +
                                       text::upperAscii(g_.datenart_wert) + "'' angelegt.");
            return true;
        }
        if (core::showMessage(g_,
                              "Sie wollen Daten der Datei-Art ''" + text::upperAscii(struktur) +
                                  "''in die Datenbank schreiben.\n" +
                                  "Die derzeitige Datenbank ist aber für die Daten-Art''" +
                                  text::upperAscii(g_.datenart_wert) + "'' definiert\n" +
                                  "Wollen Sie die Datenbank/Daten-Art wechseln?",
                              core::msg::vbQuestionYesNoNo, kTitel) == core::msg::vbNo)
            return stop();
        // The switch flips the stored kind; it does not take the file's kind.
        core::DB_Schliessen(g_);
        core::DB_Binden_loesen(g_);
        auto& rs = g_.rs_optionen;
        rs.Edit();
        if (rs.Fields("datenart").Value().toString() == core::kBetriebsbezogen) {
            rs.Fields("datenart").setValue(core::kMeldungsbezogen);
            g_.db_pfad_aktuell = rs.Fields("db_meldungsbezogen").Value().toString();
            g_.caption = core::kCaptionMeldung;
        } else {
            rs.Fields("datenart").setValue(core::kBetriebsbezogen);
            g_.db_pfad_aktuell = rs.Fields("db_betriebsbezogen").Value().toString();
            g_.caption = core::kCaptionBetrieb;
        }
        rs.Update();
        core::DB_Load(g_);
        g_.refreshView();
        return true;
    }

    bool checkVersion(const std::string& version) {
        const double f = versionNumber(version);
        if (f == kProgramTmlVersion) return true;
        const bool newer = f > kProgramTmlVersion;
        core::A_Error_Log(g_, "Upd_1_Start", "", "0",
                          "Die Datei-Version ''" + path_ +
                              (newer ? "'' ist nicht kompatibel!" : "''ist nicht kompatibel!"),
                          "Fehlerortung: ", std::to_string(g_.akt_schritt));
        if (checking()) {
            check_->warnings.push_back(
                newer ? "Die Datei ist neuer als das Programm (Version " + version + ")."
                      : "Die Datei hat eine ältere Version (" + version + ").");
            return true;
        }
        const std::string question =
            newer ? "Das Programm ist nicht kompatibel zur Datei ''" + path_ + "'' ! \n" +
                        "Bitte installieren Sie die neueste Version des Schnittstellenprogrammes, "
                        "\n" +
                        "da sonst die Daten möglicherweise nicht korrekt übernommen werden!\n" +
                        "Soll der Vorgang trotzdem weiter durchgeführt werden?"
                  : "Die Datei ''" + path_ + "'' ist nicht kompatibel zum Programm !\n" +
                        "Bitte verwenden Sie eine neuere tml-Datei (neuer Download),\n" +
                        "da sonst die Daten möglicherweise nicht korrekt übernommen werden!\n" +
                        "Soll der Vorgang trotzdem weiter durchgeführt werden?";
        if (core::showMessage(g_, question, core::msg::vbQuestionYesNoNo, kTitel) ==
            core::msg::vbNo)
            return stop();
        return true;
    }

    // Step 5: the <betrieb> elements of the block, in one transaction; ESC between two of them.
    bool storeRecords(const ReadChunk& chunk) {
        view_.ProgressBar1Max = std::max(1L, leadingNumber(announced_));
        view_.ProgressBar1Value = 0;
        // The announced count is a number; a file may hold megabytes there, which must not be
        // copied into the label once per record.
        const std::string labelTail =
            " von " + announced_.substr(0, kLabelCountChars) + " (ESC = Abbrechen)";
        Batch batch(g_.db_daten);
        beginSearch();
        const bool recording = !checking() && g_.recordImportRuns && g_.db_daten.isSet();
        if (recording) {
            // The record of this run goes into the same transactions as its blocks.
            store::Connection& c = *g_.db_daten.connection();
            if (!recording_.journal.started())
                recording_.journal.start(c, path_, runTime(g_), keptImportRuns(g_));
            recording_.journal.attach(c);
            // The rows the block replaces go at once, copied into the record: a few statements
            // rather than a dozen per business.
            recording_.journal.removeAhead(c, blockKeys(ctx_, chunk.elements));
        }
        bool cancelled = false;
        try {
            for (const ReadElement& element : chunk.elements) {
                Upd_2_Read(ctx_, element);
                g_.doEvents();
                if (g_.taste == 27) {
                    g_.taste = 0;
                    g_.msg_text = kAbgebrochen;
                    cancelled = true;
                    break;
                }
                ++records_;
                view_.ProgressBar1Value =
                    static_cast<int>(std::min<long>(records_, view_.ProgressBar1Max));
                view_.Label2 = "Verarbeite Datensatz " + std::to_string(records_) + labelTail;
                g_.refreshView();
            }
            // What no element came to remove, after ESC or an element given up, comes back.
            if (recording && !ctx_.removedAhead.empty())
                recording_.journal.putBack(*g_.db_daten.connection(), keysLeft(ctx_));
        } catch (...) {
            // A block whose rows went ahead is kept whole or not at all.
            ctx_.removedAhead.clear();
            if (recording) batch.rollback();
            throw;
        }
        ctx_.removedAhead.clear();
        // A closing tag ahead of the opening one gives a negative length.
        if (!cancelled && chunk.broken) throw core::invalidCall();
        if (!checking() && g_.db_daten.isSet())
            recording_.journal.count(*g_.db_daten.connection(), records_);
        keepSearch(chunk);
        batch.commit();
        if (searchUpkeep_ && g_.db_daten.isSet())
            searchUpkeep_->committed(*g_.db_daten.connection());
        return !cancelled;
    }

    // Steps 7 and 8: compaction, the store bound again, the log offered, the closing message.
    void finishRecords() {
        finishSearch();
        if (!checking()) core::DB_Komprimieren(g_);
        core::DB_Load(g_);
        if (checking()) {
            check_->businesses = records_;
            check_->replacing = ctx_.replacing;
            check_->removals = ctx_.removals;
            for (const auto& kz : ctx_.municipalities) check_->municipalities.push_back(kz);
            return;
        }
        if (records_ == 0) {
            g_.msg_text = "Die Transfer-Datei enthält keine Gewerbedaten!";
            return;
        }
        g_.akt_schritt = 7;
        if (g_.fehler_vorhanden) {
            if (core::showMessage(g_,
                                  "Update-Fehler!\nWollen Sie die Log-Datei ('" + g_.pfad_log +
                                      "ERROR.LOG')" + " ansehen?",
                                  core::msg::vbQuestionYesNo, "Achtung!") == core::msg::vbYes &&
                g_.dialogs)
                g_.dialogs->openInViewer(core::errorLogPath(g_));
            g_.fehler_vorhanden = false;
        }
        g_.akt_schritt = 8;
        g_.msg_text = "Die Daten wurden übertragen!";
    }

    // The end that every path takes: the start picture, the message, the store bound again.
    ImportOutcome end() {
        const std::string message = g_.msg_text;
        if (listIndexesLeftOut_) {
            if (!g_.db_daten.isSet()) core::DB_Load(g_);
            core::ensureListIndexes(g_);
        }
        view_.ProgressBar1Value = 0;
        view_.MousePointer = 0;
        view_.SSTab1Tab = 0;
        view_.Label2 = "Auswahl von Gewerbedaten!";
        g_.refreshView();
        if (!message.empty() && !checking())
            core::showMessage(g_, message, core::msg::vbInformation, kTitel);
        g_.marks.menue_import_datenbank = false;
        core::DB_Load(g_);
        finishSearch();
        if (message == kAbgebrochen) return ImportOutcome::Cancelled;
        if (records_ > 0 && g_.storeFault.empty() && !g_.db_daten.isSet())
            g_.storeFault =
                "Die Datenbank '" + g_.db_pfad_aktuell + "' konnte nicht geöffnet werden.";
        return g_.storeFault.empty() ? ImportOutcome::Finished : ImportOutcome::StoreFailed;
    }

    // The trap: one entry, the failure picture; the mark stays.
    ImportOutcome failed(const std::exception& e) {
        // Letting go of the store ends its journal: on a full disk that frees the space the log
        // entry needs.
        core::DB_Schliessen(g_);
        core::DB_Binden_loesen(g_);
        core::logTrapped(g_, "Upd_1_Start", e);
        core::DB_Load(g_);
        if (listIndexesLeftOut_) core::ensureListIndexes(g_);  // the mark stays set here
        // The index stays marked as behind, as every committed block left it.
        if (searchUpkeep_) searchUpkeep_->abandon();
        view_.MousePointer = 0;
        view_.SSTab1Tab = 0;
        view_.Label2 = "ACHTUNG UPDATE-FEHLER!";
        g_.refreshView();
        return ImportOutcome::Failed;
    }

    // The search index follows the blocks: the rows of each block's businesses, and of the
    // businesses that share a person with them, are written anew, in the next block's
    // transaction or at the end. After a failure the next search builds the index anew, and the
    // import goes on.
    void beginSearch() {
        if (checking() || !g_.db_daten.isSet()) return;
        if (!searchUpkeep_) {
            // A file that brings much against what the store holds, as the first one does, is
            // mostly businesses new to it.
            std::error_code e1, e2;
            const auto fileSize = std::filesystem::file_size(path_, e1);
            const auto storeSize = std::filesystem::file_size(g_.db_pfad_aktuell, e2);
            searchUpkeep_.emplace(!e1 && !e2 && fileSize > 2 * storeSize);
        }
        // Not trapped: a block that cannot carry the mark must not be stored.
        searchUpkeep_->begin(*g_.db_daten.connection());
    }

    void keepSearch(const ReadChunk& chunk) {
        if (checking() || !g_.db_daten.isSet() || !searchUpkeep_) return;
        std::vector<std::string> businesses, persons;
        for (const ReadElement& element : chunk.elements) {
            businesses.push_back(element.betrNr);
            persons.insert(persons.end(), element.persNrs.begin(), element.persNrs.end());
        }
        try {
            searchUpkeep_->keep(*g_.db_daten.connection(), businesses, persons);
        } catch (const std::exception& e) {
            core::logTrapped(g_, "Suchindex", e);
        }
        searchKept_ = {records_, ctx_.touched.size()};
    }

    // The rows of the last block, and of what a block stored ahead of its end without its
    // notes (its persons are not known, so every business sharing a person with one of its
    // businesses follows); the index follows the store again.
    void finishSearch() {
        if (!searchUpkeep_ || !g_.db_daten.isSet()) return;
        try {
            std::vector<std::string> also;
            const bool unnoted = records_ != searchKept_.records;
            if (unnoted && !ctx_.touchedAll)
                also.assign(ctx_.touched.begin() + static_cast<long>(searchKept_.touched),
                            ctx_.touched.end());
            searchUpkeep_->finish(*g_.db_daten.connection(), also, unnoted && ctx_.touchedAll);
        } catch (const std::exception& e) {
            core::logTrapped(g_, "Suchindex", e);
        }
    }

    bool stop() {
        g_.msg_text = kAbgebrochen;
        return false;
    }
    bool checking() const { return check_ != nullptr; }

    core::Globals& g_;
    core::StartViewState& view_;
    ImportContext ctx_;
    ImportCheck* check_;
    ImportCounts* counts_;
    std::string path_;
    std::string announced_;
    long records_ = 0;
    bool listIndexesLeftOut_ = false;
    // How far the search index has followed: the records and the numbers noted until then.
    struct {
        long records = 0;
        size_t touched = 0;
    } searchKept_;
    std::optional<search::IndexUpkeep> searchUpkeep_;
    // Recording ends with the run, however it ends: later changes are no part of it.
    struct Recording {
        core::Globals& g;
        ImportJournal journal;
        ~Recording() {
            if (g.db_daten.isSet()) journal.detach(*g.db_daten.connection());
        }
    } recording_;
};

}  // namespace

ImportOutcome Upd_1_Start(core::Globals& g, std::string path, ImportCheck* check,
                          ImportCounts* counts) {
    return Run(g, std::move(path), check, counts).go();
}

std::string noBusinessCause(const std::string& path) {
    std::error_code ec;
    if (!std::filesystem::exists(path, ec)) return "Die Datei gibt es nicht.";
    if (const std::string cause = core::irregularFileCause(path); !cause.empty()) return cause;
    std::ifstream in(path, std::ios::binary);
    if (!in) return "Die Datei kann nicht gelesen werden (keine Leserechte).";
    std::string head(4096, '\0');
    in.read(head.data(), static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<size_t>(in.gcount()));
    if (head.empty()) return "Die Datei ist leer.";
    // UTF-16 puts a zero byte beside every ASCII letter; a transfer file holds none.
    const bool bom = head.rfind("\xFF\xFE", 0) == 0 || head.rfind("\xFE\xFF", 0) == 0;
    if (bom || std::count(head.begin(), head.end(), '\0') > static_cast<long>(head.size() / 4))
        return "Die Datei ist in UTF-16 geschrieben; gelesen werden Transferdateien in "
               "Windows-1252 oder UTF-8.";
    return "Die Datei enthält kein Element <betrieb>.";
}

}  // namespace tolma::transfer
