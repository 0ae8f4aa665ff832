#!/usr/bin/env bash
# Instruction counts of the library's main operations under callgrind, at 1k, 10k, 100k and 1M
# items or parts, in one table: instructions per operation for each size, the growth from the
# smallest to the largest size, and the ratio to the baseline of the row. Release build in
# build/bench (also builds the Google Benchmark programs, whose times are noisy here).
# Then the wall time of the live simulation (the main job) as the deployment grows: data per
# group from 1,000 to 64,000, items per group from 125 to 8,000, the same at 5% loss, and a large
# router's run; one run each, with the growth at every doubling.
# Usage: scripts/bench.sh [--no-sim | --sim-only] [SIZE...]   (default 1000 10000 100000 1000000)
# Rows marked "library" count the library alone, without the host platform's services (whose
# memory service, for one, keeps books on every block); the others count everything.
set -euo pipefail
cd "$(dirname "$0")/.."

counts=1
simulation=1
sizes=()
for a in "$@"; do
  case "$a" in
    --no-sim) simulation=0 ;;
    --sim-only) counts=0 ;;
    '' | *[!0-9]*) echo "usage: $0 [--no-sim | --sim-only] [SIZE...]" >&2; exit 2 ;;
    *) sizes+=("$a") ;;
  esac
done
[ "${#sizes[@]}" -gt 0 ] || sizes=(1000 10000 100000 1000000)

scripts/deps.sh
command -v valgrind >/dev/null || { echo "valgrind is needed (apt-get install valgrind)" >&2; exit 1; }
cmake -S . -B build/bench -DCMAKE_BUILD_TYPE=Release -DZAN_BUILD_TESTS=OFF -DZAN_BUILD_BENCH=ON >/dev/null
cmake --build build/bench -j2 --target zan_costs zan_bench zanvrrp-sim >/dev/null

if [ "$counts" = 1 ]; then

bin=build/bench/bench/zan_costs
out=build/bench/callgrind
rm -rf "$out"
mkdir -p "$out"

# run SCENARIO N: every phase's instructions per operation, as "PHASE N VALUE" lines in $out/all.
run() {
  local scen="$1" n="$2" dir="$out/$1.$2"
  mkdir -p "$dir"
  # recv takes N messages of 145 records: a tenth of the size keeps the record count comparable
  local arg="$n"
  [ "$scen" = recv ] && arg=$(( n / 10 > 0 ? n / 10 : 1 ))
  valgrind --tool=callgrind --callgrind-out-file="$dir/cg.%p" "$bin" "$scen" "$arg" \
    >"$dir/ops" 2>"$dir/log" || { cat "$dir/log" >&2; echo "zan_costs $scen $arg failed" >&2; exit 1; }
  for f in "$dir"/cg.*; do
    local phase ir lib ops
    phase=$(sed -n 's/^desc: Trigger: Client Request: //p' "$f")
    [ -n "$phase" ] || continue
    ir=$(sed -n 's/^summary: *\([0-9]*\).*/\1/p' "$f")
    # The library alone: the inclusive cost of its entry points (the API call, or the message
    # handler the platform calls), less the platform's services they call (memory, messages,
    # instance table, framework) and the application's callback. The platform's tree stays in:
    # its descent is the work a map would do.
    lib=$(callgrind_annotate --inclusive=yes --threshold=100 "$f" | awk '
      { gsub(",", "", $1) }
      /:(ZAN_VrrpAdp_ProcMsg_|ZAN_VrrpAdp_Subscribe|ZAN_VrrpAdp_UnSubscribe|ZAN_VrrpAdp_SendData)[( ]/ { entry += $1 }
      /:(KOL_|MSG_|ZAN_CompAdp_|ZAN_Frame_)[A-Za-z_]* / { plat += $1 }
      /CountData\(/ { app += $1 }
      END { if (entry > 0) print entry - plat - app }')
    ops=$(awk -v p="$phase" '$1 == p { print $2 }' "$dir/ops")
    echo "$phase $n $(awk -v a="$ir" -v b="$ops" 'BEGIN { printf "%.1f", a / b }')" >>"$out/all"
    [ -z "$lib" ] || echo "$phase.lib $n $(awk -v a="$lib" -v b="$ops" 'BEGIN { printf "%.1f", a / b }')" >>"$out/all"
  done
  awk '/^bytes_per/ { print $1, n, $2 }' n="$n" "$dir/ops" >>"$out/all"
}

touch "$out/all"
for n in "${sizes[@]}"; do
  for scen in subscribe unsubscribe senddata prodround map recv; do
    echo "callgrind: $scen $n" >&2
    run "$scen" "$n"
  done
done

# Rows: label, phase, baseline phase (or -).
python3 - "$out/all" "${sizes[@]}" <<'EOF'
import sys
path, sizes = sys.argv[1], sys.argv[2:]
v = {}
for line in open(path):
    phase, n, val = line.split()
    v[(phase, n)] = float(val)
rows = [
    ("subscribe flush + acknowledgements", "PhaseSubFlush", None),
    ("unsubscribe flush + acknowledgements", "PhaseUnSubFlush", None),
    ("ZAN_VrrpAdp_Subscribe call", "PhaseSubCall", "PhaseMapSub"),
    ("  library", "PhaseSubCall.lib", "PhaseMapSub"),
    ("ZAN_VrrpAdp_UnSubscribe call", "PhaseUnSubCall", "PhaseMapSub"),
    ("  library", "PhaseUnSubCall.lib", "PhaseMapSub"),
    ("SendData, new key", "PhaseSendNew", "PhaseMapPart"),
    ("  library", "PhaseSendNew.lib", "PhaseMapPart"),
    ("SendData, same key with changed data", "PhaseSendData", "PhaseMapPart"),
    ("  library", "PhaseSendData.lib", "PhaseMapPart"),
    ("SendData -> RNData -> ack, per part", "PhaseProdRound", None),
    ("std::map insert, 32-byte item keys", "PhaseMapSub", None),
    ("std::map insert, 16-byte part keys", "PhaseMapPart", None),
    ("receive path per record, library", "PhaseRecv.lib", "PhaseCopyRec"),
    ("  same, to one memcpy per message", "PhaseRecv.lib", "PhaseCopyMsg"),
    ("memcpy of each 28-byte record", "PhaseCopyRec", None),
    ("memcpy of each message, per record", "PhaseCopyMsg", None),
    ("bytes requested per item (host)", "bytes_per_item", None),
    ("bytes requested per part (host)", "bytes_per_part", None),
]
first, last = sizes[0], sizes[-1]
def num(x):
    return "-" if x is None else (f"{x:,.0f}" if x >= 100 else f"{x:.1f}")
head = ["instructions per operation"] + [f"{int(s):,}" for s in sizes] + [f"{int(first):,} -> {int(last):,}", "to baseline (largest)"]
print("| " + " | ".join(head) + " |")
print("|" + "---|" * len(head))
for label, phase, base in rows:
    cells = [v.get((phase, s)) for s in sizes]
    growth = "-"
    if cells[0] and cells[-1]:
        growth = f"{cells[-1] / cells[0]:.2f}x"
    ratio = "-"
    if base and v.get((base, last)) and cells[-1]:
        ratio = f"{cells[-1] / v[(base, last)]:.2f}x"
    print("| " + " | ".join([label] + [num(c) for c in cells] + [growth, ratio]) + " |")
EOF
fi

[ "$simulation" = 1 ] || exit 0

# The live simulation's wall time. The data and item series run without losses: every message
# of a batch must arrive, so at a loss rate the number of tries a batch takes grows with its
# size (the third table shows it), and that is the protocol's cost, not the simulation's.
echo >&2 "live simulation series (a few minutes)"
python3 - build/bench/tools/zanvrrp-sim/zanvrrp-sim <<'EOF'
import re, resource, subprocess, sys, time
sim = sys.argv[1]

def run(args):
    before = resource.getrusage(resource.RUSAGE_CHILDREN).ru_utime
    start = time.perf_counter()
    p = subprocess.run([sim, "run"] + args, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    wall = time.perf_counter() - start
    user = resource.getrusage(resource.RUSAGE_CHILDREN).ru_utime - before
    verdict = re.search(r"^VERDICT: (.*)$", p.stdout, re.M)
    batches = re.search(r"the application's data (\d+) begun", p.stdout)
    ok = p.returncode == 0 and verdict is not None and verdict.group(1).startswith("converged")
    return wall, user, ok, verdict.group(1) if verdict else "no verdict", int(batches.group(1)) if batches else 0

def series(title, name, values, args, tries=False):
    print()
    print(title)
    print()
    head = [name, "wall time", "user time", "to the previous"] + (["data batches begun"] if tries else []) + ["verdict"]
    print("| " + " | ".join(head) + " |")
    print("|" + "---|" * len(head))
    prev = None
    worst = 0.0
    for v in values:
        print(f"  zanvrrp-sim run {' '.join(args(v))}", file=sys.stderr)
        wall, user, ok, verdict, batches = run(args(v))
        growth = "-" if prev is None else f"{wall / prev:.2f}x"
        if prev is not None:
            worst = max(worst, wall / prev)
        prev = wall
        cells = [f"{v:,}", f"{wall:.2f} s", f"{user:.2f} s", growth] + ([f"{batches:,}"] if tries else [])
        cells.append("converged" if ok else verdict)
        print("| " + " | ".join(cells) + " |")
    if len(values) > 1:
        print(f"\nlargest growth at a doubling: {worst:.2f}x")

common = ["--peers", "4", "--groups", "4", "--duration", "600", "--fc", "--flaps", "--work"]
series("Live simulation, 4 components x 4 groups, 500 items a group, 600 s with flow control, restarts and work-state changes:",
       "data per group", [1000 * 2**k for k in range(7)], lambda n: common + ["--items", "500", "--parts", str(n)])
series("The same with 1,000 data a group:",
       "items per group", [125 * 2**k for k in range(7)], lambda n: common + ["--items", str(n), "--parts", "1000"])
series("At 5% loss, 4 components x 4 groups, 500 items a group, 600 s (a batch's tries grow with its size):",
       "data per group", [500, 1000, 2000, 4000],
       lambda n: ["--peers", "4", "--groups", "4", "--items", "500", "--duration", "600", "--loss", "0.05",
                  "--parts", str(n)],
       tries=True)
series("A large router: 16 components x 8 groups, 2,000 items and 2,000 data a group, 600 s at 1% loss:",
       "components", [16],
       lambda n: ["--peers", str(n), "--groups", "8", "--items", "2000", "--parts", "2000", "--duration", "600",
                  "--loss", "0.01"])
EOF
