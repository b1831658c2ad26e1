#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tolma::store {
class Connection;
}

namespace tolma::transfer {

struct ImportContext;
struct ReadElement;

// A 128-bit hash of a <betrieb> element as the rules see it: its trimmed lines. Two lanes of
// different seeds, so that two different elements of one business never meet by chance.
struct Fingerprint {
    std::uint64_t a = 0, b = 0;
    bool operator==(const Fingerprint&) const = default;
};
Fingerprint fingerprintOf(const std::vector<std::string_view>& lines);
// The element's fingerprint under the run's conditions (see ElementFingerprints).
Fingerprint combined(const Fingerprint& element, const Fingerprint& run);

// The table of the program's own that holds them.
inline constexpr const char* kFingerprintTable = "tolma_abdruck";

// Drops every fingerprint of the store. Whatever changes the businesses' rows outside an
// import calls it, inside its own transaction: a fingerprint must never vouch for rows that
// changed since.
void forgetFingerprints(store::Connection& c);

// Makes the table where it is missing; a server's is made when the server is set up.
void createFingerprintTable(store::Connection& c);
// Whether the store keeps fingerprints, making their table in a store file where it is missing.
bool keepsFingerprints(store::Connection& c);

// What each business state, business number and person of the store was last written from: the
// fingerprint of the element that wrote it, kept in a table of the program's own. An element
// whose every key was last written from an element with its own fingerprint would write the
// same rows again in the same order: it is left as it stands, without running the rules. An
// element that logged anything leaves no fingerprint, so that its entries come again.
class ElementFingerprints {
  public:
    // `run`: what besides the element decides its rows (the kind of data, the legal forms).
    ElementFingerprints(ImportContext& ctx, const Fingerprint& run);

    // For each element of a block, in its order, whether it can be left as it stands. An
    // element that is read again changes its keys for the elements after it.
    std::vector<bool> unchanged(store::Connection& c, const std::vector<ReadElement>& elements);
    // After the rules ran for an element: its keys now hold its rows, or, when it logged,
    // rows no fingerprint vouches for. Kept until write().
    void stored(const ReadElement& element, bool logged);
    // Writes what stored() kept, in the block's transaction, by key: in order, the table's
    // pages are met once each.
    void write(store::Connection& c);

  private:
    // The keys whose rows an element removes and writes.
    std::vector<std::string> keysOf(const ReadElement& element) const;

    ImportContext& ctx_;
    Fingerprint run_;
    bool known_;  // a kind of data that replaces rows; otherwise every element is read
    bool byState_;
    // The store held no fingerprint when the run began (a first import): every element is read,
    // as it would be anyway, without asking.
    std::optional<bool> noneHeld_;
    struct Written {
        std::string key;
        Fingerprint fp;
        bool logged;
    };
    std::vector<Written> pending_;
};

}  // namespace tolma::transfer
