#pragma once

class QWidget;

namespace tolma::ui {

// The system gives sizes in twips, 1440 to the inch.
int twipsToPixels(const QWidget* widget, int twips);

}  // namespace tolma::ui
