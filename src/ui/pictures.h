#pragma once

#include <QPixmap>

namespace tolma::ui {

// The two pictures of the start view, drawn by the program itself: a town hall with its trade
// office sign, and a file card with a stamp.
QPixmap startPicture(int width, int height);
QPixmap sidePicture(int width, int height);

}  // namespace tolma::ui
