#pragma once

#include <array>
#include <string>
#include <vector>

#include "core/globals.h"

namespace tolma::transfer {

// Frm_Verwaltungsblock: the head values of an export and the choice of what goes out.
struct VerwaltungsblockForm {
    struct Box {
        std::string label;
        std::string element;  // the head element it fills; empty for the count, which is only shown
        std::string text;
        bool grey = false;  // filled by the system; white ones are the clerk's
    };
    struct Check {
        std::string caption;
        bool visible = false;
        bool enabled = true;
        int value = 0;
    };
    std::array<Box, 15> Text1;
    bool Text1_10_red = false;  // "keine Sätze vorhanden!"
    std::array<Check, 4> Check1;
};

inline constexpr const char* kExportCaption = " Export - Verwaltungsblock";
inline constexpr const char* kExportTitleLabel = "Daten-&Export (ACCESS->TML)";
inline constexpr const char* kKeyQuery =
    "SELECT betrieb.schluesselfeld From betrieb GROUP BY betrieb.schluesselfeld HAVING "
    "(betrieb.schluesselfeld<>'')";

// Form_Load: the defaults of the fifteen boxes, the count of businesses, the key option.
VerwaltungsblockForm Frm_Verwaltungsblock_Load(core::Globals& g);

// How an export ended, and the files it wrote (also those of a cancelled run).
struct ExportResult {
    enum class Outcome { Finished, Cancelled, Failed } outcome = Outcome::Finished;
    std::vector<std::string> files;
};

// Command1_Click: 0 "OK" exports, 1 "Abbrechen" closes the form.
ExportResult Frm_Verwaltungsblock_Command1_Click(core::Globals& g, VerwaltungsblockForm& form,
                                                 int index);

// Writes the selected businesses: the whole store in one file, or one file per key with the
// mode "schluesselfeld".
ExportResult TML_Exp_1(core::Globals& g, const VerwaltungsblockForm& form, const std::string& mode);

// "DD.MM.YYYY" of a head box as "YYYYMMDD"; any other text goes out as it stands.
std::string headDate(const std::string& text);

}  // namespace tolma::transfer
