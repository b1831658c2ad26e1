#include <QApplication>

#include "app/program.h"
#include "core/association.h"
#include "core/program_paths.h"
#include "core/version.h"

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(tolma::core::kProductName);
    QApplication::setApplicationVersion(tolma::core::kVersionText);
    tolma::app::loadGermanQtTranslations(app);

    tolma::app::Program program;
    auto& g = program.globals();
    // The one command-line argument is a transfer file, passed on as it stands.
    const QStringList args = QApplication::arguments();
    if (args.size() > 1) g.commandLine = args.mid(1).join(' ').toStdString();

    const auto paths = tolma::core::resolvePaths(tolma::core::executableDir(), std::nullopt);
    g.paths.dataDir = paths.dataDir;
    program.start(paths.home,
                  tolma::core::xdgFileAssociationCheck(tolma::core::executableDir() / "tolma"));
    return QApplication::exec();
}
