#include "ui/qt_dialogs.h"

#include <QInputDialog>
#include <QLineEdit>

#include <QDesktopServices>
#include <QDialog>
#include <QFile>
#include <QFileDialog>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStringDecoder>
#include <QUrl>
#include <QVBoxLayout>

namespace tolma::ui {

int QtDialogs::MsgBox(const std::string& text, int style, const std::string& title) {
    QMessageBox box(parent_);
    box.setWindowTitle(
        QString::fromStdString(title.empty() ? std::string("TOLMA_4x_Access") : title));
    box.setText(QString::fromStdString(text));
    switch (style & 0xF0) {
        case core::msg::vbCritical:
            box.setIcon(QMessageBox::Critical);
            break;
        case 32:
            box.setIcon(QMessageBox::Question);
            break;
        case core::msg::vbExclamation:
            box.setIcon(QMessageBox::Warning);
            break;
        case core::msg::vbInformation:
            box.setIcon(QMessageBox::Information);
            break;
        default:
            break;
    }
    if (core::msg::hasYesNo(style)) {
        auto* yes = box.addButton("&Ja", QMessageBox::YesRole);
        auto* no = box.addButton("&Nein", QMessageBox::NoRole);
        // Enter gives the default: "Ja", unless the style names the second button.
        box.setDefaultButton((style & 0x300) == core::msg::vbDefaultButton2 ? no : yes);
        box.setEscapeButton(static_cast<QAbstractButton*>(no));
        box.exec();
        return box.clickedButton() == static_cast<QAbstractButton*>(yes) ? core::msg::vbYes
                                                                         : core::msg::vbNo;
    }
    box.addButton("OK", QMessageBox::AcceptRole);
    box.exec();
    return core::msg::vbOK;
}

namespace {

// "Text|pattern|Text|pattern|" of the old platform as Qt's "Text (pattern)" each.
QStringList nameFilters(const std::string& filter) {
    const QStringList parts = QString::fromStdString(filter).split('|', Qt::SkipEmptyParts);
    QStringList filters;
    for (int i = 0; i + 1 < parts.size(); i += 2) {
        QString name = parts[i].trimmed();
        if (!name.contains('(')) name += " (" + parts[i + 1] + ")";
        filters << name;
    }
    return filters;
}

}  // namespace

std::string QtDialogs::chooseFile(const std::string& startDirectory, const std::string& filter,
                                  int filterIndex) {
    const QStringList filters = nameFilters(filter);
    QFileDialog dialog(parent_, QString(), QString::fromStdString(startDirectory));
    dialog.setFileMode(QFileDialog::ExistingFile);
    dialog.setNameFilters(filters);
    if (filterIndex >= 1 && filterIndex <= filters.size())
        dialog.selectNameFilter(filters[filterIndex - 1]);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return {};
    return dialog.selectedFiles().first().toStdString();
}

std::string QtDialogs::chooseSaveFile(const std::string& title, const std::string& proposed,
                                      const std::string& filter) {
    return QFileDialog::getSaveFileName(parent_, QString::fromStdString(title),
                                        QString::fromStdString(proposed),
                                        nameFilters(filter).join(";;"))
        .toStdString();
}

std::optional<std::string> QtDialogs::askPassword(const std::string& prompt) {
    bool ok = false;
    const QString password =
        QInputDialog::getText(parent_, "Anmeldung am Datenbankserver",
                              QString::fromStdString(prompt), QLineEdit::Password, QString(), &ok);
    if (!ok) return std::nullopt;
    return password.toStdString();
}

void QtDialogs::openInViewer(const std::string& path) {
    const QString file = QString::fromStdString(path);
    if (QDesktopServices::openUrl(QUrl::fromLocalFile(file))) return;
    auto* viewer = new QDialog(parent_);
    viewer->setAttribute(Qt::WA_DeleteOnClose);
    viewer->setWindowTitle(file);
    auto* text = new QPlainTextEdit(viewer);
    text->setReadOnly(true);
    QFile f(file);
    if (f.open(QIODevice::ReadOnly)) {
        auto decode = QStringDecoder(QStringDecoder::Latin1);
        text->setPlainText(decode(f.readAll()));
    }
    auto* layout = new QVBoxLayout(viewer);
    layout->addWidget(text);
    viewer->resize(800, 600);
    viewer->show();
}

}  // namespace tolma::ui
