#!/usr/bin/env bash
# Builds the text-format fuzzers with clang (ASan + UBSan) and runs each of them for the given number
# of seconds (default 20): the XML parser (with a write-and-read-again check) and the CSV reader.
# Exits non-zero on the first crash, leak, timeout or round-trip mismatch; the failing input is left
# in build/fuzz/artifacts-text/.
#
#   scripts/fuzz-text.sh [seconds]
#
# Each target keeps its work corpus in build/fuzz/corpus-<target> and is seeded on every run from
# fuzz/seeds/<target>/ (read, never written).
set -euo pipefail

seconds=${1:-20}
case $seconds in
'' | *[!0-9]*)
    echo "usage: $0 [seconds]" >&2
    exit 2
    ;;
esac

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$root/build/fuzz
targets=(xml csv)

cmake -S "$root" -B "$build" -G Ninja \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_COMPILER=clang++ \
    -DZEL_BUILD_FUZZERS=ON -DZEL_BUILD_TESTS=OFF -DZEL_BUILD_EXAMPLES=OFF >/dev/null
ninja -C "$build" "${targets[@]/#/zel-fuzz-}"

artifacts=$build/artifacts-text
mkdir -p "$artifacts"

# The tokens of each grammar, so that mutations reach past the first byte of a keyword.
cat >"$build/xml.dict" <<'DICT'
"<?xml version=\"1.0\"?>"
"<!--"
"-->"
"<![CDATA["
"]]>"
"<?"
"?>"
"</"
"/>"
"<!DOCTYPE a ["
"<!ENTITY e \"x&e;\">"
"<!ENTITY e SYSTEM \"f\">"
"&amp;"
"&lt;"
"&#x10FFFF;"
"&#13;"
"&e;"
"xmlns:p=\"u\""
"xmlns=\"u\""
"p:"
"\x0d\x0a"
DICT
cat >"$build/csv.dict" <<'DICT'
"\""
"\"\""
","
";"
"\x0d\x0a"
"\x0a"
"\x0d"
"'"
"|"
DICT

# A fixed FUZZ_SEED makes a run repeat the same mutations (the test script sets one, so that a
# failure there can be reproduced); without it every run explores anew.
seedOption=()
if [ -n "${FUZZ_SEED:-}" ]; then seedOption=(-seed="$FUZZ_SEED"); fi

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

for target in "${targets[@]}"; do
    fuzzer=$build/fuzz/zel-fuzz-$target
    seeds=$root/fuzz/seeds/$target
    if [ ! -d "$seeds" ]; then
        echo "fuzz-text.sh: seed directory $seeds not found" >&2
        exit 1
    fi
    corpus=$build/corpus-$target
    mkdir -p "$corpus"
    echo "fuzz-text.sh: $target for $seconds s, seeds $seeds, corpus $corpus"

    status=0
    "$fuzzer" "$corpus" "$seeds" \
        -dict="$build/$target.dict" \
        -max_total_time="$seconds" \
        "${seedOption[@]}" \
        -max_len=16384 \
        -timeout=10 \
        -rss_limit_mb=2048 \
        -artifact_prefix="$artifacts/$target-" \
        -print_final_stats=1 || status=$?
    if [ "$status" -ne 0 ]; then
        echo "fuzz-text.sh: $target failed (exit $status); reproduce with: $fuzzer <input from $artifacts>" >&2
        exit "$status"
    fi
done
echo "fuzz-text.sh: no failure in $seconds s per target"
