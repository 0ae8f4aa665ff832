#!/usr/bin/env bash
# Installs what the build needs when it is missing: the host toolchain, CMake, GoogleTest
# sources and Google Benchmark; with the argument "armhf" also the ARM cross compiler and
# qemu-user. Needs root (apt) only when something is missing.
set -euo pipefail

need=()
have_cmd() { command -v "$1" >/dev/null 2>&1; }
have_pkg() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"; }

have_cmd cmake || need+=(cmake)
have_cmd g++ || need+=(g++)
have_cmd make || need+=(make)
have_cmd nm || need+=(binutils)
[ -f /usr/src/googletest/CMakeLists.txt ] || need+=(googletest)
have_pkg libbenchmark-dev || need+=(libbenchmark-dev)
if [ "${1:-}" = "armhf" ]; then
  have_cmd arm-linux-gnueabihf-g++ || need+=(g++-arm-linux-gnueabihf)
  have_cmd qemu-arm || need+=(qemu-user)
fi

[ ${#need[@]} -eq 0 ] && exit 0
if [ "$(id -u)" -ne 0 ] || ! have_cmd apt-get; then
  echo "missing packages: ${need[*]} (install them as root with apt-get)" >&2
  exit 1
fi
echo "installing: ${need[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq "${need[@]}" >/dev/null
