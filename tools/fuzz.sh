#!/usr/bin/env bash
# Builds the libFuzzer targets of fuzz/ with clang into build-fuzz/ and runs each for a while
# (FUZZ_SECONDS, 60 by default) from its seed corpus under fuzz/corpus/. Fails when a target
# crashes; the input that did it is left in build-fuzz/artifacts/. New inputs that the run
# finds stay in build-fuzz/corpus/, not in the repository.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/deps.sh
seconds="${FUZZ_SECONDS:-60}"
flags="-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined"
cmake -S . -B build-fuzz -G Ninja \
    -DCMAKE_CXX_COMPILER=clang++ \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -gline-tables-only" \
    -DCMAKE_CXX_FLAGS="$flags" \
    -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined" \
    -DTOLMA_FUZZ=ON -DTOLMA_BUILD_GUI=OFF -DTOLMA_BUILD_TESTS=OFF -DTOLMA_BUILD_BENCH=OFF > /dev/null
targets=(query_fuzzer:query betrieb_fuzzer:betrieb)
# The query language's shape cache keeps something of nearly every new text, and libFuzzer
# scans the whole heap for leaks after each input that left more allocated than it freed:
# that cost the query target nine tenths of its speed. A leak still fails the run when
# LeakSanitizer looks at its end.
declare -A options=([query_fuzzer]="-detect_leaks=0" [betrieb_fuzzer]="")
cmake --build build-fuzz --parallel --target "${targets[@]%%:*}"
export ASAN_OPTIONS="detect_leaks=1:strict_string_checks=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
mkdir -p build-fuzz/artifacts
for t in "${targets[@]}"; do
    name="${t%%:*}" corpus="${t##*:}"
    mkdir -p "build-fuzz/corpus/$corpus"
    echo "== $name, ${seconds} s"
    # The first directory takes what the run finds; the committed seeds are read only.
    if ! "build-fuzz/fuzz/$name" -max_total_time="$seconds" -print_final_stats=1 ${options[$name]} \
        -artifact_prefix="build-fuzz/artifacts/$name-" \
        "build-fuzz/corpus/$corpus" "fuzz/corpus/$corpus" > "build-fuzz/$name.log" 2>&1; then
        cat "build-fuzz/$name.log"
        echo "$name ist fehlgeschlagen; eine Eingabe, die abstürzt, liegt in build-fuzz/artifacts/." >&2
        exit 1
    fi
    grep -E '^#[0-9]+.*(INITED|DONE)|^stat::' "build-fuzz/$name.log"
done
