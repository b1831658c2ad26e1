#pragma once

#include <functional>
#include <initializer_list>
#include <utility>
#include <vector>

class QBoxLayout;
class QPushButton;
class QWidget;
class QString;

namespace tolma::ui {

// A row of the system's command buttons: each is named `name`_index, as the form's control
// array, and calls `click` with its index.
void addCommandButtons(QWidget* parent, QBoxLayout* row, const QString& name,
                       std::initializer_list<std::pair<int, const char*>> buttons,
                       const std::function<void(int)>& click);

// A row of buttons of the program's own windows, each under its own name, calling `click`.
struct NamedButton {
    const char* name;
    const char* caption;
    std::function<void()> click;
};
std::vector<QPushButton*> addNamedButtons(QWidget* parent, QBoxLayout* row,
                                          std::initializer_list<NamedButton> buttons);

}  // namespace tolma::ui
