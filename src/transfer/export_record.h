#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/globals.h"
#include "transfer/export_scan.h"
#include "transfer/tml_writer.h"

namespace tolma::transfer {

// How the fields of one list of columns are written: the tags, and which are left out or are
// dates. Worked out once per list, not per row.
struct FieldPlan {
    const void* source = nullptr;  // the list of names it was made for
    bool personSub = false;
    struct Column {
        bool written = true;
        bool date = false;
        std::string open, close;
    };
    std::vector<Column> columns;
};

// What the export writes to: the open file and the business being written.
struct ExportContext {
    ExportContext(core::Globals& globals, TmlWriter& file) : g(globals), out(file) {}

    core::Globals& g;
    TmlWriter& out;
    std::string betrNr;  // for log entries of characters the code page cannot hold
    // The file's ordered scans of the subordinate tables; none: opened for this business alone.
    ExportScans* scans = nullptr;

    std::vector<std::unique_ptr<FieldPlan>> plans;
    std::string lineBuffer;  // a field's line, built without a string per piece

    // One line; a character that Windows-1252 cannot hold goes out as "?" and is logged.
    void line(std::string_view text);
    // The plan for the names of `source` (kept while the export writes its file).
    const FieldPlan& plan(const void* source, const std::vector<std::string>& names,
                          bool personSub);
};

// Everything of one business of the export's selection between its <betrieb> and </betrieb>:
// keys, fields, further reasons, addresses, activities, craft cards, permits and persons.
void TML_Exp_2_Tabellen(ExportContext& ctx, const SelectionScan& selection,
                        const KeyedScan::Row& business);

}  // namespace tolma::transfer
