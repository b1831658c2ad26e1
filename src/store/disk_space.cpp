#include "store/disk_space.h"

#include <sqlite3.h>

#include <atomic>
#include <cstring>
#include <mutex>

namespace tolma::store::disk_space {
namespace {

std::atomic<bool> limited{false};
std::atomic<long long> remaining{0};

// SQLite's own file layer with the writes counted against the budget. Every other call passes
// through unchanged.
struct CountedFile {
    sqlite3_file base;
    sqlite3_file* real;  // lives right behind this struct, in the memory SQLite gives xOpen
};

sqlite3_vfs* realVfs = nullptr;
sqlite3_vfs countedVfs;
sqlite3_io_methods countedMethods;

sqlite3_file* real(sqlite3_file* f) {
    return reinterpret_cast<CountedFile*>(f)->real;
}

int xClose(sqlite3_file* f) {
    return real(f)->pMethods->xClose(real(f));
}
int xRead(sqlite3_file* f, void* p, int n, sqlite3_int64 o) {
    return real(f)->pMethods->xRead(real(f), p, n, o);
}
int xWrite(sqlite3_file* f, const void* p, int n, sqlite3_int64 o) {
    if (!take(static_cast<std::size_t>(n))) return SQLITE_FULL;
    return real(f)->pMethods->xWrite(real(f), p, n, o);
}
int xTruncate(sqlite3_file* f, sqlite3_int64 size) {
    return real(f)->pMethods->xTruncate(real(f), size);
}
int xSync(sqlite3_file* f, int flags) {
    return real(f)->pMethods->xSync(real(f), flags);
}
int xFileSize(sqlite3_file* f, sqlite3_int64* size) {
    return real(f)->pMethods->xFileSize(real(f), size);
}
int xLock(sqlite3_file* f, int l) {
    return real(f)->pMethods->xLock(real(f), l);
}
int xUnlock(sqlite3_file* f, int l) {
    return real(f)->pMethods->xUnlock(real(f), l);
}
int xCheckReservedLock(sqlite3_file* f, int* out) {
    return real(f)->pMethods->xCheckReservedLock(real(f), out);
}
int xFileControl(sqlite3_file* f, int op, void* arg) {
    return real(f)->pMethods->xFileControl(real(f), op, arg);
}
int xSectorSize(sqlite3_file* f) {
    return real(f)->pMethods->xSectorSize(real(f));
}
int xDeviceCharacteristics(sqlite3_file* f) {
    return real(f)->pMethods->xDeviceCharacteristics(real(f));
}
int xShmMap(sqlite3_file* f, int page, int size, int extend, void volatile** p) {
    return real(f)->pMethods->xShmMap(real(f), page, size, extend, p);
}
int xShmLock(sqlite3_file* f, int offset, int n, int flags) {
    return real(f)->pMethods->xShmLock(real(f), offset, n, flags);
}
void xShmBarrier(sqlite3_file* f) {
    real(f)->pMethods->xShmBarrier(real(f));
}
int xShmUnmap(sqlite3_file* f, int del) {
    return real(f)->pMethods->xShmUnmap(real(f), del);
}
// No memory-mapped reads: a write through a mapping would bypass the count.
int xFetch(sqlite3_file*, sqlite3_int64, int, void** p) {
    *p = nullptr;
    return SQLITE_OK;
}
int xUnfetch(sqlite3_file*, sqlite3_int64, void*) {
    return SQLITE_OK;
}

int xOpen(sqlite3_vfs*, sqlite3_filename name, sqlite3_file* f, int flags, int* outFlags) {
    auto* counted = reinterpret_cast<CountedFile*>(f);
    counted->real = reinterpret_cast<sqlite3_file*>(counted + 1);
    const int rc = realVfs->xOpen(realVfs, name, counted->real, flags, outFlags);
    counted->base.pMethods = rc == SQLITE_OK && counted->real->pMethods ? &countedMethods : nullptr;
    return rc;
}

void install() {
    static std::once_flag once;
    std::call_once(once, [] {
        realVfs = sqlite3_vfs_find(nullptr);
        countedVfs = *realVfs;
        countedVfs.zName = "tolma-counted";
        countedVfs.szOsFile = static_cast<int>(sizeof(CountedFile)) + realVfs->szOsFile;
        countedVfs.xOpen = xOpen;
        countedMethods = sqlite3_io_methods{3,
                                            xClose,
                                            xRead,
                                            xWrite,
                                            xTruncate,
                                            xSync,
                                            xFileSize,
                                            xLock,
                                            xUnlock,
                                            xCheckReservedLock,
                                            xFileControl,
                                            xSectorSize,
                                            xDeviceCharacteristics,
                                            xShmMap,
                                            xShmLock,
                                            xShmBarrier,
                                            xShmUnmap,
                                            xFetch,
                                            xUnfetch};
        sqlite3_vfs_register(&countedVfs, 0);
    });
}

}  // namespace

void limit(long long bytes) {
    install();
    remaining = bytes;
    limited = true;
    sqlite3_vfs_register(&countedVfs, 1);  // the default for stores opened from now on
}

void unlimit() {
    limited = false;
    if (realVfs) sqlite3_vfs_register(realVfs, 1);
}

bool take(std::size_t bytes) {
    if (!limited) return true;
    long long left = remaining.load();
    do {
        if (left < static_cast<long long>(bytes)) {
            remaining = 0;  // a full disk stays full for smaller writes too
            return false;
        }
    } while (!remaining.compare_exchange_weak(left, left - static_cast<long long>(bytes)));
    return true;
}

}  // namespace tolma::store::disk_space
