#include "bench_store.h"

#include <fstream>
#include <iostream>

#include "browse/data_controls.h"
#include "core/start.h"
#include "tml_generator.h"
#include "transfer/import_driver.h"

namespace tolma::bench {

int AnswerYes::MsgBox(const std::string& text, int style, const std::string& title) {
    if (core::msg::hasYesNo(style)) return core::msg::vbYes;
    if (echo) std::cout << "  " << title << ": " << text << "\n";
    return core::msg::vbOK;
}

void AnswerYes::openInViewer(const std::string& path) {
    std::cout << "  Fehlerprotokoll: " << path << "\n";
}

std::filesystem::path freshDirectory(const std::string& name) {
    const auto dir = std::filesystem::temp_directory_path() / name;
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    return dir;
}

double writeFile(const std::filesystem::path& file, long businesses) {
    return writeFile(file, businesses, 0, 1);
}

double writeFile(const std::filesystem::path& file, long businesses, long changedEvery,
                 unsigned changeRound) {
    {
        std::ofstream out(file, std::ios::binary);
        GeneratorOptions options;
        options.businesses = businesses;
        options.changedEvery = changedEvery;
        options.changeRound = changeRound;
        writeTransferFile(out, options);
    }
    return static_cast<double>(std::filesystem::file_size(file)) / 1e6;
}

void startProgram(core::Globals& g, AnswerYes& dialogs, const std::filesystem::path& home) {
    browse::attachDataControls(g);
    g.dialogs = &dialogs;
    g.paths.dataDir = TOLMA_STORE_DIR;
    core::A_Start(g, home);
}

void startWithBusinesses(core::Globals& g, AnswerYes& dialogs, const std::string& name,
                         long businesses) {
    const auto dir = freshDirectory(name);
    const auto file = dir / "bench.tml";
    writeFile(file, businesses);
    startProgram(g, dialogs, dir / "home");
    transfer::Upd_1_Start(g, file.string());
    std::filesystem::remove(file);
}

}  // namespace tolma::bench
