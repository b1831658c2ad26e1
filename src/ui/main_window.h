#pragma once

#include <QMainWindow>
#include <functional>
#include <map>
#include <memory>

#include "core/globals.h"

class QAction;
class QMdiArea;
class QMdiSubWindow;

namespace tolma::store {
class Connection;
}

namespace tolma::ui {

class ListWindow;

class RecordView;

// MDIForm1: the main window with the menu that is the way into every function, and the
// record view Frm_Start as its first child. While it lives it is the core's shell: it redraws
// from the core's state and opens and closes the forms the routines name.
class MainWindow : public QMainWindow, public core::Shell {
    Q_OBJECT

  public:
    static constexpr int kWidthTwips = 12165;
    static constexpr int kHeightTwips = 8940;

    explicit MainWindow(core::Globals& g, QWidget* parent = nullptr);
    ~MainWindow() override;

    QMdiArea* mdiArea() const { return mdiArea_; }
    RecordView* recordView() const { return recordView_; }
    QAction* menuEntry(const std::string& name) const;

    // Shows the core's state: caption, enabled, check marks and the record view.
    void refreshFromCore();
    void refreshView() override { refreshFromCore(); }
    void unloadForm(const std::string& name) override;
    // Only the options are shown so, once the form that asks for them has gone.
    void showForm(const std::string& name) override;
    // The handler of a menu entry, by its name.
    void trigger(const std::string& name);

    // The size the window keeps: the designed one, grown (up to the screen's room) where a tab
    // of the record view could not show all its controls at today's font sizes.
    QSize keptSize() const { return keptSize_; }
    // The designed size does not fit the screen: the window is shown maximized.
    bool needsWholeScreen() const { return wholeScreen_; }
    void fitRecordView();

  protected:
    void closeEvent(QCloseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

  private:
    QString caption() const;
    void buildMenu();
    void openList(bool persons);
    void openWalk();
    void openExport();
    void openOptions();
    void showOptionsWindow();
    void openInfo();
    void openEvaluation();
    void openSearch();
    void openDisclosure();
    // A server store: notes in the status line what other workstations changed and whether
    // the server went away; greys what the login may not do.
    void watchStore();
    void note(const QString& text);
    // "Neu laden": the store opened again, the open lists and the record view read anew.
    void reload();
    QMdiSubWindow* addChild(QWidget* widget, const QSize& size);
    void fitListWindow(QMdiSubWindow* window, ListWindow* list);

    core::Globals& g_;
    QMdiArea* mdiArea_;
    RecordView* recordView_;
    QMdiSubWindow* startWindow_;
    std::map<std::string, QAction*> entries_;
    std::map<std::string, QMdiSubWindow*> children_;  // open forms by their names
    bool closing_ = false;
    std::weak_ptr<store::Connection> watched_;  // the connection that listens for changes
    bool lostConnection_ = false;
    QSize keptSize_;
    bool wholeScreen_ = false;
};

}  // namespace tolma::ui
