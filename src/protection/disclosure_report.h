#pragma once

#include <string>
#include <vector>

#include "protection/disclosure.h"

namespace tolma::print {
class Printer;
}

namespace tolma::protection {

// The disclosure on paper: the heading with its date, each section with its rows, a field's
// name on the left and its value on the right (wrapped where it is long), "Seite N" at the foot
// of every page. A line never runs over the foot; a row's title stays with its first line.
void printDisclosure(print::Printer& p, const Disclosure& d);

// A text cut into lines no wider than `width` twips on the printer, at blanks where it can,
// and at its own line breaks.
std::vector<std::string> wrapText(const print::Printer& p, const std::string& text, double width);

}  // namespace tolma::protection
