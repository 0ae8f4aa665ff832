#!/usr/bin/env bash
# The main job: builds the library with the host platform and runs it live against two simulated
# VRRP components for ten minutes of virtual time, with losses, duplicates, flow control,
# component restarts and work-state changes; prints what happened, the diagnostics and the
# verdict, and writes every message to build/zanvrrp-sim.pcap (open it in Wireshark with
# tools/wireshark/zanvrrp.lua).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake --preset release >/dev/null
cmake --build --preset release --target zanvrrp-sim
mkdir -p build
exec build/release/tools/zanvrrp-sim/zanvrrp-sim run --items 100 --loss 0.05 --dup 0.02 --fc --flaps --work \
  --pcap build/zanvrrp-sim.pcap "$@"
