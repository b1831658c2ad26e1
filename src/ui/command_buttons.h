#pragma once

#include <functional>
#include <initializer_list>
#include <utility>

class QBoxLayout;
class QWidget;
class QString;

namespace tolma::ui {

// A row of the system's command buttons: each is named `name`_index, as the form's control
// array, and calls `click` with its index.
void addCommandButtons(QWidget* parent, QBoxLayout* row, const QString& name,
                       std::initializer_list<std::pair<int, const char*>> buttons,
                       const std::function<void(int)>& click);

}  // namespace tolma::ui
