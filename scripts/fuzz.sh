#!/usr/bin/env bash
# Builds the JSON round-trip fuzzer with clang (ASan + UBSan) and runs it for the given number of
# seconds (default 60). Exits non-zero on any crash, leak, timeout or round-trip mismatch; the
# failing input is left in build/fuzz/artifacts/.
#
#   scripts/fuzz.sh [seconds]
#
# The work corpus build/fuzz/corpus keeps what earlier runs found; it is seeded on every run from
# the real-world JSON documents and the JSONTestSuite cases in ../shared/data (ZEL_DATA_DIR
# overrides that location).
set -euo pipefail

seconds=${1:-60}
case $seconds in
'' | *[!0-9]*)
    echo "usage: $0 [seconds]" >&2
    exit 2
    ;;
esac

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
data=${ZEL_DATA_DIR:-$root/../shared/data}
build=$root/build/fuzz

cmake -S "$root" -B "$build" -G Ninja \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_COMPILER=clang++ \
    -DZEL_BUILD_FUZZERS=ON -DZEL_BUILD_TESTS=OFF -DZEL_BUILD_EXAMPLES=OFF -DZEL_WARNINGS_AS_ERRORS=ON >/dev/null
ninja -C "$build" zel-fuzz-json

fuzzer=$build/fuzz/zel-fuzz-json
corpus=$build/corpus
artifacts=$build/artifacts
mkdir -p "$corpus" "$artifacts"

# Seed files carry their origin in the name so they never overwrite the fuzzer's own findings
# (which libFuzzer names by content hash). Documents above -max_len are read truncated.
seeded=0
for dir in "$data/json" "$data/jsontestsuite/test_parsing"; do
    if [ ! -d "$dir" ]; then
        echo "fuzz.sh: seed directory $dir not found" >&2
        exit 1
    fi
    for file in "$dir"/*.json; do
        cp "$file" "$corpus/seed-$(basename "$file")"
        seeded=$((seeded + 1))
    done
done
echo "fuzz.sh: $seeded seed files, corpus $corpus"

# The tokens of the grammar, so that mutations reach past the first byte of a literal or escape.
dictionary=$build/json.dict
cat >"$dictionary" <<'DICT'
"{"
"}"
"["
"]"
","
":"
"\""
"true"
"false"
"null"
"\\u"
"\\uD83D\\uDE00"
"\\\""
"\\\\"
"\\/"
"\\b"
"\\f"
"\\n"
"\\r"
"\\t"
"-"
"0"
"."
"e"
"E+"
"e-"
"1e400"
"1e-400"
"2147483648"
"-2147483649"
"9223372036854775807"
"-9223372036854775808"
"9223372036854775808"
"\xc3\xa9"
DICT

# A fixed FUZZ_SEED makes a run repeat the same mutations (the test script sets one, so that a
# failure there can be reproduced); without it every run explores anew.
seedOption=()
if [ -n "${FUZZ_SEED:-}" ]; then seedOption=(-seed="$FUZZ_SEED"); fi

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

status=0
"$fuzzer" "$corpus" \
    -dict="$dictionary" \
    -max_total_time="$seconds" \
    "${seedOption[@]}" \
    -max_len=65536 \
    -timeout=10 \
    -rss_limit_mb=2048 \
    -artifact_prefix="$artifacts/" \
    -print_final_stats=1 || status=$?

if [ "$status" -ne 0 ]; then
    echo "fuzz.sh: the fuzzer failed (exit $status); reproduce with: $fuzzer <input from $artifacts>" >&2
    exit "$status"
fi
echo "fuzz.sh: no failure in $seconds s"
