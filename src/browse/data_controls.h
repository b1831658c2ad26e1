#pragma once

#include "browse/data_control.h"
#include "core/globals.h"

namespace tolma::browse {

// The data controls of the record view and the options, by their names, and how the
// connection binds them to the stores.
struct DataControls : core::DataControlSet {
    DataControl DATA_ORG{"DATA_ORG"};
    DataControl DATA_ORG_RF{"DATA_ORG_RF"};
    DataControl DATA_GEMEINDE{"DATA_GEMEINDE"};  // on Frm_Optionen
    DataControl DATA_BETR{"DATA_BETR"};
    DataControl DATA_Meld{"DATA_Meld"};
    DataControl DATA_ADR{"DATA_ADR"};
    DataControl DATA_BETRErl{"DATA_BETRErl"};
    DataControl DATA_BETRHwk{"DATA_BETRHwk"};
    DataControl DATA_TAET{"DATA_TAET"};
    DataControl DATA_Bez_Betr_Pers{"DATA_Bez_Betr_Pers"};
    DataControl DATA_PERSStaat{"DATA_PERSStaat"};
    DataControl DATA_PERS{"DATA_PERS"};
    DataControl DATA_PERSErl{"DATA_PERSErl"};
    DataControl DATA_PERSHwk{"DATA_PERSHwk"};

    void installRepositionHandlers(core::Globals& g) override;
    // Every control gets its store and record source; three run theirs at once.
    void DB_Binden(core::Globals& g) override;
    // The controls of the data store let go of it; the settings store's stay bound.
    void DB_Binden_loesen(core::Globals& g) override;
};

// Gives a run its data controls. Called once where the run is made, before A_Start.
void attachDataControls(core::Globals& g);

// The run's data controls, attached on first use if nobody did so before.
DataControls& dataControls(core::Globals& g);

}  // namespace tolma::browse
