#!/usr/bin/env bash
# The package as an application team gets it: the project is built and installed into a fresh
# prefix (first plain, whose contents are checked file by file; then with the host platform),
# and two out-of-tree consumers are built against the prefix and run: a CMake project
# (find_package, shared and static) and a plain Makefile (pkg-config). With a toolchain file the
# whole thing is cross-built and the consumers run under the emulator. With "coverage" the
# library is built instrumented with clang 19, as the coverage preset builds it, and the
# consumers are linked with the profile runtime.
# Usage: run.sh SOURCE_DIR WORK_DIR [TOOLCHAIN_FILE] [coverage]
set -euo pipefail
src="$1"
work="$2"
toolchain="${3:-}"

cross=()
run=()
cc=cc
ldflags=()
if [ -n "$toolchain" ]; then
  cross=(-DCMAKE_TOOLCHAIN_FILE="$toolchain")
  run=(qemu-arm -L /usr/arm-linux-gnueabihf)
  cc=arm-linux-gnueabihf-gcc
fi
if [ "${4:-}" = coverage ]; then
  cross+=(-DCMAKE_C_COMPILER=clang-19 -DCMAKE_CXX_COMPILER=clang++-19)
  cc=clang-19
  ldflags=(-fprofile-instr-generate)
fi

rm -rf "$work"
mkdir -p "$work"
build="$work/build"
cmake -S "$src" -B "$build" "${cross[@]}" -DCMAKE_BUILD_TYPE=Release -DZAN_BUILD_TESTS=OFF \
  -DZAN_COVERAGE="$([ ${#ldflags[@]} -gt 0 ] && echo ON || echo OFF)" >/dev/null
cmake --build "$build" -j2 --target zan_vrrp_lib zan_vrrp_static >/dev/null

# Plain: the libraries, the header, the CMake package and the .pc file; nothing else.
cmake --install "$build" --prefix "$work/plain" >/dev/null
version=$(sed -n 's/^Version: //p' "$work/plain/lib/pkgconfig/zan_vrrp_lib.pc")
(cd "$work/plain" && find . -type f -o -type l | sort) >"$work/plain.txt"
cat >"$work/plain.want" <<LIST
./include/zan_vrrp_lib.h
./lib/cmake/zan_vrrp_lib/zan_vrrp_libConfig.cmake
./lib/cmake/zan_vrrp_lib/zan_vrrp_libConfigVersion.cmake
./lib/cmake/zan_vrrp_lib/zan_vrrp_libTargets-release.cmake
./lib/cmake/zan_vrrp_lib/zan_vrrp_libTargets.cmake
./lib/libzan_vrrp_lib.a
./lib/libzan_vrrp_lib.so
./lib/libzan_vrrp_lib.so.${version%%.*}
./lib/libzan_vrrp_lib.so.$version
./lib/pkgconfig/zan_vrrp_lib.pc
LIST
if ! diff -u "$work/plain.want" "$work/plain.txt"; then
  echo "package: the plain install differs from the list above" >&2
  exit 1
fi
soname=$(readelf -d "$work/plain/lib/libzan_vrrp_lib.so.$version" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
if [ "$soname" != "libzan_vrrp_lib.so.${version%%.*}" ]; then
  echo "package: SONAME is '$soname'" >&2
  exit 1
fi

# With the host platform, for the consumers to run on.
cmake -S "$src" -B "$build" -DZAN_INSTALL_HOST_PLATFORM=ON >/dev/null
cmake --build "$build" -j2 --target zan_vrrp_lib zan_vrrp_static zan_host_platform_shared >/dev/null
prefix="$work/prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null

cmake -S "$src/tests/package/cmake" -B "$work/cmake" "${cross[@]}" -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_EXE_LINKER_FLAGS="${ldflags[*]}" -Dzan_vrrp_lib_DIR="$prefix/lib/cmake/zan_vrrp_lib" >/dev/null
cmake --build "$work/cmake" >/dev/null
PKG_CONFIG_LIBDIR="$prefix/lib/pkgconfig" make -s -f "$src/tests/package/make/Makefile" \
  APP="$src/tests/package/app.c" OUT="$work/consumer_make" CC="$cc" LDFLAGS="${ldflags[*]}"

export LD_LIBRARY_PATH="$prefix/lib"
for app in "$work/cmake/consumer_shared" "$work/cmake/consumer_static" "$work/consumer_make"; do
  out=$("${run[@]}" "$app") || { echo "package: $(basename "$app") failed" >&2; exit 1; }
  echo "$(basename "$app"): $out"
done
