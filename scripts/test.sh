#!/usr/bin/env bash
# All tests on this machine: unit tests, every conformance script, the export check.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake --preset host >/dev/null
cmake --build --preset host
ctest --preset host
