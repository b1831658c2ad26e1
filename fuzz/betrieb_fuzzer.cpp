// One <betrieb> element of a transfer file, as the reading thread cuts it out of a block
// ("<betrieb>" up to and with "</betrieb>"), cut into its lines and stored as the import stores
// it, once for a store kept by business and once for one kept by notification. Whatever the
// element holds, the import logs it or stores it; nothing escapes and nothing reads outside
// its memory. Each element is stored in a transaction that is rolled back, so that every input
// meets the same empty store.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/dialogs.h"
#include "core/globals.h"
#include "core/start.h"
#include "model/codepage.h"
#include "store/connection.h"
#include "transfer/element_reader.h"
#include "transfer/import_context.h"
#include "transfer/record_import.h"

using namespace tolma;

namespace {

class NoDialogs : public core::Dialogs {
  public:
    int MsgBox(const std::string&, int style, const std::string&) override {
        return core::msg::hasYesNo(style) ? core::msg::vbNo : core::msg::vbOK;
    }
    void openInViewer(const std::string&) override {}
};

struct Program {
    std::filesystem::path home;
    NoDialogs dialogs;
    core::Globals g;
    std::vector<core::LogState::LoggedEntry> log;

    Program() {
        std::string dir = (std::filesystem::temp_directory_path() / "tolma-fuzz-XXXXXX").string();
        if (!::mkdtemp(dir.data())) std::abort();
        home = dir;
        g.paths.dataDir = TOLMA_STORE_DIR;
        g.dialogs = &dialogs;
        g.clock = [] { return std::time_t(1700000000); };
        core::A_Start(g, home / "home");
        if (!g.stores.db_daten.isSet()) std::abort();
        g.log.logCapture = &log;
    }
    ~Program() {
        std::error_code ignored;
        std::filesystem::remove_all(home, ignored);
    }
};

Program& program() {
    static auto* p = [] {
        auto* made = new Program();
        std::atexit([] { delete &program(); });
        return made;
    }();
    return *p;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Program& p = program();
    // The reader hands on UTF-8: a file that is no valid UTF-8 is read as Windows-1252.
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    std::string text;
    if (model::isUtf8WithNonAscii(bytes))
        text = bytes;
    else
        model::appendCp1252AsUtf8(text, bytes);

    const transfer::ReadElement element = transfer::readElement(text);
    for (const char* struktur : {core::kBetriebsbezogen, core::kMeldungsbezogen}) {
        transfer::ImportContext ctx(p.g);
        ctx.akt_struktur = struktur;
        store::Connection& c = *p.g.stores.db_daten.connection();
        c.beginBatch();
        transfer::Upd_2_Read(ctx, element);
        c.rollbackBatch();
        p.log.clear();
    }
    return 0;
}
