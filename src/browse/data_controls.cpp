#include "browse/data_controls.h"

#include "browse/record_view.h"

namespace tolma::browse {

void DataControls::installRepositionHandlers(core::Globals& g) {
    browse::installRepositionHandlers(g);
}

void DataControls::DB_Binden(core::Globals& g) {
    struct Binding {
        DataControl* control;
        const std::string* database;
        const char* source;
        bool refresh;
    } bindings[] = {
        {&DATA_ORG, &g.stores.db_name_org, "gemeindekennzahlen", false},
        {&DATA_ORG_RF, &g.stores.db_name_org, "Rechtsformen", false},
        {&DATA_GEMEINDE, &g.stores.db_name_org, "aktuelleGemeinde", true},
        {&DATA_BETR, &g.stores.db_name_daten, "betrieb", false},
        {&DATA_Meld, &g.stores.db_name_daten, "betrieb_meldgrundsonst", false},
        {&DATA_ADR, &g.stores.db_name_daten, "betrieb_adresse", false},
        {&DATA_BETRErl, &g.stores.db_name_daten, "betrieb_erlaubnis", false},
        {&DATA_BETRHwk, &g.stores.db_name_daten, "betrieb_handwerkskarte", false},
        {&DATA_TAET, &g.stores.db_name_daten, "betrieb_taetigkeit", false},
        {&DATA_Bez_Betr_Pers, &g.stores.db_name_daten, "beziehung_betrieb_person", true},
        {&DATA_PERSStaat, &g.stores.db_name_daten, "person_staatsang", true},
        {&DATA_PERS, &g.stores.db_name_daten, "person", false},
        {&DATA_PERSErl, &g.stores.db_name_daten, "person_erlaubnis", false},
        {&DATA_PERSHwk, &g.stores.db_name_daten, "person_handwerkskarte", false},
    };
    for (auto& b : bindings) {
        b.control->DatabaseName = *b.database;
        b.control->RecordSource = b.source;
        if (b.refresh) b.control->Refresh();
    }
}

void DataControls::DB_Binden_loesen(core::Globals&) {
    // The eleven data controls of the data store, in the order they let go of it.
    DataControl* controls[] = {&DATA_BETR,    &DATA_Meld,    &DATA_ADR,           &DATA_BETRErl,
                               &DATA_BETRHwk, &DATA_TAET,    &DATA_Bez_Betr_Pers, &DATA_PERSStaat,
                               &DATA_PERS,    &DATA_PERSErl, &DATA_PERSHwk};
    for (auto* control : controls) {
        control->DatabaseName.clear();
        control->RecordSource.clear();
        control->Refresh();
    }
}

void attachDataControls(core::Globals& g) {
    if (!g.data) g.data = std::make_unique<DataControls>();
}

DataControls& dataControls(core::Globals& g) {
    attachDataControls(g);
    return static_cast<DataControls&>(*g.data);
}

}  // namespace tolma::browse
