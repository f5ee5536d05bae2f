#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (ASan + UBSan, the library instrumented too) and runs each
# of the named ones for the given number of seconds (default 20). Exits non-zero on the first crash,
# leak, timeout or round-trip mismatch; the failing input is left in build/fuzz/artifacts/.
#
#   scripts/fuzz.sh [seconds] [target...]
#
# Targets: json (read, write, read again), http-request, http-response, http-chunked, http-server
# (the server's connection framing), xml, csv; the groups http and text name the HTTP and the
# XML/CSV ones. Without a target all of them run.
#
# Each target keeps what it found in build/fuzz/corpus-<target> and starts from its seeds, which are
# read and never written: fuzz/seeds/ and, for JSON, the real-world documents and JSONTestSuite cases
# in ../shared/data (ZEL_DATA_DIR overrides that location). fuzz/dict/ holds the tokens of each
# grammar, so that mutations reach past the first byte of a keyword.
set -euo pipefail

seconds=${1:-20}
case $seconds in
'' | *[!0-9]*)
    echo "usage: $0 [seconds] [target...]" >&2
    exit 2
    ;;
esac
shift $(($# > 0 ? 1 : 0))

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
data=${ZEL_DATA_DIR:-$root/../shared/data}
build=$root/build/fuzz

all=(json http-request http-response http-chunked http-server xml csv)
[ $# -gt 0 ] || set -- "${all[@]}"
targets=()
for name in "$@"; do
    case $name in
    http) targets+=(http-request http-response http-chunked http-server) ;;
    text) targets+=(xml csv) ;;
    json | http-request | http-response | http-chunked | http-server | xml | csv) targets+=("$name") ;;
    *)
        echo "fuzz.sh: unknown target $name (one of: ${all[*]} http text)" >&2
        exit 2
        ;;
    esac
done

# -O1 with line tables only: what libFuzzer recommends, and half the compile time of -O2 -g.
cmake -S "$root" -B "$build" -G Ninja \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -DNDEBUG" \
    -DCMAKE_CXX_COMPILER=clang++ \
    -DZEL_BUILD_FUZZERS=ON -DZEL_BUILD_TESTS=OFF -DZEL_BUILD_EXAMPLES=OFF -DZEL_BUILD_TOOLS=OFF \
    -DZEL_WARNINGS_AS_ERRORS=ON >/dev/null
ninja -C "$build" "${targets[@]/#/zel-fuzz-}"

# A fixed FUZZ_SEED makes a run repeat the same mutations (the test script sets one, so that a
# failure there can be reproduced); without it every run explores anew.
seedOption=()
if [ -n "${FUZZ_SEED:-}" ]; then seedOption=(-seed="$FUZZ_SEED"); fi

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

artifacts=$build/artifacts
mkdir -p "$artifacts"
for target in "${targets[@]}"; do
    case $target in
    json) seeds=("$data/json" "$data/jsontestsuite/test_parsing") dictionary=json maxLength=65536 ;;
    http-server) seeds=("$root/fuzz/seeds/http-request") dictionary=http maxLength=8192 ;;
    http-chunked) seeds=("$root/fuzz/seeds/chunked") dictionary=http maxLength=8192 ;;
    http-*) seeds=("$root/fuzz/seeds/$target") dictionary=http maxLength=8192 ;;
    *) seeds=("$root/fuzz/seeds/$target") dictionary=$target maxLength=16384 ;;
    esac
    for dir in "${seeds[@]}"; do
        [ -d "$dir" ] || { echo "fuzz.sh: seed directory $dir not found" >&2; exit 1; }
    done
    fuzzer=$build/fuzz/zel-fuzz-$target
    corpus=$build/corpus-$target
    mkdir -p "$corpus"
    echo "fuzz.sh: $target for $seconds s, seeds ${seeds[*]}"

    status=0
    "$fuzzer" "$corpus" "${seeds[@]}" \
        -dict="$root/fuzz/dict/$dictionary.dict" \
        -max_total_time="$seconds" \
        "${seedOption[@]}" \
        -max_len="$maxLength" \
        -timeout=10 \
        -rss_limit_mb=2048 \
        -artifact_prefix="$artifacts/$target-" \
        -print_final_stats=1 2>"$build/$target.log" || status=$?
    grep -E '^(stat::number_of_executed_units|stat::peak_rss_mb)|^#[0-9]+ +DONE' "$build/$target.log" || true
    if [ "$status" -ne 0 ]; then
        tail -60 "$build/$target.log" >&2
        echo "fuzz.sh: $target failed (exit $status); reproduce with: $fuzzer <input from $artifacts>" >&2
        exit "$status"
    fi
done
echo "fuzz.sh: no failure in $seconds s per target (${targets[*]})"
