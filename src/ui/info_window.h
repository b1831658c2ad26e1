#pragma once

#include <QWidget>

#include "core/globals.h"

class QTextEdit;

namespace tolma::ui {

// Frm_Info: the program's version record.
class InfoWindow : public QWidget {
    Q_OBJECT

  public:
    explicit InfoWindow(core::Globals& g, QWidget* parent = nullptr);
    ~InfoWindow() override;
    // Form_Activate: the text is built anew.
    void activate();

  signals:
    void closeRequested();

  private:
    core::Globals& g_;
    QTextEdit* text_;
};

}  // namespace tolma::ui
