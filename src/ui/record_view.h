#pragma once

#include <QWidget>
#include <string>
#include <vector>

#include "browse/data_control.h"
#include "core/globals.h"

class QGridLayout;
class QGroupBox;
class QHBoxLayout;
class QLabel;
class QProgressBar;
class QPushButton;
class QTabWidget;

namespace tolma::ui {

class DataControlWidget;
struct FrameBuild;

// Frm_Start: the record view of one business and its persons, with the start view's pictures
// and the progress of long work. It holds no data of its own: every box shows a field of a
// data control or a text that the core fills.
class RecordView : public QWidget {
    Q_OBJECT

  public:
    static constexpr int kWidthTwips = 12120;
    static constexpr int kHeightTwips = 8850;

    explicit RecordView(core::Globals& g, QWidget* parent = nullptr);

    // Shows the core's state: bound fields, decoded boxes, counters, label, frames, progress.
    void refreshFromCore();
    // How much wider and higher the view must be so that the tab in view needs no scroll bars.
    QSize missingRoom() const;
    // The same for every tab, measured with the tabs in view as a person tab shows them, also
    // while the start picture stands: a page out of view has no size of its own to measure.
    QSize missingRoomInView();
    // Gives the keyboard to the tabs, where a business is shown.
    void focusTabs();

  signals:
    void personenAnzeigen();  // Command1 of the legal person's frame
    void zurueck();           // Command3

  protected:
    void keyPressEvent(QKeyEvent* event) override;

  private:
    struct Binding {
        QWidget* widget;
        browse::DataControl* control;  // nullptr: a box that code fills
        std::string field;
        const std::string* text = nullptr;
    };

    QHBoxLayout* buildTop();
    QHBoxLayout* buildBottom();
    QWidget* buildTab(int index);
    QGroupBox* buildFrame(const FrameBuild& frame);
    void addField(QGridLayout* grid, int& row, int& column, int columns, const void* def);
    void moved();

    core::Globals& g_;
    std::vector<Binding> bindings_;
    std::vector<DataControlWidget*> controls_;
    QLabel* label2_;
    QLabel* image1_;
    QLabel* image2_;
    QGroupBox* frameUeberschrift_;
    QTabWidget* tabs_;
    QGroupBox* frameAnzahl_;
    DataControlWidget* dataPers_;
    QPushButton* command3_;
    QProgressBar* progress_;
    bool refreshing_ = false;
    bool waitCursor_ = false;
};

}  // namespace tolma::ui
