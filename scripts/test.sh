#!/usr/bin/env bash
# Builds and runs every test, with warnings as errors: the suite in release and under
# AddressSanitizer + UBSan (the end-to-end tests drive the real zel-host with the example plug-ins),
# the latter on the portable (non-SSE2) paths, the threaded suites again under load, the installed
# package from a consumer project, and every fuzzer for FUZZ_SECONDS (default 15) under FUZZ_SEED
# (default 1); 0 seconds skips them.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

scripts/install-deps.sh test fuzz

# Rebuilds of the same sources (a second run, another clone on the same machine) come from ccache;
# paths are hashed relative to the clone, so clones in other places share the cache.
if command -v ccache >/dev/null; then
    export CCACHE_BASEDIR=$root CMAKE_CXX_COMPILER_LAUNCHER=ccache CMAKE_C_COMPILER_LAUNCHER=ccache
fi

echo "== generated tables match their generator"
python3 scripts/gen-pow10-tables.py --check

# Races show under load, not in one quiet run: the threaded suites run again in two copies side by
# side, ctest's (a fresh process per test) until a failure or 20 rounds, and the test programs' own
# repetition of the same suites beside it.
threaded='^(TaskQueue|TasksManager|TaskRetry|TaskCancel|TaskHousekeeping|Executors|ActiveObjectHelper|ThreadsManager|EventLoop|EventsManager)\.'
repeat_threaded() {
    local dir=$1
    ctest --test-dir "$dir" -R "$threaded" --repeat until-fail:20 -j2 --output-on-failure >"$dir/repeat-ctest.log" 2>&1 &
    local ctestPid=$!
    local status=0
    for round in $(seq 20); do
        for program in ZelTasksTests ZelAsyncTests ZelEventsTests; do
            "$dir/tests/$program" --gtest_filter='-TaskStress.*' --gtest_brief=1 >>"$dir/repeat-gtest.log" 2>&1 ||
                { status=1; break 2; }
        done
    done
    wait "$ctestPid" || { status=1; tail -60 "$dir/repeat-ctest.log"; }
    [ "$status" -eq 0 ] || tail -60 "$dir/repeat-gtest.log"
    return "$status"
}

# The asan preset compiles at -O1 with line tables only: half the compile time of -O2 -g, and a
# report still names file and line.
#
# The sanitizer build also takes the portable code paths (no SSE2, byte-order neutral loads: the
# code other processors run), so that every path is tested once and under the sanitizers once: the
# SSE2 paths in release and by the fuzzers, the portable ones here. One build less than a separate
# portable stage.
for preset in release asan; do
    echo "== $preset: build"
    portable=OFF
    [ "$preset" = asan ] && portable=ON
    cmake --preset "$preset" -DZEL_BUILD_TESTS=ON -DZEL_BUILD_EXAMPLES=ON -DZEL_WARNINGS_AS_ERRORS=ON \
        -DZEL_FORCE_PORTABLE="$portable" >/dev/null
    cmake --build --preset "$preset"
    echo "== $preset: test"
    ctest --preset "$preset" -j2
    if [ "$preset" = release ]; then
        echo "== $preset: threaded suites, 20 rounds in two copies side by side"
        repeat_threaded build/release
    fi
done

echo "== package: install and build a consumer project"
rm -rf build/install build/consumer
cmake --install build/release --prefix build/install >/dev/null
cmake -S tests/consumer -B build/consumer -G Ninja -DCMAKE_PREFIX_PATH="$root/build/install" >/dev/null
cmake --build build/consumer
build/consumer/zel-consumer
PKG_CONFIG_PATH="$root/build/install/lib/pkgconfig" \
    g++ tests/consumer/main.cpp -o build/consumer/zel-consumer-pc \
    $(PKG_CONFIG_PATH="$root/build/install/lib/pkgconfig" pkg-config --cflags --libs zel) \
    -Wl,-rpath,"$root/build/install/lib"
build/consumer/zel-consumer-pc

# The same seed on every run: a failure here is a finding to reproduce, not a roll of the dice.
seconds=${FUZZ_SECONDS:-15}
if [ "$seconds" -gt 0 ]; then
    echo "== fuzz: $seconds s per target"
    FUZZ_SEED=${FUZZ_SEED:-1} scripts/fuzz.sh "$seconds"
fi
echo "All tests passed."
