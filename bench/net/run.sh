#!/usr/bin/env bash
# Measures the Zel HTTP server against a Boost.Beast asynchronous server and a cpp-httplib server,
# each on two threads, with wrk on loopback: plaintext and JSON keep-alive at 64 connections,
# plaintext at 2 connections (twoConns) and plaintext pipelined 16 deep. Prints requests/s, p99
# latency and the server's CPU time per request (from /proc/PID/stat), then Zel's ratios to each peer. Last, a plug-in call over HTTP: zel-host
# --http with the Notes example on a fresh data directory, POST /services/Notes/get of one note (a
# read, so that the database does not dominate), against the plain Zel server's /json: the ratio is
# what the host's front and the plug-in boundary cost. Forced writes are off there: with them every
# transaction, a read's too, waits for the disk, and the line would measure the disk.
#
#   bench/net/run.sh [seconds per run] [build dir]     (defaults: 10, build/bench)
#
# Build first: cmake --preset bench && cmake --build build/bench --target zel-bench-net-zel
#              zel-bench-net-beast zel-bench-net-httplib zel-host zel-notes
# With two cores wrk competes with the server for the CPU; CPU time per request is the fairer
# comparison there.
set -euo pipefail

seconds=${1:-10}
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build=${2:-$root/build/bench}
here=$root/bench/net
threads=2
connections=64
ticks=$(getconf CLK_TCK)

command -v wrk >/dev/null || { echo "run.sh: wrk is missing (scripts/install-deps.sh bench)" >&2; exit 1; }

cpuTicks() { awk '{ print $14 + $15 }' "/proc/$1/stat"; }

# measure PID PORT PATH [wrk options...] -> "requests/s p99(ms) cpu-us/request"; the words in
# scriptArgs go to wrk's Lua script.
scriptArgs=()
measure() {
    local pid=$1 port=$2 path=$3
    shift 3
    local before after output
    before=$(cpuTicks "$pid")
    output=$(wrk -t1 -c"$connections" -d"${seconds}s" --latency "$@" "http://127.0.0.1:$port$path" \
        ${scriptArgs[@]+-- "${scriptArgs[@]}"})
    after=$(cpuTicks "$pid")
    local requests rate p99
    requests=$(awk '/requests in/ { print $1 }' <<<"$output")
    grep -q 'Non-2xx' <<<"$output" && echo "run.sh: $path answered errors: $(grep 'Non-2xx' <<<"$output")" >&2
    rate=$(awk '/Requests\/sec/ { print $2 }' <<<"$output")
    p99=$(awk '$1 == "99%" { v = $2; if (v ~ /us$/) { sub(/us/, "", v); v /= 1000 } else if (v ~ /ms$/) { sub(/ms/, "", v) } else if (v ~ /s$/) { sub(/s/, "", v); v *= 1000 } print v }' <<<"$output")
    awk -v r="$rate" -v p="$p99" -v n="$requests" -v t=$((after - before)) -v hz="$ticks" \
        'BEGIN { printf "%s %s %.2f\n", r, p, (n > 0 ? t / hz * 1e6 / n : 0) }'
}

# waitForPort PORT TRIES: until something accepts on the port, 50 ms a try.
waitForPort() {
    for _ in $(seq "$2"); do
        (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null && return
        sleep 0.05
    done
}

declare -A results
port=18080
for peer in zel beast httplib; do
    binary=$build/bench/net/zel-bench-net-$peer
    [ -x "$binary" ] || { echo "run.sh: $binary not built" >&2; exit 1; }
    port=$((port + 1))
    "$binary" "$port" "$threads" &
    pid=$!
    trap 'kill $pid 2>/dev/null || true' EXIT
    waitForPort "$port" 100
    results[$peer,plaintext]=$(measure "$pid" "$port" /plaintext)
    results[$peer,json]=$(measure "$pid" "$port" /json)
    # cpp-httplib gives each kept-alive connection a thread of its own until it closes: with 64
    # connections and two threads it serves two at a time. Two connections compare the servers on the
    # ground it was built for.
    connections=2
    results[$peer,twoConns]=$(measure "$pid" "$port" /plaintext)
    connections=64
    scriptArgs=(16 /plaintext)
    results[$peer,pipelined]=$(measure "$pid" "$port" /plaintext -s "$here/pipeline.lua")
    scriptArgs=()
    kill "$pid"
    wait "$pid" 2>/dev/null || true
    trap - EXIT
done

host=$build/tools/zel-host/zel-host
notes=$build/examples/plugins/zel-notes.so
if [ -x "$host" ] && [ -f "$notes" ]; then
    data=$(mktemp -d)
    port=$((port + 1))
    # The note read back is written before the host starts serving.
    "$host" "$notes" --data "$data" --set database.forcedWrites=false --call Notes.add '{"text":"bench"}' \
        --http "127.0.0.1:$port" >"$data/host.log" 2>&1 &
    pid=$!
    trap 'kill $pid 2>/dev/null || true; rm -rf "$data"' EXIT
    waitForPort "$port" 200
    scriptArgs=('{"id":1}')
    results[host,call]=$(measure "$pid" "$port" /services/Notes/get -s "$here/post.lua")
    scriptArgs=()
    kill "$pid"
    wait "$pid" 2>/dev/null || true
    rm -rf "$data"
    trap - EXIT
else
    echo "run.sh: $host or $notes not built: no plug-in call over HTTP" >&2
fi

printf '%-10s %-10s %12s %10s %14s\n' peer test requests/s p99-ms cpu-us/req
for test in plaintext json twoConns pipelined; do
    for peer in zel beast httplib; do
        read -r rate p99 cpu <<<"${results[$peer,$test]}"
        printf '%-10s %-10s %12s %10s %14s\n' "$peer" "$test" "$rate" "$p99" "$cpu"
    done
done
echo
for test in plaintext json twoConns pipelined; do
    read -r zr zp zc <<<"${results[zel,$test]}"
    for peer in beast httplib; do
        read -r r p c <<<"${results[$peer,$test]}"
        awk -v t="$test" -v peer="$peer" -v zr="$zr" -v r="$r" -v zc="$zc" -v c="$c" -v zp="$zp" -v p="$p" \
            'BEGIN { printf "%-10s Zel/%-8s requests/s %.2fx   cpu/request %.2fx   p99 %.2fx\n", t, peer, (r > 0 ? zr / r : 0), (c > 0 ? zc / c : 0), (p > 0 ? zp / p : 0) }'
    done
done
if [ -n "${results[host,call]:-}" ]; then
    read -r hr hp hc <<<"${results[host,call]}"
    read -r zr zp zc <<<"${results[zel,json]}"
    echo
    printf '%-10s %-10s %12s %10s %14s\n' zel-host Notes.get "$hr" "$hp" "$hc"
    awk -v hr="$hr" -v zr="$zr" -v hc="$hc" -v zc="$zc" -v hp="$hp" -v zp="$zp" \
        'BEGIN { printf "%-10s host/%-7s requests/s %.2fx   cpu/request %.2fx   p99 %.2fx\n", "call", "json", (zr > 0 ? hr / zr : 0), (zc > 0 ? hc / zc : 0), (zp > 0 ? hp / zp : 0) }'
fi
