#!/usr/bin/env bash
# Builds and runs every test, with warnings as errors: the suite in release and under
# AddressSanitizer + UBSan (the end-to-end tests drive the real zel-host with the example plug-in),
# the JSON and HTTP tests on the portable paths, the installed package from a consumer project, and
# the fuzzers: JSON for FUZZ_SECONDS (default 60) and each HTTP target for HTTP_FUZZ_SECONDS
# (default 30), under FUZZ_SEED (default 1); 0 seconds skips them.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

scripts/install-deps.sh test fuzz

echo "== generated tables match their generator"
python3 scripts/gen-pow10-tables.py --check

for preset in release asan; do
    echo "== $preset: build"
    cmake --preset "$preset" -DZEL_BUILD_TESTS=ON -DZEL_BUILD_EXAMPLES=ON -DZEL_WARNINGS_AS_ERRORS=ON >/dev/null
    cmake --build --preset "$preset"
    echo "== $preset: test"
    ctest --preset "$preset" -j2
done

# The JSON and HTTP byte scanners without SSE2 and with byte-order neutral loads: the code other
# processors run. Only those two test programs are built.
echo "== portable: build and test JSON and HTTP"
cmake --preset portable -DZEL_WARNINGS_AS_ERRORS=ON >/dev/null
cmake --build --preset portable
ctest --preset portable -j2

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
export FUZZ_SEED=${FUZZ_SEED:-1}
seconds=${FUZZ_SECONDS:-60}
if [ "$seconds" -gt 0 ]; then
    echo "== fuzz JSON: $seconds s"
    scripts/fuzz.sh "$seconds"
fi
seconds=${HTTP_FUZZ_SECONDS:-30}
if [ "$seconds" -gt 0 ]; then
    echo "== fuzz HTTP: $seconds s per target"
    scripts/fuzz-http.sh "$seconds"
fi
echo "All tests passed."
