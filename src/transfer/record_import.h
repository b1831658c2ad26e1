#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "transfer/element_reader.h"
#include "transfer/import_context.h"
#include "transfer/import_journal.h"

namespace tolma::transfer {

// One <betrieb> element, cut into trimmed lines with its keys by the reading thread: stored,
// or its failure logged. The lines handed on are views into the element.
void Upd_2_Read(ImportContext& ctx, const ReadElement& element);

// The numbers whose rows the elements of a block will remove, as Upd_3_Betr and Upd_4_Andere
// remove them, so that the block can remove them all beforehand; noted in ctx.removedAhead.
// Numbers the store cannot hold are left out.
BlockKeys blockKeys(ImportContext& ctx, const std::vector<ReadElement>& elements);
// Those of them that no element came to remove.
BlockKeys keysLeft(const ImportContext& ctx);

// Removes what the store holds for the keys and builds the new business row with its
// sections. Lines are those of Upd_2_Read; the keys are the raw extraction results.
void Upd_3_Betr(ImportContext& ctx, const std::vector<std::string_view>& lines,
                const std::string& betrNr, const std::string& betrHistNr,
                const std::string& bRechtsform);

// Stores one section: an address, activity, permit, craft card, further reason or person.
void Upd_4_Andere(ImportContext& ctx, std::span<const std::string_view> lines,
                  const std::string& betrNr, const std::string& betrHistNr, store::Recordset& table,
                  int sectionNo, const std::string& bRechtsform);

}  // namespace tolma::transfer
