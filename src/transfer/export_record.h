#pragma once

#include <string>

#include "core/globals.h"
#include "store/recordset.h"
#include "transfer/export_scan.h"
#include "transfer/tml_writer.h"

namespace tolma::transfer {

// What the export writes to: the open file and the business being written.
struct ExportContext {
    core::Globals& g;
    TmlWriter& out;
    std::string betrNr;  // for log entries of characters the code page cannot hold
    // The file's ordered scans of the subordinate tables; none: opened for this business alone.
    ExportScans* scans = nullptr;

    // One line; a character that Windows-1252 cannot hold goes out as "?" and is logged.
    void line(const std::string& text);
};

// The plain fields of the current row: blanks, keys and (in the person's permits and craft
// cards) the person number left out, dates in the file's form, text cleaned.
void TML_Exp_Felder(ExportContext& ctx, store::Recordset& table);

// Everything of the current business of the export's selection (g.rs_betrieb) between its
// <betrieb> and </betrieb>: keys, fields, further reasons, addresses, activities, craft
// cards, permits and persons.
void TML_Exp_2_Tabellen(ExportContext& ctx, const std::string& betrNr,
                        const std::string& betrHistNr);

}  // namespace tolma::transfer
