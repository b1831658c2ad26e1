#include "transfer/import_driver.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>

#include "core/db_connection.h"
#include "core/error_log.h"
#include "core/files.h"
#include "core/store_work.h"
#include "model/codepage.h"
#include "model/schema.h"
#include "model/values.h"
#include "store/connection.h"
#include "text/text.h"
#include "transfer/element_fingerprint.h"
#include "transfer/element_reader.h"
#include "transfer/import_context.h"
#include "transfer/record_import.h"

namespace tolma::transfer {
namespace {

const char* kAbgebrochen = "Der Vorgang wurde abgebrochen!";
const char* kTitel = "Datenbank-Update!";
constexpr size_t kLabelCountChars = 20;

// Val() of the old platform: the leading number of a text, 0 without one.
long leadingNumber(const std::string& text) {
    const std::string t = text::trimBlanks(text);
    return std::strtol(t.c_str(), nullptr, 10);
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
    // On a server the commit goes behind the block's rows; see Connection::commitBatchBehind.
    size_t commitBehind() {
        auto c = std::move(connection_);
        return c ? c->commitBatchBehind() : 0;
    }
    void rollback() noexcept {
        if (auto c = std::move(connection_)) c->rollbackBatch();
    }
    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;

  private:
    std::shared_ptr<store::Connection> connection_;
};

// One run of the driver, its numbered steps each a function of its own. A step that ends the
// run early (a question answered No, ESC) returns false; every path then takes the end.
class Run {
  public:
    Run(core::Globals& g, std::string path, ImportScreen& screen,
        std::span<ImportListener* const> listeners, bool dryRun, ImportCounts* counts)
        : g_(g),
          screen_(screen),
          listeners_(listeners),
          ctx_(g),
          dryRun_(dryRun),
          counts_(counts),
          path_(std::move(path)) {}

    ImportOutcome go() {
        prepare();
        ImportOutcome outcome;
        try {
            if (ask() && readBlocks()) finishRecords();
            outcome = end();
        } catch (const std::exception& e) {
            settleQuietly();
            outcome = failed(e);
        }
        if (counts_) *counts_ = {records_, removals_};
        if (committed_) core::announceStoreChange(g_, store::StoreWork::Import);
        leave_ = {};
        return refused_ ? ImportOutcome::Refused : outcome;
    }

  private:
    // Step 1: the marks and the waiting picture.
    void prepare() {
        g_.log.akt_schritt = 0;
        g_.lastMessage.msg_text.clear();
        g_.log.storeFault.clear();
        g_.forms.marks.menue_import_datenbank = true;
        screen_.preparing("Die Datenübertragung wird vorbereitet, bitte warten!");
        g_.log.akt_schritt = 11;
    }

    // Steps 11 to 14: the file, the consent, the start picture; the store's controls let go.
    bool ask() {
        if (!path_.empty() && path_.front() == '"') {
            path_.pop_back();
            if (!path_.empty()) path_.erase(0, 1);
        }
        for (ImportListener* l : listeners_) l->runStarts(path_);
        g_.log.akt_schritt = 13;
        screen_.progressRange(1000);
        if (!dryRun_ &&
            core::showMessage(
                g_,
                "Die Datei ''" + path_ + "'' wird eingelesen und verarbeitet! \n" +
                    "Je nach Größe der Datei, kann das Einlesen mehrere Minuten dauern!\n" +
                    "Soll der Vorgang gestartet werden?",
                core::msg::vbQuestionYesNoNo, kTitel) == core::msg::vbNo)
            return stop();
        g_.log.akt_schritt = 14;
        screen_.reading();
        core::DB_Binden_loesen(g_);
        g_.log.akt_schritt = 2;
        return true;
    }

    // Steps 2 to 6: the file block by block, each block's records in one transaction. The
    // reading thread reads, converts and cuts the blocks ahead; this thread stores them.
    bool readBlocks() {
        const bool whole = readEveryBlock();
        settle();
        return whole;
    }

    bool readEveryBlock() {
        // A missing file reads as an empty one.
        ElementReader reader(path_, kBlockSize);
        for (ImportListener* l : listeners_) l->readingStarts(store());
        while (auto chunk = reader.next()) {
            g_.log.akt_schritt = 3;
            // Later in the run, a store that would not shrink stays open: closing it costs its
            // cache and the writing of its log. The first block's opens the store anew for the
            // run.
            if (!dryRun_ &&
                (chunk->block == 1 || (chunk->block % 10 == 0 && core::compactionWorthIt(g_)))) {
                screen_.label("Datenbankkomprimierung, bitte warten!");
                for (ImportListener* l : listeners_) l->compacting();
                core::DB_Komprimieren(g_);
            }
            g_.log.akt_schritt = 4;
            if (!chunk->holdsBetrieb) {
                g_.log.akt_schritt = 6;
                continue;
            }
            if (records_ == 0 && !readHead(*chunk->text)) return false;
            if (records_ == 0 && !takeLeave()) return false;
            g_.log.akt_schritt = 5;
            if (!storeRecords(*chunk)) return false;
            g_.log.akt_schritt = 6;
        }
        return true;
    }

    // Before the first record, once the store the file goes into is known for good: the
    // login's rights and the lock of the server, held to the end of the run.
    bool takeLeave() {
        if (dryRun_ || leave_.granted) return true;
        leave_ = core::askWorkLeave(g_, store::StoreWork::Import, "Upd_1_Start", kTitel);
        if (leave_.granted) return true;
        refused_ = true;
        g_.lastMessage.msg_text.clear();
        return false;
    }

    // The head, the text ahead of the first <betrieb>: the kind of data and the version.
    bool readHead(const std::string& text) {
        const std::string head = text.substr(0, text.find("<betrieb>") + 1);
        std::string struktur, version;
        if (headValue(head, "struktur", ctx_.akt_struktur))
            struktur = text::trimBlanks(ctx_.akt_struktur);
        headValue(head, "zahl-betriebe-gesamt", announced_);
        if (headValue(head, "tml-version", version)) version = text::trimBlanks(version);
        for (ImportListener* l : listeners_) l->headRead(head);
        return checkKind(struktur) && checkVersion(version);
    }

    bool checkKind(const std::string& struktur) {
        if (dryRun_ || text::upperAscii(struktur) == text::upperAscii(g_.settings.datenart_wert))
            return true;
        if (core::showMessage(g_,
                              "Sie wollen Daten der Datei-Art ''" + text::upperAscii(struktur) +
                                  "''in die Datenbank schreiben.\n" +
                                  "Die derzeitige Datenbank ist aber für die Daten-Art''" +
                                  text::upperAscii(g_.settings.datenart_wert) + "'' definiert\n" +
                                  "Wollen Sie die Datenbank/Daten-Art wechseln?",
                              core::msg::vbQuestionYesNoNo, kTitel) == core::msg::vbNo)
            return stop();
        // The switch flips the stored kind; it does not take the file's kind.
        core::DB_Schliessen(g_);
        core::DB_Binden_loesen(g_);
        auto& rs = g_.stores.rs_optionen;
        rs.Edit();
        if (rs.Fields("datenart").Value().toString() == core::kBetriebsbezogen) {
            rs.Fields("datenart").setValue(core::kMeldungsbezogen);
            g_.settings.db_pfad_aktuell = rs.Fields("db_meldungsbezogen").Value().toString();
            g_.settings.caption = core::kCaptionMeldung;
        } else {
            rs.Fields("datenart").setValue(core::kBetriebsbezogen);
            g_.settings.db_pfad_aktuell = rs.Fields("db_betriebsbezogen").Value().toString();
            g_.settings.caption = core::kCaptionBetrieb;
        }
        rs.Update();
        core::DB_Load(g_);
        screen_.refresh();
        return true;
    }

    bool checkVersion(const std::string& version) {
        const double f = versionNumber(version);
        if (f == kProgramTmlVersion) return true;
        const bool newer = f > kProgramTmlVersion;
        core::A_Error_Log(g_, "Upd_1_Start", "", "0",
                          "Die Datei-Version ''" + path_ +
                              (newer ? "'' ist nicht kompatibel!" : "''ist nicht kompatibel!"),
                          "Fehlerortung: ", std::to_string(g_.log.akt_schritt));
        if (dryRun_) return true;
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
    bool storeRecords(ReadChunk& chunk) {
        const int progressMax = static_cast<int>(std::max(1L, leadingNumber(announced_)));
        screen_.progressRange(progressMax);
        // The announced count is a number; a file may hold megabytes there, which must not be
        // copied into the label once per record.
        const std::string labelTail =
            " von " + announced_.substr(0, kLabelCountChars) + " (ESC = Abbrechen)";
        Batch batch(g_.stores.db_daten);
        ImportBlock block{
            chunk.block, chunk.elements, 0, 0, 0, std::vector<bool>(chunk.elements.size(), false)};
        if (!dryRun_ && store()) {
            if (!fingerprintsAsked_ && keepsFingerprints(*store()))
                fingerprints_.emplace(ctx_, runFingerprint());
            fingerprintsAsked_ = true;
            if (fingerprints_) block.unchanged = fingerprints_->unchanged(*store(), chunk.elements);
        }
        for (ImportListener* l : listeners_) l->blockBegins(store(), block);
        ctx_.personsOfBlock.clear();
        ctx_.lookUpKeys(chunk.elements, block.unchanged);
        const BlockKeys keys = blockKeys(ctx_, chunk.elements, block.unchanged);
        // A listener that removed the block's rows ahead wants the block whole or not at all.
        bool keepWhole = false;
        for (ImportListener* l : listeners_)
            if (RemovedAhead* ahead = l->blockKeys(store(), keys)) {
                ctx_.removedAhead = ahead;
                keepWhole = true;
            }
        // ESC within a block that leaves elements as they stand takes effect at its end. Stopped
        // midway, a person that such an element shares with one not read yet was removed ahead
        // and would come back as it stood, not as that element writes it.
        const bool readWhole = std::find(block.unchanged.begin(), block.unchanged.end(), true) !=
                               block.unchanged.end();
        bool escHeard = false;
        bool cancelled = false;
        try {
            for (size_t k = 0; k < chunk.elements.size(); ++k) {
                const ReadElement& element = chunk.elements[k];
                ++block.read;
                removals_ += element.removals;
                if (block.unchanged[k]) {
                    ++block.replaced;
                } else {
                    const long logged = g_.log.entries;
                    if (Upd_2_Read(ctx_, element)) ++block.replaced;
                    if (fingerprints_) fingerprints_->stored(element, g_.log.entries != logged);
                }
                g_.shell->doEvents();
                if (g_.view.taste == 27) {
                    g_.view.taste = 0;
                    escHeard = true;
                }
                if (escHeard && (!readWhole || k + 1 == chunk.elements.size())) {
                    g_.lastMessage.msg_text = kAbgebrochen;
                    cancelled = true;
                    // The rows of the elements not read may come back under new row ids.
                    if (fingerprints_)
                        for (size_t rest = k + 1; rest < chunk.elements.size(); ++rest)
                            if (!block.unchanged[rest])
                                fingerprints_->stored(chunk.elements[rest], true);
                    break;
                }
                ++records_;
                // The block before is told as committed as soon as the server has done so: a
                // listener may read it on a connection of its own meanwhile.
                if (committing_ && store() && store()->commitEnded(committing_->ticket)) settle();
                screen_.record(static_cast<int>(std::min<long>(records_, progressMax)),
                               "Verarbeite Datensatz " + std::to_string(records_) + labelTail);
            }
            block.records = records_;
            for (ImportListener* l : listeners_) l->blockRead(store(), block);
        } catch (...) {
            settleQuietly();
            ctx_.removedAhead = nullptr;
            // What the block wrote is committed on the way out: no fingerprint may vouch for
            // an element that got part of the way. Without them the block goes whole.
            bool forgotten = !fingerprints_ || !store();
            if (!forgotten && !keepWhole) try {
                    forgetFingerprints(*store());
                    forgotten = true;
                } catch (const std::exception&) {
                }
            if (keepWhole || !forgotten) batch.rollback();
            throw;
        }
        ctx_.removedAhead = nullptr;
        // Rows whose fingerprints could not all be written must not be committed.
        if (fingerprints_ && store()) try {
                fingerprints_->write(*store());
            } catch (...) {
                settleQuietly();
                batch.rollback();
                throw;
            }
        // A closing tag ahead of the opening one gives a negative length.
        if (!cancelled && chunk.broken) throw core::invalidCall();
        // The block before is told as committed ahead of this one's commit, at the latest.
        settle();
        for (ImportListener* l : listeners_) l->blockCommitting(store(), block);
        const size_t ticket = batch.commitBehind();
        if (!committed_ && store()) store()->measureNewTables();
        committed_ = true;
        if (ticket == 0) {
            for (ImportListener* l : listeners_) l->blockCommitted(store(), block);
        } else {
            committing_ = {std::move(chunk), ticket,        block.read,
                           block.replaced,   block.records, std::move(block.unchanged)};
        }
        return !cancelled;
    }

    // The block whose commit a server stores while the next block is worked out: it is told as
    // committed once the server has said so. A failed commit raises.
    void settle() {
        if (!committing_) return;
        Committing done = std::move(*committing_);
        committing_.reset();
        if (store()) store()->awaitCommit(done.ticket);
        const ImportBlock block{done.chunk.block, done.chunk.elements, done.read,
                                done.replaced,    done.records,        std::move(done.unchanged)};
        for (ImportListener* l : listeners_) l->blockCommitted(store(), block);
    }
    // On the way out of a failure: a commit that went through is still told.
    void settleQuietly() noexcept {
        try {
            settle();
        } catch (const std::exception&) {
        }
    }

    // Steps 7 and 8: compaction, the store bound again, the log offered, the closing message.
    void finishRecords() {
        for (ImportListener* l : listeners_) l->blocksDone(store(), records_);
        if (!dryRun_) core::DB_Komprimieren(g_);
        core::DB_Load(g_);
        if (dryRun_) return;
        if (records_ == 0) {
            g_.lastMessage.msg_text = "Die Transfer-Datei enthält keine Gewerbedaten!";
            return;
        }
        g_.log.akt_schritt = 7;
        if (g_.log.fehler_vorhanden) {
            if (core::showMessage(g_,
                                  "Update-Fehler!\nWollen Sie die Log-Datei ('" +
                                      g_.paths.pfad_log + "ERROR.LOG')" + " ansehen?",
                                  core::msg::vbQuestionYesNo, "Achtung!") == core::msg::vbYes &&
                g_.dialogs)
                g_.dialogs->openInViewer(core::errorLogPath(g_.paths));
            g_.log.fehler_vorhanden = false;
        }
        g_.log.akt_schritt = 8;
        g_.lastMessage.msg_text = "Die Daten wurden übertragen!";
    }

    // The end that every path takes: the start picture, the message, the store bound again.
    ImportOutcome end() {
        const std::string message = g_.lastMessage.msg_text;
        for (ImportListener* l : listeners_) l->runEnding();
        if (!dryRun_ && store()) store()->refreshStatistics();
        screen_.ended("Auswahl von Gewerbedaten!");
        if (!message.empty() && !dryRun_)
            core::showMessage(g_, message, core::msg::vbInformation, kTitel);
        g_.forms.marks.menue_import_datenbank = false;
        core::DB_Load(g_);
        const bool cancelled = message == kAbgebrochen;
        for (ImportListener* l : listeners_)
            cancelled ? l->runCancelled(store()) : l->runEnds(store());
        if (cancelled) return ImportOutcome::Cancelled;
        if (records_ > 0 && g_.log.storeFault.empty() && !g_.stores.db_daten.isSet())
            g_.log.storeFault =
                "Die Datenbank '" + g_.settings.db_pfad_aktuell + "' konnte nicht geöffnet werden.";
        return g_.log.storeFault.empty() ? ImportOutcome::Finished : ImportOutcome::StoreFailed;
    }

    // The trap: one entry, the failure picture; the mark stays.
    ImportOutcome failed(const std::exception& e) {
        // Letting go of the store ends its write-ahead log: on a full disk that frees the space
        // the log entry needs.
        core::DB_Schliessen(g_);
        core::DB_Binden_loesen(g_);
        core::logTrapped(g_, "Upd_1_Start", e);
        core::DB_Load(g_);
        for (ImportListener* l : listeners_) l->runFailed();
        screen_.failed("ACHTUNG UPDATE-FEHLER!");
        return ImportOutcome::Failed;
    }

    // What decides an element's rows besides its lines: the kind of data, the columns the store
    // has for them, the legal forms that tell where a legal person hangs, and the rules
    // themselves (their version below).
    Fingerprint runFingerprint() {
        std::string conditions = "1\n" + ctx_.akt_struktur + "\n";
        for (const auto& t : model::dataTables()) {
            if (!store()->hasTable(t.name)) continue;
            conditions += t.name + ":";
            for (const auto& column : store()->columnsOf(t.name)) conditions += column.name + ",";
            conditions += "\n";
        }
        try {
            if (g_.stores.db_org.isSet()) {
                auto st = g_.stores.db_org.connection()->prepare(
                    "SELECT * FROM Rechtsformen ORDER BY rowid");
                while (st->step())
                    for (int i = 0; i < st->columnCount(); ++i)
                        conditions += st->column(i).toString() + "\t";
            }
        } catch (const std::exception&) {
            conditions += "ohne Rechtsformen";
        }
        return fingerprintOf({conditions});
    }

    store::Connection* store() const {
        return g_.stores.db_daten.isSet() ? g_.stores.db_daten.connection().get() : nullptr;
    }
    bool stop() {
        g_.lastMessage.msg_text = kAbgebrochen;
        return false;
    }

    core::Globals& g_;
    ImportScreen& screen_;
    std::span<ImportListener* const> listeners_;
    ImportContext ctx_;
    std::optional<ElementFingerprints> fingerprints_;
    struct Committing {
        ReadChunk chunk;
        size_t ticket = 0;
        size_t read = 0;
        long replaced = 0;
        long records = 0;
        std::vector<bool> unchanged;
    };
    std::optional<Committing> committing_;
    bool fingerprintsAsked_ = false;  // whether the store keeps them, asked once a run
    bool dryRun_;
    ImportCounts* counts_;
    std::string path_;
    std::string announced_;
    long records_ = 0;
    long removals_ = 0;  // notifications of removal among the elements read
    core::WorkLeave leave_;
    bool refused_ = false;    // the store refused the work: another holds it, or no rights
    bool committed_ = false;  // a block was committed
};

}  // namespace

bool headValue(const std::string& head, const std::string& tag, std::string& value) {
    const std::string open = "<" + tag + ">", close = "</" + tag + ">";
    const size_t a = head.find(open), b = head.find(close);
    if (a == std::string::npos || b == std::string::npos) return false;
    const size_t start = a + open.size();
    if (b < start) throw core::invalidCall();
    value = head.substr(start, b - start);
    return true;
}

double versionNumber(const std::string& text) {
    double v = 0;
    for (char c : text)
        if (c >= '0' && c <= '9') v = v * 10 + (c - '0');
    return v;
}

ImportOutcome runImport(core::Globals& g, std::string path, ImportScreen& screen,
                        std::span<ImportListener* const> listeners, bool dryRun,
                        ImportCounts* counts) {
    return Run(g, std::move(path), screen, listeners, dryRun, counts).go();
}

void StartViewScreen::preparing(const std::string& label) {
    g_.forms.startView.Label2 = label;
    g_.forms.startView.MousePointer = 11;
    g_.shell->refreshView();
}

void StartViewScreen::progressRange(int max) {
    g_.forms.startView.ProgressBar1Max = max;
    g_.forms.startView.ProgressBar1Value = 0;
}

void StartViewScreen::reading() {
    auto& v = g_.forms.startView;
    v.Image2Visible = true;
    v.SSTab1Visible = false;
    v.Frame_AnzahlVisible = false;
    v.Frame_UeberschriftVisible = false;
    g_.shell->refreshView();
}

void StartViewScreen::label(const std::string& text) {
    g_.forms.startView.Label2 = text;
    g_.shell->refreshView();
}

void StartViewScreen::record(int value, const std::string& label) {
    g_.forms.startView.ProgressBar1Value = value;
    g_.forms.startView.Label2 = label;
    g_.shell->refreshView();
}

void StartViewScreen::refresh() {
    g_.shell->refreshView();
}

void StartViewScreen::ended(const std::string& label) {
    auto& v = g_.forms.startView;
    v.ProgressBar1Value = 0;
    v.MousePointer = 0;
    v.SSTab1Tab = 0;
    v.Label2 = label;
    g_.shell->refreshView();
}

void StartViewScreen::failed(const std::string& label) {
    auto& v = g_.forms.startView;
    v.MousePointer = 0;
    v.SSTab1Tab = 0;
    v.Label2 = label;
    g_.shell->refreshView();
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
