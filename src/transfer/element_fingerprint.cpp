#include "transfer/element_fingerprint.h"

#include <algorithm>
#include <cstring>
#include <unordered_map>
#include <unordered_set>

#include "store/connection.h"
#include "store/text_list.h"
#include "transfer/element_reader.h"
#include "transfer/import_context.h"

namespace tolma::transfer {
namespace {

std::uint64_t mix(std::uint64_t x, std::uint64_t y) {
    const unsigned __int128 r = static_cast<unsigned __int128>(x) * y;
    return static_cast<std::uint64_t>(r) ^ static_cast<std::uint64_t>(r >> 64);
}

// One lane of the hash: eight bytes at a time, each line closed by its length.
struct Lane {
    std::uint64_t h, seed, factor;
    void add(std::uint64_t word) { h = mix(h ^ word ^ seed, factor); }
    void add(std::string_view text) {
        size_t i = 0;
        for (; i + 8 <= text.size(); i += 8) {
            std::uint64_t w;
            std::memcpy(&w, text.data() + i, 8);
            add(w);
        }
        std::uint64_t tail = 0;
        // An empty view may have no data at all, which memcpy must not be given.
        if (i < text.size()) std::memcpy(&tail, text.data() + i, text.size() - i);
        add(tail ^ (static_cast<std::uint64_t>(text.size()) << 56));
    }
};

Lane laneA() {
    return {0x243f6a8885a308d3ull, 0xa0761d6478bd642full, 0xe7037ed1a0b428dbull};
}
Lane laneB() {
    return {0x13198a2e03707344ull, 0x8ebc6af09c88c6e3ull, 0x589965cc75374cc3ull};
}

}  // namespace

Fingerprint fingerprintOf(const std::vector<std::string_view>& lines) {
    Lane a = laneA(), b = laneB();
    for (std::string_view line : lines) {
        a.add(line);
        b.add(line);
    }
    a.add(lines.size());
    b.add(lines.size());
    return {a.h, b.h};
}

Fingerprint combined(const Fingerprint& element, const Fingerprint& run) {
    Lane a = laneA(), b = laneB();
    for (std::uint64_t w : {element.a, element.b, run.a, run.b}) {
        a.add(w);
        b.add(w);
    }
    return {a.h, b.h};
}

void forgetFingerprints(store::Connection& c) {
    if (c.hasTable(kFingerprintTable)) c.execute(std::string("DELETE FROM ") + kFingerprintTable);
}

void createFingerprintTable(store::Connection& c) {
    c.createIfMissing(kFingerprintTable,
                      {std::string("CREATE TABLE IF NOT EXISTS ") + kFingerprintTable +
                       " (schluessel TEXT PRIMARY KEY, a INTEGER NOT NULL, b INTEGER NOT NULL)" +
                       (c.isServer() ? "" : " WITHOUT ROWID")});
}

bool keepsFingerprints(store::Connection& c) {
    // A server's table is made by its set-up, with the rights of every role that changes rows:
    // a store set up before it reads every element as it comes.
    if (c.isServer()) return c.hasTable(kFingerprintTable);
    createFingerprintTable(c);
    return true;
}

ElementFingerprints::ElementFingerprints(ImportContext& ctx, const Fingerprint& run)
    : ctx_(ctx),
      run_(run),
      known_(ctx.akt_struktur == core::kBetriebsbezogen ||
             ctx.akt_struktur == core::kMeldungsbezogen),
      byState_(ctx.akt_struktur == core::kMeldungsbezogen) {}

std::vector<std::string> ElementFingerprints::keysOf(const ReadElement& element) const {
    // The state's rows; by state also the number's, whose persons' permits go for all its
    // states at once; the persons, which are one row across all businesses. Kept by their
    // numbers, as the store keeps their rows: a file in the order of its numbers writes the
    // table from front to back rather than all over.
    std::vector<std::string> keys{"s" + ctx_.businessKey(element.betrNr, element.betrHistNr)};
    if (byState_) keys.push_back("n" + ImportContext::foldedKey(element.betrNr));
    for (const std::string& p : element.persNrs) keys.push_back("p" + ImportContext::foldedKey(p));
    return keys;
}

std::vector<bool> ElementFingerprints::unchanged(store::Connection& c,
                                                 const std::vector<ReadElement>& elements) {
    std::vector<bool> result(elements.size(), false);
    if (!known_) return result;
    if (!noneHeld_) {
        auto any = c.prepare(std::string("SELECT 1 FROM ") + kFingerprintTable + " LIMIT 1");
        noneHeld_ = !any->step();
    }
    if (*noneHeld_) return result;
    std::vector<std::vector<std::string>> keys(elements.size());
    // Each key's rows end as its last element in the block leaves them: every element removes
    // what its keys hold before it writes. An earlier element's rows of a number or person are
    // gone again by then, so only the last one must find its own fingerprint there. The state
    // always must: its fingerprint also says that the element logged nothing.
    std::unordered_map<std::string, size_t> last;
    for (size_t i = 0; i < elements.size(); ++i) {
        if (elements[i].failure) continue;  // writes nothing, logs
        keys[i] = keysOf(elements[i]);
        for (const std::string& key : keys[i]) last[key] = i;
    }
    // What the store holds for the block's keys, asked at once: nothing of the block is
    // written before the answer is used, and a server answers a list as fast as one key.
    std::vector<std::string> asked;
    asked.reserve(last.size());
    for (const auto& [key, i] : last) asked.push_back(key);
    std::unordered_map<std::string, Fingerprint> held;
    {
        auto st = c.prepare(std::string("SELECT f.schluessel, f.a, f.b FROM json_each(?1) k "
                                        "CROSS JOIN ") +
                            kFingerprintTable + " f ON f.schluessel = k.value");
        st->bind(1, store::Variant(store::jsonArray(asked)));
        while (st->step())
            held[std::string(st->columnText(0))] = {
                static_cast<std::uint64_t>(st->column(1).toInteger()),
                static_cast<std::uint64_t>(st->column(2).toInteger())};
    }
    // Keys that an element of the block writes anew: their last element must write too.
    std::unordered_set<std::string> written;
    for (size_t i = 0; i < elements.size(); ++i) {
        if (elements[i].failure) continue;
        const Fingerprint fp = combined(elements[i].fingerprint, run_);
        bool same = true;
        for (size_t k = 0; k < keys[i].size(); ++k) {
            const std::string& key = keys[i][k];
            if (k > 0 && last[key] != i) continue;
            const auto found = held.find(key);
            if (written.contains(key) || found == held.end() || !(found->second == fp)) {
                same = false;
                break;
            }
        }
        if (same)
            result[i] = true;
        else
            written.insert(keys[i].begin(), keys[i].end());
    }
    return result;
}

void ElementFingerprints::stored(const ReadElement& element, bool logged) {
    if (!known_ || element.failure) return;
    const Fingerprint fp = combined(element.fingerprint, run_);
    for (std::string& key : keysOf(element)) pending_.push_back({std::move(key), fp, logged});
}

void ElementFingerprints::write(store::Connection& c) {
    if (pending_.empty()) return;
    // The last word on a key is its last element's.
    std::stable_sort(pending_.begin(), pending_.end(),
                     [](const Written& x, const Written& y) { return x.key < y.key; });
    // The old fingerprints of the keys go in one statement; the new ones come in as rows, which
    // a server takes through COPY. A file replaces each key's row as it writes the new one, and
    // only the keys of elements that logged, which get none, go first.
    std::vector<const Written*> last;
    std::vector<std::string> gone;
    for (size_t i = 0; i < pending_.size(); ++i) {
        if (i + 1 < pending_.size() && pending_[i + 1].key == pending_[i].key) continue;
        last.push_back(&pending_[i]);
        if (c.isServer() || pending_[i].logged) gone.push_back(pending_[i].key);
    }
    if (!gone.empty()) {
        // No answer is needed: a server takes it behind the block's rows.
        store::Statement drop(c, std::string("DELETE FROM ") + kFingerprintTable +
                                     " WHERE schluessel IN (SELECT value FROM json_each(?1))");
        drop.bind(1, store::Variant(store::jsonArray(gone)));
        drop.sendOnce();
    }
    store::Statement& put =
        c.cached(std::string(c.isServer() ? "INSERT INTO " : "INSERT OR REPLACE INTO ") +
                 kFingerprintTable + " (schluessel, a, b) VALUES (?1, ?2, ?3)");
    put.copyInto(kFingerprintTable, {"schluessel", "a", "b"});
    for (const Written* w : last) {
        if (w->logged) continue;
        put.reset();
        put.bindTextStatic(1, w->key);
        put.bindInteger(2, static_cast<long long>(w->fp.a));
        put.bindInteger(3, static_cast<long long>(w->fp.b));
        put.send();
    }
    put.reset();
    pending_.clear();
}

}  // namespace tolma::transfer
