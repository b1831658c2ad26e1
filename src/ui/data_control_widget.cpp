#include "ui/data_control_widget.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>

#include "browse/data_control.h"

namespace tolma::ui {

DataControlWidget::DataControlWidget(browse::DataControl& control, std::function<void()> moved,
                                     QWidget* parent)
    : QWidget(parent), control_(control), moved_(std::move(moved)), caption_(new QLabel(this)) {
    setObjectName(QString::fromStdString(control.name()));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    const char* arrows[] = {"|◀", "◀", "▶", "▶|"};
    const char* tips[] = {"erster Satz", "vorheriger Satz", "nächster Satz", "letzter Satz"};
    for (int i = 0; i < 4; ++i) {
        auto* b = new QToolButton(this);
        b->setText(QString::fromUtf8(arrows[i]));
        b->setToolTip(QString::fromUtf8(tips[i]));
        b->setAccessibleName(QString::fromUtf8(tips[i]));  // not its glyph
        b->setObjectName(objectName() + "_" + QString::number(i));
        b->setAutoRaise(true);
        connect(b, &QToolButton::clicked, this, [this, i] { move(i); });
        layout->addWidget(b);
        if (i == 1) layout->addWidget(caption_);
    }
    caption_->setObjectName(objectName() + "_Caption");
    caption_->setMinimumWidth(90);
    caption_->setAlignment(Qt::AlignCenter);
    caption_->setFrameShape(QFrame::StyledPanel);
    refresh();
}

void DataControlWidget::refresh() {
    caption_->setText(QString::fromStdString(control_.Caption));
}

void DataControlWidget::move(int which) {
    // A failure of the store must not cross the event loop; the form shows what it can.
    try {
        auto& rs = control_.Recordset();
        if (!rs.isSet() || rs.RecordCount() == 0) return;
        const long position = rs.AbsolutePosition();
        switch (which) {
            case 0:
                rs.MoveFirst();
                break;
            case 1:
                if (position > 0) rs.MovePrevious();
                break;
            case 2:
                if (position + 1 < rs.RecordCount()) rs.MoveNext();
                break;
            default:
                rs.MoveLast();
                break;
        }
    } catch (const std::exception&) {
    }
    if (moved_) moved_();
}

}  // namespace tolma::ui
