#pragma once

#include <string>

#include "browse/list_form.h"
#include "print/record_report.h"

// The buttons "Satz" and "Liste" of the selection lists Frm_Auswahl_Betr and Frm_Auswahl_Pers.
namespace tolma::print {

// "Satz" (Command1(3)): after the printer dialog, the record report of the list's current row.
void printRecordOfRow(core::Globals& g, PrintState& d, browse::ListForm& form);

// "Liste" (Command1(4)): after the printer dialog, one line for each row of the list. The list
// stands again on its row afterwards.
void printList(core::Globals& g, PrintState& d, browse::ListForm& form);

// The format mask of `width` "@": right-aligned; a longer text stands whole.
std::string alignRight(const std::string& text, int width);

// The line of the list's current row, with its running number.
std::string listLine(const browse::ListForm& form, long number);

// A line longer than 116 characters goes on behind `indent` in pieces of 60.
void printListLine(core::Globals& g, PrintState& d, const std::string& line, double indent);

}  // namespace tolma::print
