#include "ui/export_window.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "ui/command_buttons.h"
#include "ui/keyboard.h"

namespace tolma::ui {

ExportWindow::ExportWindow(core::Globals& g, QWidget* parent)
    : QWidget(parent), g_(g), form_(transfer::Frm_Verwaltungsblock_Load(g)) {
    setObjectName("Frm_Verwaltungsblock");
    setWindowTitle(transfer::kExportCaption);
    auto* outer = new QVBoxLayout(this);
    auto* title = new QLabel(QString(transfer::kExportTitleLabel).remove('&'), this);
    QFont bold = title->font();
    bold.setBold(true);
    bold.setPointSizeF(bold.pointSizeF() * 1.2);
    title->setFont(bold);
    outer->addWidget(title);

    auto* head = new QGroupBox(this);  // the head values stand in a frame without caption
    auto* grid = new QGridLayout(head);
    for (size_t i = 0; i < boxes_.size(); ++i) {
        const auto& box = form_.Text1[i];
        auto* edit = new QLineEdit(QString::fromStdString(box.text), head);
        edit->setObjectName(QString("Text1_%1").arg(i));
        // Grey boxes are the system's, white ones the clerk's.
        if (box.grey) {
            edit->setReadOnly(true);
            edit->setStyleSheet(i == 10 && form_.Text1_10_red ? "background: #d02020; color: white;"
                                                              : "background: #d8d8d8;");
        }
        auto* label = new QLabel(QString::fromUtf8(box.label.c_str()), head);
        label->setBuddy(edit);
        const int row = static_cast<int>(i % 8), column = static_cast<int>(i / 8) * 2;
        grid->addWidget(label, row, column, Qt::AlignRight);
        grid->addWidget(edit, row, column + 1);
        boxes_[i] = edit;
    }
    outer->addWidget(head);

    auto* options = new QGroupBox("Export-Optionen", this);
    auto* o = new QVBoxLayout(options);
    for (int i = 3; i >= 0; --i) {
        const auto& c = form_.Check1[static_cast<size_t>(i)];
        auto* check = new QCheckBox(QString::fromStdString(c.caption), options);
        check->setObjectName(QString("Check1_%1").arg(i));
        check->setChecked(c.value == 1);
        check->setEnabled(c.enabled);
        check->setVisible(c.visible);
        o->addWidget(check);
        checks_[static_cast<size_t>(i)] = check;
    }
    outer->addWidget(options);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    addCommandButtons(this, buttons, "Command1", {{0, "OK"}, {1, "Abbrechen"}},
                      [this](int i) { command(i); });
    outer->addLayout(buttons);
    outer->addStretch(1);
    assignMnemonics(this);
    addCloseKeys(this, [this] { command(1); });
}

void ExportWindow::command(int index) {
    for (size_t i = 0; i < boxes_.size(); ++i)
        form_.Text1[i].text = boxes_[i]->text().toStdString();
    for (size_t i = 0; i < checks_.size(); ++i)
        form_.Check1[i].value = checks_[i]->isChecked() ? 1 : 0;
    const transfer::ExportResult result =
        transfer::Frm_Verwaltungsblock_Command1_Click(g_, form_, index);
    if (index == 0) emit exported(result);
    emit closeRequested();
}

}  // namespace tolma::ui
