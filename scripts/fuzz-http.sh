#!/usr/bin/env bash
# Builds the HTTP fuzzers with clang (ASan + UBSan) and runs each of them for the given number of
# seconds (default 30): the request reader, the response reader, the chunked body decoder and the
# server's connection framing.
# Exits non-zero on the first crash, leak, timeout or disagreement; the failing input is left in
# build/fuzz/artifacts-http/.
#
#   scripts/fuzz-http.sh [seconds]
#
# Each target keeps its work corpus in build/fuzz/corpus-<target> and is seeded on every run from
# the real messages in fuzz/seeds/ (read, never written).
set -euo pipefail

seconds=${1:-30}
case $seconds in
'' | *[!0-9]*)
    echo "usage: $0 [seconds]" >&2
    exit 2
    ;;
esac

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$root/build/fuzz
targets=(http-request http-response http-chunked http-server)

cmake -S "$root" -B "$build" -G Ninja \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_COMPILER=clang++ \
    -DZEL_BUILD_FUZZERS=ON -DZEL_BUILD_TESTS=OFF -DZEL_BUILD_EXAMPLES=OFF -DZEL_WARNINGS_AS_ERRORS=ON >/dev/null
ninja -C "$build" "${targets[@]/#/zel-fuzz-}"

artifacts=$build/artifacts-http
mkdir -p "$artifacts"

# The tokens of the wire format, so that mutations reach past the first byte of a keyword.
dictionary=$build/http.dict
cat >"$dictionary" <<'DICT'
"\x0d\x0a"
"\x0d\x0a\x0d\x0a"
": "
" "
"HTTP/1.1"
"HTTP/1.0"
"HTTP/"
"GET "
"POST "
"PUT "
"PATCH "
"DELETE "
"200 OK"
"Content-Length: "
"Transfer-Encoding: chunked"
"Transfer-Encoding: "
"Content-Encoding: "
"Connection: keep-alive"
"Connection: close"
"Expect: 100-continue"
"Cookie: "
"chunked"
"0\x0d\x0a\x0d\x0a"
"ffffffffffffffff"
"-1"
"9223372036854775808"
";"
DICT

# A fixed FUZZ_SEED makes a run repeat the same mutations (the test script sets one, so that a
# failure there can be reproduced); without it every run explores anew.
seedOption=()
if [ -n "${FUZZ_SEED:-}" ]; then seedOption=(-seed="$FUZZ_SEED"); fi

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

for target in "${targets[@]}"; do
    fuzzer=$build/fuzz/zel-fuzz-$target
    case $target in
    http-chunked) seeds=$root/fuzz/seeds/chunked ;;
    http-server) seeds=$root/fuzz/seeds/http-request ;;
    *) seeds=$root/fuzz/seeds/$target ;;
    esac
    if [ ! -d "$seeds" ]; then
        echo "fuzz-http.sh: seed directory $seeds not found" >&2
        exit 1
    fi
    corpus=$build/corpus-$target
    mkdir -p "$corpus"
    echo "fuzz-http.sh: $target for $seconds s, seeds $seeds, corpus $corpus"

    status=0
    "$fuzzer" "$corpus" "$seeds" \
        -dict="$dictionary" \
        -max_total_time="$seconds" \
    "${seedOption[@]}" \
        -max_len=8192 \
        -timeout=10 \
        -rss_limit_mb=2048 \
        -artifact_prefix="$artifacts/$target-" \
        -print_final_stats=1 || status=$?
    if [ "$status" -ne 0 ]; then
        echo "fuzz-http.sh: $target failed (exit $status); reproduce with: $fuzzer <input from $artifacts>" >&2
        exit "$status"
    fi
done
echo "fuzz-http.sh: no failure in $seconds s per target"
