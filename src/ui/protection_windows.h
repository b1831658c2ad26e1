#pragma once

#include <QDialog>

#include "core/globals.h"
#include "protection/retention.h"

class QDateEdit;
class QLabel;
class QPushButton;
class QTableWidget;

namespace tolma::ui {

// "Extras › Löschfristen...": the day before which deregistered businesses go (proposed from
// the period of the options), a check that shows what would go, and the deletion itself.
class RetentionWindow : public QDialog {
    Q_OBJECT

  public:
    explicit RetentionWindow(core::Globals& g, QWidget* parent = nullptr);
    // Works out and shows what a deletion before the chosen day would remove; changes nothing.
    void check();
    QTableWidget* businesses() const { return businesses_; }
    QTableWidget* persons() const { return persons_; }

  signals:
    void storeChanged();

  private:
    int chosenDay() const;
    void showPlan(const protection::DeletionPlan& plan);
    void remove();

    core::Globals& g_;
    QDateEdit* day_;
    QTableWidget* businesses_;
    QTableWidget* persons_;
    QLabel* summary_;
    QPushButton* delete_;
};

// "Extras › Protokoll...": every deletion and disclosure, newest first.
class ProtocolWindow : public QDialog {
    Q_OBJECT

  public:
    explicit ProtocolWindow(core::Globals& g, QWidget* parent = nullptr);
    QTableWidget* table() const { return table_; }

  private:
    QTableWidget* table_;
};

}  // namespace tolma::ui
