#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "transfer/element_reader.h"
#include "transfer/import_context.h"
#include "transfer/import_listener.h"

namespace tolma::transfer {

// One <betrieb> element, cut into trimmed lines with its keys by the reading thread: stored,
// or its failure logged. The lines handed on are views into the element. True when it
// replaced a stored state of its business.
bool Upd_2_Read(ImportContext& ctx, const ReadElement& element);

// The numbers whose rows the elements of a block will remove, as Upd_3_Betr and Upd_4_Andere
// remove them, each once, so that a listener can remove them all beforehand. Numbers the store
// cannot hold are left out, and so are the elements left as they stand.
BlockKeys blockKeys(ImportContext& ctx, const std::vector<ReadElement>& elements,
                    const std::vector<bool>& unchanged = {});

// Removes what the store holds for the keys and builds the new business row with its
// sections. Lines are those of Upd_2_Read; the keys are the raw extraction results. `replaced`
// is set when it removed a stored state of the business.
void Upd_3_Betr(ImportContext& ctx, const std::vector<std::string_view>& lines,
                const std::string& betrNr, const std::string& betrHistNr,
                const std::string& bRechtsform, bool& replaced);

// Stores one section: an address, activity, permit, craft card, further reason or person.
void Upd_4_Andere(ImportContext& ctx, std::span<const std::string_view> lines,
                  const std::string& betrNr, const std::string& betrHistNr, store::Recordset& table,
                  int sectionNo, const std::string& bRechtsform);

}  // namespace tolma::transfer
