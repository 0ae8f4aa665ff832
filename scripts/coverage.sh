#!/usr/bin/env bash
# The library's coverage under every test: builds the coverage preset (clang 19, the library
# instrumented for source-based coverage with MC/DC), runs all of CTest with each process
# writing its own profile (the sweep's children too), merges them and prints, per library file
# and in total, the lines, branches and MC/DC conditions reached. Writes the HTML report to
# build/coverage/html/. The tests that check exact outcomes (unit tests and conformance scripts)
# run first, into profiles of their own, and their total is printed too: the runs that check
# survival or scale (sweeps, simulations, cost scenarios, the package consumers) must not be
# what reaches a line. Fails when a test fails or either total is below the thresholds below.
# Usage: scripts/coverage.sh [--no-tests]   (--no-tests: report on the profiles already there)
set -euo pipefail
cd "$(dirname "$0")/.."

# What the library's tests reach today: a total below these fails.
min_lines=100.0
min_branches=100.0
min_mcdc=100.0

scripts/deps.sh
scripts/deps.sh coverage
build=build/coverage
profiles="$build/profiles"
runs='^(sweep|sim|bench|package)/'
if [ "${1:-}" != "--no-tests" ]; then
  cmake --preset coverage >/dev/null
  cmake --build --preset coverage
  # the preset has every process write $profiles/PID.profraw
  rm -rf "$profiles"
  mkdir -p "$profiles/exact" "$profiles/runs"
  ctest --preset coverage -E "$runs"
  mv "$profiles"/*.profraw "$profiles/exact/"
  ctest --preset coverage -R "$runs"
  mv "$profiles"/*.profraw "$profiles/runs/"
fi

llvm-profdata-19 merge -sparse "$profiles"/exact/*.profraw -o "$build/exact.profdata"
llvm-profdata-19 merge -sparse "$profiles"/*/*.profraw -o "$build/all.profdata"

# Every program and library of the build that carries the library's coverage mapping.
objects=()
while IFS= read -r f; do
  if readelf -S "$f" 2>/dev/null | grep -q __llvm_covfun; then
    objects+=("$f")
  fi
done < <(find "$build" -type f \( -perm -u+x -o -name '*.so*' \) ! -name '*.o' | sort)
[ ${#objects[@]} -gt 0 ] || { echo "coverage: no instrumented program found in $build" >&2; exit 1; }
args=(-instr-profile="$build/all.profdata" "${objects[0]}")
for o in "${objects[@]:1}"; do
  args+=(-object "$o")
done
sources=()
for d in adp inst prod innerdata; do
  sources+=("$PWD/$d")
done

llvm-cov-19 export "${args[@]}" -format=text -summary-only -show-mcdc-summary "${sources[@]}" >"$build/summary.json"
exact=(-instr-profile="$build/exact.profdata" "${args[@]:1}")
llvm-cov-19 export "${exact[@]}" -format=text -summary-only -show-mcdc-summary "${sources[@]}" >"$build/exact.json"
rm -rf "$build/html"
llvm-cov-19 show "${args[@]}" -format=html -show-branches=count -show-mcdc -show-line-counts-or-regions \
  -output-dir="$build/html" "${sources[@]}"

python3 - "$build/summary.json" "$build/exact.json" "$PWD/" "$min_lines" "$min_branches" "$min_mcdc" <<'PY'
import json, sys
data = json.load(open(sys.argv[1]))["data"][0]
exact = json.load(open(sys.argv[2]))["data"][0]["totals"]
root = sys.argv[3]
mins = [float(x) for x in sys.argv[4:7]]
kinds = [("lines", "lines"), ("branches", "branches"), ("mcdc", "MC/DC conditions")]

def cell(s):
    if s["count"] == 0:
        return "-"
    return "%.1f%% (%d of %d missed)" % (100.0 * s["covered"] / s["count"], s["count"] - s["covered"], s["count"])

print("| file | lines | branches | MC/DC conditions |")
print("|---|---|---|---|")
for f in sorted(data["files"], key=lambda f: f["filename"]):
    s = f["summary"]
    print("| %s | %s | %s | %s |" % (f["filename"].replace(root, ""), cell(s["lines"]), cell(s["branches"]),
                                     cell(s["mcdc"])))
t = data["totals"]
print("| **total** | %s | %s | %s |" % (cell(t["lines"]), cell(t["branches"]), cell(t["mcdc"])))
print("| total, exact-outcome tests alone | %s | %s | %s |" % (cell(exact["lines"]), cell(exact["branches"]),
                                                          cell(exact["mcdc"])))
low = []
for totals, which in ((t, "all tests"), (exact, "exact-outcome tests")):
    for (key, name), m in zip(kinds, mins):
        s = totals[key]
        pct = 100.0 if s["count"] == 0 else 100.0 * s["covered"] / s["count"]
        if pct + 1e-9 < m:
            low.append("%s, %s %.1f%% < %.1f%%" % (which, name, pct, m))
if low:
    print("coverage: below the thresholds: " + ", ".join(low), file=sys.stderr)
    sys.exit(1)
PY
echo "HTML report: $build/html/index.html"
