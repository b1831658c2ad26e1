#pragma once

#include <string>
#include <vector>

#include "browse/data_control.h"
#include "core/globals.h"

// The selection lists Frm_Auswahl_Betr and Frm_Auswahl_Pers: their state and handlers.
namespace tolma::browse {

struct ListColumn {
    const char* caption;
    const char* field;       // the grid's data field
    const char* expression;  // search and sort expression; nullptr: none
    int maxLength;           // of its search box
    const char* label;       // of its search box
};

// One list form: its data control "data", the search boxes, the counter, the grid's place.
struct ListForm {
    explicit ListForm(bool persons) : persons(persons), Text1(persons ? 7 : 6) {}
    bool persons;
    DataControl data{"data"};
    std::vector<std::string> Text1;
    std::string Label1;
    bool Frame1Visible = true;  // hidden only on the walk to a legal person's representatives
    int option = 0;             // Option1 of the business list
    int gridColumn = 0;
    int MousePointer = 0;

    const std::vector<ListColumn>& columns() const;
    const char* name() const { return persons ? "Frm_Auswahl_Pers" : "Frm_Auswahl_Betr"; }
};

const std::vector<ListColumn>& businessColumns();
const std::vector<ListColumn>& personColumns();

// The business list's query texts, composed from their pieces.
enum class BusinessQuery { Menu, Alle, Aktuelle, Abgemeldete };
std::string businessListQuery(BusinessQuery which, bool filterOn, const std::string& kette);
// The chain of municipality terms from the marked rows of aktuelleGemeinde.
std::string municipalityChain(core::Globals& g, bool trailingBlank, bool* anyMarked = nullptr);
// The person list's query; `sort` empty for the menu's order, else an expression and direction.
std::string personListQuery(const std::string& gemFilterText, const std::string& sort);

// Opening from the menu; false when the list is not shown (already open, or empty).
bool menue_suchen_betrieb(core::Globals& g, ListForm& form);
bool menue_suchen_person(core::Globals& g, ListForm& form);
// Shows a found business in the record view the way the lists' OK does: on its first tab, or
// for a person on the persons tab, on the person of number `persNr` where the tab lists it.
void showFoundBusiness(core::Globals& g, const std::string& gemKz, const std::string& betrNr,
                       const std::string& betrHistNr, bool person, const std::string& persNr = "");

// The business list of the states an evaluation counted, each named by number and history
// number; false when none of them is in the store any more.
bool openBusinessListOf(core::Globals& g, ListForm& form,
                        const std::vector<std::pair<std::string, std::string>>& states);
void Option1_Click(core::Globals& g, ListForm& form, int index);
// Typing: jumps to the first row that begins with the box's text.
void Text1_Change(core::Globals& g, ListForm& form, int index);
// Clicking a search box: the list sorted by its column.
void Text1_Click(core::Globals& g, ListForm& form, int index);
// Each activation of the form empties the boxes.
void Form_Activate(core::Globals& g, ListForm& form);
// The counter as the grid's place changes.
void updateCounter(ListForm& form);
// Reads on behind the first screen of a long list for about this long; when the list is whole,
// the counter says its count. True once it is whole.
bool readAhead(ListForm& form, int milliseconds);
// "OK" 0, "Abbrechen" 1, "Satz" 3, "Liste" 4; true when the form is to close.
bool Command1_Click(core::Globals& g, ListForm& form, int index);
// The form goes: its mark is cleared.
void Form_Unload(core::Globals& g, const ListForm& form);

// The walk of the record view to the representatives of a legal person, and back.
bool Frm_Start_Command1_Click(core::Globals& g, ListForm& form);
void Frm_Start_Command3_Click(core::Globals& g);

}  // namespace tolma::browse
