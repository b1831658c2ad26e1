#pragma once

#include <string>
#include <vector>

#include "store/store_copy.h"

namespace tolma::core {
struct Globals;
}

// Moving a whole data store to another place: a store file to a database server and back, with
// what the program keeps beside the data (import runs and their take-back record, the record
// of deletions and disclosures, the search index).
namespace tolma::relocation {

struct MoveResult {
    std::vector<store::CopiedTable> copied;
    std::vector<std::string> left;  // tables of the source that the target cannot take
    bool searchIndexBuilt = false;
    std::string indexFailure;  // why the index could not be built, where it could not
};

// Why a target cannot take the store, said of it ("enthält bereits Daten …"); empty where it can.
std::string whyNot(store::Connection& from, store::Connection& to);

// Copies every table of `from` into `to`, in one transaction on the target, and builds the
// search index there where the source has one (its words are the embedded store's or the
// server's own form, and both are made from the copied rows). Raises on any failure, leaving
// the target as it was; the caller has checked whyNot() first.
MoveResult moveStore(store::Connection& from, store::Connection& to);

enum class CopyOutcome { Copied, SameStore, TargetHoldsData, Failed };

struct CopyReport {
    CopyOutcome outcome = CopyOutcome::Failed;
    std::vector<std::string> lines;  // what was copied, or why nothing was
};

// Copies the open data store to `target` (a file, made where none is, or a connection text of
// a server set up for the program), as "kopieren" and the options window do. Nothing changes
// on the target unless everything is copied; a failure is logged, and a file made for the copy
// is removed again.
CopyReport copyOpenStore(core::Globals& g, const std::string& target);

}  // namespace tolma::relocation
