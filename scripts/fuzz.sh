#!/usr/bin/env bash
# Builds the libFuzzer targets of fuzz/ with clang (AddressSanitizer and UndefinedBehaviorSanitizer)
# into build-fuzz, writes their seed corpora (from the pydicom corpus, objects and KqR files made
# by fuzz_seeds, and the text seeds in fuzz/seeds) and runs every target for the given number of
# seconds, as many at a time as there are cores. The corpora grow in build-fuzz/corpus from run
# to run; a finding leaves its input in build-fuzz/artifacts and makes the script fail.
#
#   scripts/fuzz.sh [seconds per target, default 60]
#   KQ_FUZZ_TARGETS="fuzz_kqr fuzz_gwav" scripts/fuzz.sh 600    # some targets only
#
# Reproduce a finding with build-fuzz/bin/<target> <artifact>; each one is fixed with a
# regression test in the relevant folder's tests/.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
kq_install_packages "${KQ_FUZZ_PACKAGES[@]}"

seconds=${1:-60}
build=${KQ_FUZZ_BUILD:-build-fuzz}
jobs=$(nproc)
# target and the seed directory it starts from
all_targets=(fuzz_kqr fuzz_compare fuzz_ignoretags fuzz_lossyrates fuzz_jpeg2000 fuzz_imgproc fuzz_gwav)
read -r -a targets <<<"${KQ_FUZZ_TARGETS:-${all_targets[*]}}"
declare -A seedsOf=([fuzz_kqr]=kqr [fuzz_compare]=compare [fuzz_ignoretags]=ignoretags
                    [fuzz_lossyrates]=lossyrates [fuzz_jpeg2000]=jpeg2000
                    [fuzz_imgproc]=imgproc [fuzz_gwav]=gwav)

echo "== build fuzz targets (clang, libFuzzer, AddressSanitizer + UndefinedBehaviorSanitizer)"
CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DKQ_FUZZ=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j"$jobs" --target "${targets[@]}" fuzz_seeds

echo "== seed corpora"
seeds=$build/seeds
rm -rf "$seeds" "$build/tmp" "$build/logs"
mkdir -p "$seeds" "$build/artifacts" "$build/logs"
"$build/bin/fuzz_seeds" "$seeds"
cp -r fuzz/seeds/ignoretags fuzz/seeds/lossyrates "$seeds"/
# the example KqR file, from its dump
dump2dcm examples/KqR.edit.dump "$seeds/kqr/example" >/dev/null 2>&1 || true

run_target() {
  local target=$1
  mkdir -p "$build/corpus/$target" "$build/tmp/$target"
  # Standard output of the targets is closed; libFuzzer and the sanitizers report on standard
  # error. A damaged length field makes the toolkit ask for up to 4 GiB, which it handles when
  # refused: single allocations up to that are allowed, the resident size stays limited.
  TMPDIR="$PWD/$build/tmp/$target" "$build/bin/$target" "$build/corpus/$target" "$seeds/${seedsOf[$target]}" \
    -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2560 -malloc_limit_mb=4200 -close_fd_mask=1 \
    -print_final_stats=1 \
    -artifact_prefix="$PWD/$build/artifacts/$target-" >"$build/logs/$target.log" 2>&1
}

echo "== fuzzing: ${#targets[@]} targets, ${seconds} s each, $jobs at a time"
declare -A pidOf
running=0
for target in "${targets[@]}"; do
  if [ "$running" -ge "$jobs" ]; then
    wait -n || true
    running=$((running - 1))
  fi
  run_target "$target" &
  pidOf[$target]=$!
  running=$((running + 1))
done

failed=0
total=0
for target in "${targets[@]}"; do
  status=0
  wait "${pidOf[$target]}" || status=$?
  log=$build/logs/$target.log
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  runs=${runs:-0}
  total=$((total + runs))
  corpus=$(find "$build/corpus/$target" -type f | wc -l)
  if [ "$status" -ne 0 ]; then
    failed=1
    echo "$target: FINDING after $runs executions (exit status $status); log $log"
    grep -E "ERROR|SUMMARY|invariant|Test unit written" "$log" | head -20 || true
  else
    echo "$target: $runs executions, no finding; corpus $corpus inputs"
  fi
done
rm -rf "$build/tmp"
echo "fuzz executions: $total in total"
exit $failed
