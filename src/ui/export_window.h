#pragma once

#include <QWidget>
#include <array>

#include "core/globals.h"
#include "transfer/export_form.h"

class QCheckBox;
class QLineEdit;

namespace tolma::ui {

// Frm_Verwaltungsblock: the head values of an export and what goes out.
class ExportWindow : public QWidget {
    Q_OBJECT

  public:
    explicit ExportWindow(core::Globals& g, QWidget* parent = nullptr);
    transfer::VerwaltungsblockForm& form() { return form_; }

  signals:
    void closeRequested();
    void exported(const transfer::ExportResult& result);

  private:
    void command(int index);

    core::Globals& g_;
    transfer::VerwaltungsblockForm form_;
    std::array<QLineEdit*, 15> boxes_{};
    std::array<QCheckBox*, 4> checks_{};
};

}  // namespace tolma::ui
