#pragma once

#include <string>

#include "browse/data_controls.h"
#include "core/globals.h"

// The record view Frm_Start: loading one business into its data controls, and the handlers
// that its data controls raise when they move.
namespace tolma::browse {

// Gives every data control of the record view its Reposition handler. Called once, before
// the stores are bound.
void installRepositionHandlers(core::Globals& g);

// Loads one business state with all that hangs on it into the data controls.
void DB_Load_DATA(core::Globals& g, const std::string& gemKz, const std::string& betrNr,
                  const std::string& betrHistNr, const std::string& text);

// The handlers, also callable on their own.
void DATA_BETR_Reposition(core::Globals& g);
void DATA_TAET_Reposition(core::Globals& g);
void DATA_PERS_Reposition(core::Globals& g);

// "Satz n von m", or "0" without rows.
std::string counterCaption(const store::Recordset& rs);

// A tab of SSTab1 chosen, by the clerk or by code.
void SSTab1_Click(core::Globals& g, int tab);
inline constexpr const char* kTabLabels[6] = {
    "Anzeige: Meldedaten",
    "Anzeige: Adressen",
    "Anzeige: Tätigkeiten/Handwerkskarten",
    "Anzeige: Personendaten (nat. und jur. Person)",
    "Anzeige: Adressen/Aufenhaltserl./Führungsz.",
    "Anzeige: Handwerkskarten/Erlaubnisse",
};

// A key pressed while the record view has the focus.
void Form_KeyPress(core::Globals& g, int key);

}  // namespace tolma::browse
