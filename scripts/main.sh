#!/usr/bin/env bash
# Builds the release preset and runs the main job: the reference host zel-host driving the example
# plug-in module zel-notes.so through a short scripted session. Replies go to standard output, one
# JSON line each; the host echoes each call and the plug-in's log on standard error.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh build
cmake --preset release -DZEL_BUILD_TESTS=OFF >/dev/null
cmake --build --preset release --target zel-host zel-notes

echo "== zel-host with the Notes plug-in: init, calls, an error reply, deinit" >&2
build/release/tools/zel-host/zel-host build/release/examples/plugins/zel-notes.so --echo "$@" <<'SESSION'
# Service.operation {params}
Notes.add {"text":"Buy milk","tags":["home"]}
Notes.add {"text":"Call the plumber about the leak"}
Notes.list
Notes.get {"id":7}
Notes.remove {"id":1}
Notes.stats
SESSION
