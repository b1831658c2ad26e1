#pragma once

#include <cstdint>
#include <string>

#include "core/globals.h"
#include "print/printer.h"

// The record report: everything the store holds about one business state or one person, every
// field under its database name, in two columns. The list report shares its line printer.
namespace tolma::print {

// The printer dialog CommonDialog1 and the present printer ("Printer"). The desktop program
// asks with the print dialog; the command line prints to a PDF file without asking.
class PrinterSource {
  public:
    virtual ~PrinterSource() = default;
    // ShowPrinter with CancelError: 0 when a printer was chosen, which is then the present
    // printer; kDialogCancelled when the clerk cancelled; another number when it failed.
    virtual int ShowPrinter(const std::string& title) = 0;
    // The printer chosen last, or the system's default printer.
    virtual Printer& present() = 0;
};
inline constexpr int kDialogCancelled = 32755;

// Where the next field of a record goes: "vorne" the left column, "mitte" the right one.
enum class ColumnMark { vorne, mitte };

// The printing's shared values. They outlive a report: a page break of one report may still
// read the column mark and saved X that an earlier one left.
struct PrintState {
    PrinterSource* source = nullptr;
    std::int16_t druck_ok = -1;  // -1 healthy, 0 after a printer failure
    std::string druck_kopf;      // the page head up to its page number
    double druck_schriftgroesse = 0;
    std::string druck_schriftname;
    ColumnMark spalte = ColumnMark::vorne;
    double savedY = 0, savedX = 0;  // position at the start of the last field
    int feldIndex = 0;
    std::string feldText;  // the last field's text; p-funktion may print it again
    std::int16_t fehlerort = 0;
    // Check marks of the print menu's entries "aktueller Betrieb" and "aktuelle Person".
    bool menue_druck_betrieb = false;
    bool menue_druck_Person = false;

    Printer& printer() const;
};

// Asks for the printer. Returns 0 for a chosen printer and a positive number otherwise; a
// failure other than the cancel is told with a box under `title`.
std::int16_t Druck_Dialog(core::Globals& g, PrintState& d, const std::string& title);

// Prints one line, after a page break with its head when the line would start less than 300
// twips above the bottom. After a printer failure it only shows the empty "Druckerfehler!" box.
void DS_Druck_Zeile(core::Globals& g, PrintState& d, const std::string& text);

// Prints a business state ("Betrieb", `persNr` empty) or one of its persons ("Person").
void DS_Druck_1(core::Globals& g, PrintState& d, const std::string& kind, const std::string& betrNr,
                const std::string& betrHistNr, const std::string& persNr);

// Prints the rows of a recordset in two columns under "Tabellenname"; with a `number` other
// than 0 only the current row, headed by that number where it is 1 or more.
void DS_Druck_2(core::Globals& g, PrintState& d, store::Recordset& rs, const std::string& tableName,
                int number);

// What a person does in a business, by its p-funktion (1 to 4); empty for any other value.
std::string functionName(const store::Variant& value);

// The text printed behind a field's label. `previous` is the text of the field before, which a
// p-funktion of no known value prints again.
std::string reportFieldText(core::Globals& g, const std::string& name, int type,
                            const store::Variant& value, const std::string& previous);

}  // namespace tolma::print
