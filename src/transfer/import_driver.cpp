#include "transfer/import_driver.h"

#include <algorithm>
#include <ctime>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>

#include "core/db_connection.h"
#include "core/error_log.h"
#include "core/files.h"
#include "model/codepage.h"
#include "model/values.h"
#include "store/connection.h"
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

// A tag searched in the 5 MB buffer: the buffer is full of "<", so a plain find would stop at
// every one of them.
class TagFinder {
public:
    explicit TagFinder(std::string_view tag) : tag_(tag), searcher_(tag_.begin(), tag_.end()) {}
    size_t in(const std::string& text, size_t from) const {
        auto it = std::search(text.begin() + static_cast<long>(from), text.end(), searcher_);
        return it == text.end() ? std::string::npos : static_cast<size_t>(it - text.begin());
    }

private:
    std::string tag_;
    std::boyer_moore_horspool_searcher<std::string::const_iterator> searcher_;
};

// Val() of the old platform: the leading number of a text, 0 without one.
long leadingNumber(const std::string& text) {
    const std::string t = model::trimBlanks(text);
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
        if (auto v = g.db_org.lookup("SELECT wert FROM tolma_optionen WHERE name = 'importlaeufe_behalten'", "wert"))
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

ImportOutcome Upd_1_Start(core::Globals& g, std::string path, ImportCheck* check) {
    const bool checking = check != nullptr;
    auto& view = g.startView;
    ImportContext ctx(g);
    // Recording ends with the run, however it ends: later changes are no part of it.
    struct Recording {
        core::Globals& g;
        ImportJournal journal;
        ~Recording() {
            if (g.db_daten.isSet()) journal.detach(*g.db_daten.connection());
        }
    } journal{g, {}};
    g.akt_schritt = 0;
    g.msg_text.clear();
    g.storeFault.clear();
    g.marks.menue_import_datenbank = true;
    view.Label2 = "Die Datenübertragung wird vorbereitet, bitte warten!";
    view.MousePointer = 11;
    g.refreshView();
    g.akt_schritt = 11;
    try {
        if (!path.empty() && path.front() == '"') {
            path.pop_back();
            if (!path.empty()) path.erase(0, 1);
        }
        g.akt_schritt = 12;
        // A missing file reads as an empty one.
        std::ifstream file(path, std::ios::binary);
        g.akt_schritt = 13;
        view.ProgressBar1Max = 1000;
        view.ProgressBar1Value = 0;

        long records = 0;
        std::string announced;
        if (!checking && core::showMessage(g,
                              "Die Datei ''" + path + "'' wird eingelesen und verarbeitet! \n" +
                                  "Je nach Größe der Datei, kann das Einlesen mehrere Minuten dauern!\n" +
                                  "Soll der Vorgang gestartet werden?",
                              core::msg::vbQuestionYesNoNo, kTitel) == core::msg::vbNo) {
            g.msg_text = kAbgebrochen;
            goto ende;
        }
        g.akt_schritt = 14;
        view.Image2Visible = true;
        view.SSTab1Visible = false;
        view.Frame_AnzahlVisible = false;
        view.Frame_UeberschriftVisible = false;
        g.refreshView();
        core::DB_Binden_loesen(g);
        g.akt_schritt = 2;
        {
            long block = 0;
            int encoding = 0;  // 0 not yet known, 1 Windows-1252, 2 UTF-8
            std::string carry, raw(kBlockSize, ' ');
            while (file && file.peek() != std::char_traits<char>::eof()) {
                g.akt_schritt = 3;
                // The last block stays filled with blanks behind the file's end.
                std::fill(raw.begin(), raw.end(), ' ');
                file.read(raw.data(), static_cast<std::streamsize>(raw.size()));
                const size_t got = static_cast<size_t>(file.gcount());
                if (encoding == 0) {
                    std::string_view head(raw.data(), got);
                    // A sequence cut by the block's end must not count against UTF-8.
                    size_t cut = head.size();
                    for (size_t k = 0; k < 3 && cut > 0 && (static_cast<unsigned char>(head[cut - 1]) & 0x80); ++k) --cut;
                    encoding = model::isUtf8WithNonAscii(head.substr(0, cut)) ? 2 : 1;
                }
                ++block;
                if (!checking && (block == 1 || block % 10 == 0)) {
                    view.Label2 = "Datenbankkomprimierung, bitte warten!";
                    g.refreshView();
                    core::DB_Komprimieren(g);
                }
                std::string& buffer = carry;  // the carry grows into this block's buffer
                if (encoding == 2)
                    buffer.append(raw);
                else
                    model::appendCp1252AsUtf8(buffer, raw);
                g.akt_schritt = 4;
                if (buffer.find("<betrieb>") == std::string::npos) {
                    g.akt_schritt = 6;
                    continue;
                }
                if (records == 0) {
                    // The head: the text ahead of the first <betrieb>.
                    const std::string head = buffer.substr(0, buffer.find("<betrieb>") + 1);
                    std::string struktur, version;
                    if (headValue(head, "struktur", ctx.akt_struktur)) struktur = model::trimBlanks(ctx.akt_struktur);
                    headValue(head, "zahl-betriebe-gesamt", announced);
                    if (headValue(head, "tml-version", version)) version = model::trimBlanks(version);
                    if (checking) {
                        check->struktur = struktur;
                        check->version = version;
                        headValue(head, "ersteller", check->ersteller);
                        headValue(head, "erstelldatum", check->erstelldatum);
                    }

                    if (checking && core::upperCase(struktur) != core::upperCase(g.datenart_wert)) {
                        check->warnings.push_back("Die Datei enthält Daten der Art ''" + core::upperCase(struktur) +
                                                  "'', die aktive Datenbank ist für die Daten-Art ''" +
                                                  core::upperCase(g.datenart_wert) + "'' angelegt.");
                    } else if (core::upperCase(struktur) != core::upperCase(g.datenart_wert)) {
                        if (core::showMessage(g,
                                              "Sie wollen Daten der Datei-Art ''" + core::upperCase(struktur) +
                                                  "''in die Datenbank schreiben.\n" +
                                                  "Die derzeitige Datenbank ist aber für die Daten-Art''" +
                                                  core::upperCase(g.datenart_wert) + "'' definiert\n" +
                                                  "Wollen Sie die Datenbank/Daten-Art wechseln?",
                                              core::msg::vbQuestionYesNoNo, kTitel) == core::msg::vbNo) {
                            g.msg_text = kAbgebrochen;
                            goto ende;
                        }
                        // The switch flips the stored kind; it does not take the file's kind.
                        core::DB_Schliessen(g);
                        core::DB_Binden_loesen(g);
                        auto& rs = g.rs_optionen;
                        rs.Edit();
                        if (rs.Fields("datenart").Value().toString() == core::kBetriebsbezogen) {
                            rs.Fields("datenart").setValue(core::kMeldungsbezogen);
                            g.db_pfad_aktuell = rs.Fields("db_meldungsbezogen").Value().toString();
                            g.caption = core::kCaptionMeldung;
                        } else {
                            rs.Fields("datenart").setValue(core::kBetriebsbezogen);
                            g.db_pfad_aktuell = rs.Fields("db_betriebsbezogen").Value().toString();
                            g.caption = core::kCaptionBetrieb;
                        }
                        rs.Update();
                        core::DB_Load(g);
                        g.refreshView();
                    }

                    const double f = versionNumber(version);
                    if (f != kProgramTmlVersion) {
                        const bool newer = f > kProgramTmlVersion;
                        core::A_Error_Log(g, "Upd_1_Start", "", "0",
                                          "Die Datei-Version ''" + path + (newer ? "'' ist nicht kompatibel!" : "''ist nicht kompatibel!"),
                                          "Fehlerortung: ", std::to_string(g.akt_schritt));
                        const std::string question =
                            newer ? "Das Programm ist nicht kompatibel zur Datei ''" + path + "'' ! \n" +
                                        "Bitte installieren Sie die neueste Version des Schnittstellenprogrammes, \n" +
                                        "da sonst die Daten möglicherweise nicht korrekt übernommen werden!\n" +
                                        "Soll der Vorgang trotzdem weiter durchgeführt werden?"
                                  : "Die Datei ''" + path + "'' ist nicht kompatibel zum Programm !\n" +
                                        "Bitte verwenden Sie eine neuere tml-Datei (neuer Download),\n" +
                                        "da sonst die Daten möglicherweise nicht korrekt übernommen werden!\n" +
                                        "Soll der Vorgang trotzdem weiter durchgeführt werden?";
                        if (checking) {
                            check->warnings.push_back(newer ? "Die Datei ist neuer als das Programm (Version " + version + ")."
                                                            : "Die Datei hat eine ältere Version (" + version + ").");
                        } else if (core::showMessage(g, question, core::msg::vbQuestionYesNoNo, kTitel) == core::msg::vbNo) {
                            g.msg_text = kAbgebrochen;
                            goto ende;
                        }
                    }
                }
                g.akt_schritt = 5;
                view.ProgressBar1Max = std::max(1L, leadingNumber(announced));
                view.ProgressBar1Value = 0;

                // The announced count is a number; a file may hold megabytes there, which must not
                // be copied into the label once per record.
                const std::string labelTail =
                    " von " + announced.substr(0, kLabelCountChars) + " (ESC = Abbrechen)";
                Batch batch(g.db_daten);
                if (!checking && g.db_daten.isSet()) {
                    // The record of this run goes into the same transactions as its blocks.
                    store::Connection& c = *g.db_daten.connection();
                    if (!journal.journal.started()) journal.journal.start(c, path, runTime(g), keptImportRuns(g));
                    journal.journal.attach(c);
                }
                bool cancelled = false;
                // The consumed front of the buffer is skipped by an offset, not copied away.
                size_t from = 0;
                static const TagFinder opening("<betrieb>"), closingTag("</betrieb>");
                for (size_t s; (s = opening.in(buffer, from)) != std::string::npos;) {
                    const size_t closing = closingTag.in(buffer, from);
                    if (closing == std::string::npos) break;
                    const size_t e = closing + 10;
                    // A closing tag ahead of the opening one gives a negative length.
                    if (e < s) throw core::invalidCall();
                    Upd_2_Read(ctx, buffer.substr(s, e - s));
                    // The character right behind </betrieb> is dropped with it: the CR of the
                    // writer's line end.
                    from = std::min(buffer.size(), e + 1);
                    g.doEvents();
                    if (g.taste == 27) {
                        g.taste = 0;
                        g.msg_text = kAbgebrochen;
                        cancelled = true;
                        break;
                    }
                    ++records;
                    view.ProgressBar1Value = static_cast<int>(std::min<long>(records, view.ProgressBar1Max));
                    view.Label2 = "Verarbeite Datensatz " + std::to_string(records) + labelTail;
                    g.refreshView();
                }
                buffer.erase(0, from);
                if (!checking && g.db_daten.isSet()) journal.journal.count(*g.db_daten.connection(), records);
                batch.commit();
                if (cancelled) goto ende;
                g.akt_schritt = 6;
            }
        }
        if (!checking) core::DB_Komprimieren(g);
        core::DB_Load(g);
        if (checking) {
            check->businesses = records;
            check->replacing = ctx.replacing;
            check->removals = ctx.removals;
            for (const auto& kz : ctx.municipalities) check->municipalities.push_back(kz);
        } else if (records == 0) {
            g.msg_text = "Die Transfer-Datei enthält keine Gewerbedaten!";
        } else {
            g.akt_schritt = 7;
            if (g.fehler_vorhanden) {
                if (core::showMessage(g, "Update-Fehler!\nWollen Sie die Log-Datei ('" + g.pfad_log + "ERROR.LOG')" +
                                             " ansehen?",
                                      core::msg::vbQuestionYesNo, "Achtung!") == core::msg::vbYes &&
                    g.dialogs)
                    g.dialogs->openInViewer(core::errorLogPath(g));
                g.fehler_vorhanden = false;
            }
            g.akt_schritt = 8;
            g.msg_text = "Die Daten wurden übertragen!";
        }
    ende:
        const std::string message = g.msg_text;
        view.ProgressBar1Value = 0;
        view.MousePointer = 0;
        view.SSTab1Tab = 0;
        view.Label2 = "Auswahl von Gewerbedaten!";
        g.refreshView();
        if (!message.empty() && !checking) core::showMessage(g, message, core::msg::vbInformation, kTitel);
        g.marks.menue_import_datenbank = false;
        core::DB_Load(g);
        if (message == kAbgebrochen) return ImportOutcome::Cancelled;
        if (records > 0 && g.storeFault.empty() && !g.db_daten.isSet())
            g.storeFault = "Die Datenbank '" + g.db_pfad_aktuell + "' konnte nicht geöffnet werden.";
        return g.storeFault.empty() ? ImportOutcome::Finished : ImportOutcome::StoreFailed;
    } catch (const std::exception& e) {
        // Letting go of the store ends its journal: on a full disk that frees the space the
        // log entry needs.
        core::DB_Schliessen(g);
        core::DB_Binden_loesen(g);
        core::logTrapped(g, "Upd_1_Start", e);
        core::DB_Load(g);
        view.MousePointer = 0;
        view.SSTab1Tab = 0;
        view.Label2 = "ACHTUNG UPDATE-FEHLER!";
        g.refreshView();
        return ImportOutcome::Failed;
    }
}

}  // namespace tolma::transfer
