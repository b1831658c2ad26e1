#pragma once

#include <cstddef>

// A test hook that makes the disk run full: after a budget of bytes, every write of a store
// (through SQLite's file layer) and of a transfer file fails as on a full disk. Tests reach the
// full-disk paths through it where they cannot mount a small file system of their own.
namespace tolma::store::disk_space {

// From now on, at most `bytes` more bytes are written; stores opened afterwards count too.
void limit(long long bytes);
// Lifts the limit.
void unlimit();
// Takes `bytes` from the budget; false (and nothing taken) when they do not fit any more.
bool take(std::size_t bytes);

}  // namespace tolma::store::disk_space
