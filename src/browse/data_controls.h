#pragma once

#include "browse/data_control.h"

namespace tolma::browse {

// The data controls of the record view and the options, by their names.
struct DataControls {
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
};

}  // namespace tolma::browse
