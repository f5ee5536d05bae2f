#!/usr/bin/env bash
# Builds the release preset and runs the main job: the reference host zel-host with the two example
# plug-ins, Notes and Reminders, on an embedded database in a fresh data directory, twice. Run one
# writes notes, rolls a transaction back and leaves a reminder that the host's task queue fires later
# into the Notes plug-in; run two, a new process on the same data directory, reads it all back.
# Replies go to standard output, one JSON line each; the host echoes each call and the plug-ins' log
# on standard error.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh build
cmake --preset release -DZEL_BUILD_TESTS=OFF >/dev/null
cmake --build --preset release --target zel-host zel-notes zel-reminders

data="$(mktemp -d)"
trap 'rm -rf "$data"' EXIT
host=(build/release/tools/zel-host/zel-host build/release/examples/plugins/zel-notes.so
      build/release/examples/plugins/zel-reminders.so --data "$data/zel-data" --echo "$@")

echo "== run 1: notes, a transaction rolled back, a reminder the host's task queue fires later" >&2
"${host[@]}" <<'SESSION'
# Service.operation {params}
Notes.add {"text":"Buy milk","tags":["home"]}
Notes.add {"text":"Call the plumber about the leak"}
DataStore.beginTransaction
DataStore.setKey {"key":"draft","value":"half-written","transactionId":1}
DataStore.rollbackTransaction {"transactionId":1}
DataStore.getKey {"key":"draft"}
ServiceRegistry.lookup {"interface":"INotes"}
Reminders.add {"text":"Water the plants","delayMs":300}
Reminders.pending
wait 1000
Reminders.pending
Notes.list
Notes.get {"id":7}
Messages.send {"channel":"ops","text":"run 1 done"}
SESSION

echo "== run 2: a new host process on the same data directory" >&2
"${host[@]}" <<'SESSION'
Notes.list
DataStore.getKey {"key":"draft"}
Messages.list {"channel":"ops"}
Notes.stats
SESSION
