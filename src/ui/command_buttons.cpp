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

std::vector<QPushButton*> addNamedButtons(QWidget* parent, QBoxLayout* row,
                                          std::initializer_list<NamedButton> buttons) {
    std::vector<QPushButton*> made;
    for (const NamedButton& button : buttons) {
        auto* b = new QPushButton(QString::fromUtf8(button.caption), parent);
        b->setObjectName(button.name);
        QObject::connect(b, &QPushButton::clicked, parent, button.click);
        row->addWidget(b);
        made.push_back(b);
    }
    return made;
}

}  // namespace tolma::ui
