#!/usr/bin/env bash
# Installs what the build needs when it is missing: the host toolchain, CMake, binutils, the
# GoogleTest sources, Google Benchmark, pkg-config (for the package test), valgrind (for
# scripts/bench.sh) and tshark (for the capture dissector's test); with the
# argument "armhf" also the 32-bit ARM cross compiler and qemu-user, with "fuzz" clang, its
# sanitizer and libFuzzer runtimes and llvm-symbolizer, with "coverage" clang 19 and LLVM 19
# (source-based coverage with MC/DC). Touches apt (as root) only when something is missing;
# quiet otherwise.
set -euo pipefail

need=()
have_cmd() { command -v "$1" >/dev/null 2>&1; }
have_pkg() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"; }

have_cmd cmake || need+=(cmake)
have_cmd g++ || need+=(g++)
have_cmd make || need+=(make)
have_cmd pkg-config || need+=(pkg-config)
have_cmd valgrind || need+=(valgrind)
have_cmd nm || need+=(binutils)
[ -f /usr/src/googletest/CMakeLists.txt ] || need+=(googletest)
have_pkg libbenchmark-dev || need+=(libbenchmark-dev)
have_cmd tshark || need+=(tshark)
case "${1:-}" in
  "") ;;
  armhf)
    have_cmd arm-linux-gnueabihf-g++ || need+=(g++-arm-linux-gnueabihf)
    have_cmd arm-linux-gnueabihf-nm || need+=(binutils-arm-linux-gnueabihf)
    have_cmd qemu-arm || need+=(qemu-user)
    ;;
  fuzz)
    have_cmd clang++ || need+=(clang)
    compgen -G "/usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a" >/dev/null || need+=(libclang-rt-dev)
    have_cmd llvm-symbolizer || need+=(llvm)
    ;;
  coverage)
    have_cmd clang++-19 || need+=(clang-19)
    { have_cmd llvm-cov-19 && have_cmd llvm-profdata-19; } || need+=(llvm-19)
    compgen -G "/usr/lib/llvm-19/lib/clang/19/lib/linux/libclang_rt.profile-x86_64.a" >/dev/null || need+=(libclang-rt-19-dev)
    ;;
  *) echo "usage: $0 [armhf|fuzz|coverage]" >&2; exit 2 ;;
esac

[ ${#need[@]} -eq 0 ] && exit 0
if [ "$(id -u)" -ne 0 ] || ! have_cmd apt-get; then
  echo "missing packages: ${need[*]}" >&2
  echo "install them as root: apt-get update && apt-get install -y ${need[*]}" >&2
  exit 1
fi
echo "installing: ${need[*]}"
export DEBIAN_FRONTEND=noninteractive
apt_opts=(-qq -o DPkg::Lock::Timeout=600)
apt-get "${apt_opts[@]}" update
apt-get "${apt_opts[@]}" install -y "${need[@]}" >/dev/null
