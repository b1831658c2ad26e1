#pragma once

#include "core/dialogs.h"

class QWidget;

namespace tolma::ui {

// Message boxes of the system's styles as Qt dialogs; the log opens in the desktop's viewer,
// or in a read-only window of our own where there is none.
class QtDialogs : public core::Dialogs {
  public:
    explicit QtDialogs(QWidget* parent) : parent_(parent) {}
    // The window the dialogs stand over; the main window is built after the dialogs, which
    // answer its start already.
    void setParentWidget(QWidget* parent) { parent_ = parent; }
    int MsgBox(const std::string& text, int style, const std::string& title) override;
    void openInViewer(const std::string& path) override;
    std::string chooseFile(const std::string& startDirectory, const std::string& filter,
                           int filterIndex) override;
    std::string chooseSaveFile(const std::string& title, const std::string& proposed,
                               const std::string& filter) override;
    std::optional<std::string> askPassword(const std::string& prompt) override;

  private:
    QWidget* parent_;
};

}  // namespace tolma::ui
