#include "ui/info_window.h"

#include <QGroupBox>
#include <QLabel>
#include <QPushButton>
#include <QTextEdit>
#include <QVBoxLayout>

#include "core/version.h"
#include "ui/keyboard.h"
#include "ui/pictures.h"

namespace tolma::ui {

InfoWindow::InfoWindow(core::Globals& g, QWidget* parent)
    : QWidget(parent), g_(g), text_(new QTextEdit(this)) {
    setObjectName("Frm_Info");
    setWindowTitle("  TOLMA_3x_Access  (Info)");
    auto* outer = new QVBoxLayout(this);
    auto* frame = new QGroupBox("Info", this);
    frame->setObjectName("Frame1");
    auto* f = new QVBoxLayout(frame);
    auto* image = new QLabel(frame);
    image->setObjectName("Image1");
    image->setPixmap(sidePicture(110, 90));
    f->addWidget(image, 0, Qt::AlignHCenter);
    text_->setObjectName("RichTextBox1");
    text_->setReadOnly(true);
    text_->setAccessibleName("Programminformation");
    f->addWidget(text_, 1);
    auto* ok = new QPushButton("OK", frame);
    ok->setObjectName("Command1");
    connect(ok, &QPushButton::clicked, this, &InfoWindow::closeRequested);
    f->addWidget(ok, 0, Qt::AlignRight);
    outer->addWidget(frame);
    assignMnemonics(this);
    addCloseKeys(this, [this] { emit closeRequested(); });
    activate();
}

InfoWindow::~InfoWindow() {
    g_.forms.marks.menue_info = false;
}

void InfoWindow::activate() {
    const std::string text = std::string(core::kProductName) + "\r\n" + core::kCompanyName +
                             "\r\nVersion: " + std::to_string(core::kVersionMajor) + "." +
                             std::to_string(core::kVersionMinor) + "." +
                             std::to_string(core::kVersionRevision) + "\r\n" + core::kLegalLine +
                             "\r\n";
    text_->setPlainText(QString::fromStdString(text));
}

}  // namespace tolma::ui
