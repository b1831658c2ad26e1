#include "ui/command_buttons.h"

#include <QBoxLayout>
#include <QPushButton>

namespace tolma::ui {

void addCommandButtons(QWidget* parent, QBoxLayout* row, const QString& name,
                       std::initializer_list<std::pair<int, const char*>> buttons,
                       const std::function<void(int)>& click) {
    for (const auto& [index, caption] : buttons) {
        auto* b = new QPushButton(QString::fromUtf8(caption), parent);
        b->setObjectName(QString("%1_%2").arg(name).arg(index));
        QObject::connect(b, &QPushButton::clicked, parent,
                         [click, index = index] { click(index); });
        row->addWidget(b);
    }
}

}  // namespace tolma::ui
