#!/usr/bin/env bash
# Memory soak of the Zel HTTP server: wrk drives it for some minutes in cycles of three runs (64
# keep-alive connections; 64 connections that each carry one request, "Connection: close"; 1,024
# keep-alive connections) while the server's resident size (VmRSS) and open descriptors are sampled
# every 10 s. Prints the series, then fails when the resident size grew after the warm-up by more
# than the tolerance, or when the descriptors did not come back to their idle count after a cycle.
#
#   bench/net/soak.sh [minutes] [build dir] [bench|host]     (defaults: 3, build/bench, bench)
#
# "bench" soaks zel-bench-net-zel on GET /json; "host" soaks zel-host --http with the Notes example
# plug-in on a temporary data directory, on POST /services/Notes/get (one note, read back each time).
# The first half of the cycles is the warm-up: the allocator keeps what the busiest moment took
# (most of all the 1,024 connections' buffers, which a slow server accepts over several cycles), so
# only growth after it is a leak. The resident size is compared between idle moments, once the
# connections of a cycle are gone: the last one of the warm-up against the lower of the last two
# (what the allocator hands back to the system varies by a few MB from one idle moment to the next;
# a leak raises both). SOAK_RSS_TOLERANCE_KB (default 8192) is the growth allowed,
# SOAK_RUN_SECONDS (default 10) the length of one wrk run.
set -euo pipefail

minutes=${1:-3}
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build=${2:-$root/build/bench}
server=${3:-bench}
here=$root/bench/net
runSeconds=${SOAK_RUN_SECONDS:-10}
tolerance=${SOAK_RSS_TOLERANCE_KB:-8192}
port=${SOAK_PORT:-18090}
many=1024

command -v wrk >/dev/null || { echo "soak.sh: wrk is missing (scripts/install-deps.sh bench)" >&2; exit 1; }

# The big run needs a descriptor per connection in wrk and in the server, which inherit this limit.
ulimit -n "$(ulimit -Hn)" 2>/dev/null || ulimit -n 65536 2>/dev/null || true
if [ "$(ulimit -n)" != unlimited ] && (( $(ulimit -n) < many + 128 )); then
    many=$(( $(ulimit -n) - 128 ))
    echo "soak.sh: descriptor limit $(ulimit -n): the big run uses $many connections" >&2
fi

work=$(mktemp -d)
pid=
sampler=
cleanup() {
    [ -n "$sampler" ] && kill "$sampler" 2>/dev/null
    [ -n "$pid" ] && kill "$pid" 2>/dev/null && wait "$pid" 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT

wrkExtra=()
case $server in
bench)
    binary=$build/bench/net/zel-bench-net-zel
    [ -x "$binary" ] || { echo "soak.sh: $binary not built" >&2; exit 1; }
    "$binary" "$port" 2 >"$work/server.log" 2>&1 &
    pid=$!
    url=http://127.0.0.1:$port/json
    ;;
host)
    binary=$build/tools/zel-host/zel-host
    module=$build/examples/plugins/zel-notes.so
    [ -x "$binary" ] && [ -f "$module" ] || { echo "soak.sh: $binary or $module not built" >&2; exit 1; }
    "$binary" "$module" --data "$work/data" --call Notes.add '{"text":"soak"}' --http "127.0.0.1:$port" \
        >"$work/server.log" 2>&1 &
    pid=$!
    url=http://127.0.0.1:$port/services/Notes/get
    wrkExtra=(-s "$here/post.lua" "$url" -- '{"id":1}')
    ;;
*)
    echo "soak.sh: the server is bench or host, not $server" >&2
    exit 2
    ;;
esac
[ ${#wrkExtra[@]} -eq 0 ] && wrkExtra=("$url")

for _ in $(seq 200); do
    (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null && break
    kill -0 "$pid" 2>/dev/null || { cat "$work/server.log" >&2; exit 1; }
    sleep 0.05
done

rssKb() { awk '/^VmRSS:/ { print $2 }' "/proc/$pid/status"; }
descriptors() { find "/proc/$pid/fd" -mindepth 1 -maxdepth 1 | wc -l; }

# Waits up to 15 s for the descriptors to come back to the idle count; prints the count it ended at.
settle() {
    local count
    for _ in $(seq 150); do
        count=$(descriptors)
        [ "$count" -le "$idleDescriptors" ] && break
        sleep 0.1
    done
    echo "$count"
}

idleDescriptors=$(descriptors)
start=$SECONDS
echo idle >"$work/phase"
(
    while kill -0 "$pid" 2>/dev/null; do
        printf '%8d %10s %6s  %s\n' $((SECONDS - start)) "$(rssKb)" "$(descriptors)" "$(cat "$work/phase")"
        sleep 10
    done
) >"$work/series" 2>/dev/null &
sampler=$!

# run NAME CONNECTIONS [wrk options...]: one wrk run, summarised on one line.
run() {
    local name=$1 connections=$2
    shift 2
    echo "$name" >"$work/phase"
    local output
    output=$(wrk -t2 -c"$connections" -d"${runSeconds}s" --timeout 10s "$@" "${wrkExtra[@]}")
    awk -v name="$name" -v c="$connections" '
        /Requests\/sec/ { rate = $2 }
        /Socket errors/ { errors = $0; sub(/^ *Socket errors: */, "", errors) }
        /Non-2xx/ { bad = $NF }
        END { printf "  %-10s %5d connections %12s requests/s   non-2xx %s   %s\n", name, c, rate, (bad ? bad : 0), (errors ? "errors: " errors : "") }' <<<"$output"
    kill -0 "$pid" 2>/dev/null || { echo "soak.sh: the server died" >&2; cat "$work/server.log" >&2; exit 1; }
}

echo "soak of $server for $minutes min: $url (pid $pid, $idleDescriptors descriptors idle)"
end=$((SECONDS + minutes * 60))
cycle=0
idleRss=()
leftDescriptors=()
while (( SECONDS < end || cycle < 2 )); do
    cycle=$((cycle + 1))
    echo "cycle $cycle"
    run keep-alive 64
    run close 64 -H "Connection: close"
    run many "$many"
    echo idle >"$work/phase"
    leftDescriptors+=("$(settle)")
    idleRss+=("$(rssKb)")
    echo "  idle: ${idleRss[-1]} kB resident, ${leftDescriptors[-1]} descriptors"
done
kill "$sampler" 2>/dev/null || true
wait "$sampler" 2>/dev/null || true
sampler=

echo
printf '%8s %10s %6s  %s\n' seconds rss-kB fds phase
cat "$work/series"
echo

status=0
warm=$(((cycle + 1) / 2 - 1))
last=$((idleRss[-1] < idleRss[-2] ? idleRss[-1] : idleRss[-2]))
growth=$((last - idleRss[warm]))
echo "resident after the warm-up (cycle $((warm + 1))) ${idleRss[warm]} kB, at the end $last kB: growth $growth kB (tolerance $tolerance kB)"
if (( growth > tolerance )); then
    echo "soak.sh: FAIL: the resident size grew by $growth kB" >&2
    status=1
fi
for i in "${!leftDescriptors[@]}"; do
    if (( leftDescriptors[i] != idleDescriptors )); then
        echo "soak.sh: FAIL: ${leftDescriptors[i]} descriptors open after cycle $((i + 1)), $idleDescriptors idle" >&2
        status=1
    fi
done
(( status == 0 )) && echo "descriptors back to $idleDescriptors after every cycle: OK"
exit $status
