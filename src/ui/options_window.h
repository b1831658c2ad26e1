#pragma once

#include <QWidget>

#include "core/globals.h"
#include "options/options_form.h"

class QCheckBox;
class QGroupBox;
class QLineEdit;
class QListWidget;
class QPushButton;
class QVBoxLayout;

namespace tolma::ui {

// Frm_Optionen: the two data stores, the error log and the municipality filter.
class OptionsWindow : public QWidget {
    Q_OBJECT

  public:
    explicit OptionsWindow(core::Globals& g, QWidget* parent = nullptr);
    ~OptionsWindow() override;

    options::OptionsForm& form() { return form_; }
    // Form_Activate, as each activation of the window runs it.
    void activate();
    // Shows the form's state: enabled frames, paths, the list and its selection.
    void refreshFromCore();

  signals:
    void closeRequested();
    void storeChanged();

  private:
    template <class Handler>
    void run(Handler&& handler);
    void takeSelection();
    QVBoxLayout* buildStores();
    QGroupBox* buildStoreFrame(int index);
    QGroupBox* buildRunsFrame();
    QGroupBox* buildRetentionFrame();
    QGroupBox* buildIndexFrame();
    QGroupBox* buildCopyFrame();
    void copyStore();
    QGroupBox* buildFilter();

    core::Globals& g_;
    options::OptionsForm form_;
    QGroupBox* frames_[2];
    QLineEdit* paths_[2];
    QCheckBox* check1_;
    QListWidget* list1_;
    QLineEdit* text7_;
    QPushButton* filterButtons_[3];  // Command7, Command8, Command9
};

}  // namespace tolma::ui
