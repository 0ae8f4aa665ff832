#!/usr/bin/env bash
# The main job: builds the library with the host platform and runs the demonstration, which
# prints every step, every message on the wire and every callback.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake --preset release >/dev/null
cmake --build --preset release --target zanvrrp-sim
exec build/release/tools/zanvrrp-sim/zanvrrp-sim script --verbose examples/demo.zvs
