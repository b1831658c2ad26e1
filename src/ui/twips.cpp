#include "ui/twips.h"

#include <QWidget>

namespace tolma::ui {

int twipsToPixels(const QWidget* widget, int twips) {
    const int dpi = widget ? widget->logicalDpiX() : 96;
    return (twips * dpi + 720) / 1440;
}

}  // namespace tolma::ui
