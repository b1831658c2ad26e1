#pragma once

#include <string>
#include <vector>

// The record view's tabs, frames and fields as data: the form is built from these tables.
namespace tolma::ui::layout {

// How many lines a box shows: one; two, into which a long value wraps; or as many as its frame
// gives a memo.
enum class Lines { one, two, memo };

// A text box: bound to a field of a data control, or filled by code from the view's state.
struct FieldDef {
    const char* name;     // objectName, the system's control name with "_" before the index
    const char* control;  // data control, or nullptr for a box that code fills
    const char* field;    // bound field, or the state's box for code-filled ones
    const char* label;    // caption beside it; nullptr for a hidden raw-code box
    const char* toolTip = nullptr;
    Lines lines = Lines::one;
};

struct FrameDef {
    const char* name;
    const char* caption;      // nullptr: no caption
    const char* dataControl;  // shown beside "Anzahl Datensätze:", or nullptr
    std::vector<FieldDef> fields;
    const char* button = nullptr;  // objectName of a button in the frame
    const char* buttonCaption = nullptr;
    std::vector<FrameDef> inner = {};
    int columns = 0;  // pairs of label and box per row; 0: two for more than four fields, else one
};

struct TabDef {
    const char* caption;
    std::vector<FieldDef> loose;  // fields directly on the tab
    std::vector<FrameDef> frames;
};

// Room between boxes and frames, in twips. Tight, so that the fullest tab ("Personen", with
// "Personen anzeigen" at its foot) stands whole under the heading in 1024×700 pixels of window:
// what a 1024×768 screen leaves under a title bar and a desktop's panel.
struct Spacing {
    int rowGap;       // between two rows of boxes
    int columnGap;    // between a box and the label of the next pair
    int frameMargin;  // inside a frame: left, right, bottom
    int frameTop;     // inside a frame, below its caption
    int frameGap;     // between frames, and around the tabs' pages
};
const Spacing& spacing();

const std::vector<FieldDef>& headingFields();
const std::vector<TabDef>& tabs();

}  // namespace tolma::ui::layout
