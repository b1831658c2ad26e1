#!/usr/bin/env bash
# Builds everything but the benchmarks with AddressSanitizer and UndefinedBehaviorSanitizer
# into build-asan/ and runs every test there: a read past a buffer or of freed memory, or
# undefined behaviour, fails the test that meets it even where the release build passes by luck.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/deps.sh
# Line tables only and -O1: the build is the cost here, and a report needs no more than lines.
flags="-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined"
cmake -S . -B build-asan -G Ninja \
    -DCMAKE_CXX_COMPILER=clang++ \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -gline-tables-only" \
    -DCMAKE_CXX_FLAGS="$flags" \
    -DCMAKE_EXE_LINKER_FLAGS="$flags" \
    -DTOLMA_BUILD_BENCH=OFF > /dev/null
cmake --build build-asan --parallel
# Leaks are reported too: Qt and fontconfig leave nothing behind that LeakSanitizer counts
# in these tests, so no suppressions are needed.
export ASAN_OPTIONS="detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1:check_initialization_order=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
ctest --test-dir build-asan --output-on-failure --parallel 2
