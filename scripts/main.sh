#!/usr/bin/env bash
# Builds the release preset and runs the main job.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh build
cmake --preset release -DZEL_BUILD_TESTS=OFF >/dev/null
cmake --build --preset release --target zel-json
mkdir -p build/out
build/release/examples/zel-json "$@" -o build/out/twitter.min.json
