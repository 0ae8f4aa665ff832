#!/usr/bin/env bash
# Builds the libFuzzer targets (preset fuzz: clang, AddressSanitizer, UndefinedBehaviorSanitizer,
# in build/fuzz) and runs each for SECONDS (default 60) on a copy of its corpus in fuzz/corpus/,
# one fuzzer process at a time. Prints the executions and coverage of each run; exits non-zero
# when a target crashes (the reproducer is left in build/fuzz/crashes/<target>/).
# Usage: scripts/fuzz.sh [SECONDS]
set -euo pipefail
cd "$(dirname "$0")/.."

secs="${1:-60}"
case "$secs" in
  '' | *[!0-9]*) echo "usage: $0 [SECONDS]" >&2; exit 2 ;;
esac

scripts/deps.sh fuzz
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

root="$(pwd)"
targets=(fuzz_component fuzz_script)
status=0
for t in "${targets[@]}"; do
  bin="$root/build/fuzz/fuzz/$t"
  # New inputs go to a scratch copy: the corpus in the repository only changes by a merge.
  work="$root/build/fuzz/corpus/$t"
  crashes="$root/build/fuzz/crashes/$t"
  # With -jobs the fuzzing process is a child writing fuzz-0.log into the current folder.
  run="$root/build/fuzz/run/$t"
  rm -rf "$work"
  mkdir -p "$work" "$crashes" "$run"
  cp fuzz/corpus/"$t"/* "$work"/
  log="$root/build/fuzz/$t.log"
  dict=()
  [ -f "fuzz/$t.dict" ] && dict=(-dict="$root/fuzz/$t.dict")
  echo "== $t: ${secs}s"
  set +e
  (cd "$run" && "$bin" -max_total_time="$secs" -jobs=1 -workers=1 -max_len=2048 -timeout=10 -rss_limit_mb=2048 \
    -print_final_stats=1 -artifact_prefix="$crashes/" "${dict[@]}" "$work") >"$log" 2>&1
  rc=$?
  set -e
  # The last status line: executions, coverage (cov) and features (ft).
  grep -E '^#[0-9]+' "$log" | tail -n 1 || true
  grep -E '^stat::(number_of_executed_units|average_exec_per_sec|peak_rss_mb)' "$log" | awk '!seen[$0]++' || true
  if [ "$rc" -ne 0 ]; then
    echo "$t FAILED (exit $rc); log: $log" >&2
    grep -E 'ERROR|SUMMARY|invariant broken|runner fault|Test unit written' "$log" >&2 || tail -n 40 "$log" >&2
    status=1
  fi
done
exit "$status"
