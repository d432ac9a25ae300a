#!/usr/bin/env bash
# applyChanges against its peer and its floor, on a study and on one large object.
#
#   applyChanges  applyChanges -d (or -o) with a KqR file setting PatientName and PatientID at
#                 study level: load, edit, save, verify every object, fsync, rename.
#   peer          dcmodify -nb -i ... <files> && sync -f <dir>: the same edit, in place, made
#                 durable once, without verification.
#   floor         durableCopy: every object read, written to a temporary file, fsynced and
#                 renamed over itself, without any DICOM work.
#
# Data (made once, deterministic, cached in $KQ_BENCH_CACHE, default /tmp/kq-bench-cache):
# a study of 300 CT images of 512x512 16-bit samples and a multi-frame object of 2048 such
# frames (1 GiB of pixel data). Every timed run works on a fresh copy, flushed to disk before
# the clock starts and removed afterwards; each figure is the median of $RUNS runs (default
# 5), the tools taking turns. Also reported: the peak resident memory of applyChanges -o on
# the large object over its size, and the comparator's Google Benchmark (bench_objdiff).
#
# Targets: applyChanges at most 1.0x the peer on the study; peak memory at most 1.15x the
# large object. Exit status 0 when both are met, 1 when one is not, 2 on a failure.
#
# Environment: BUILD_DIR (default build-bench, a Release build), KQ_BENCH_CACHE, RUNS,
# KQ_BENCH_MICRO=0 to skip the Google Benchmark.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
kq_install_packages time

build=${BUILD_DIR:-build-bench}
cache=${KQ_BENCH_CACHE:-/tmp/kq-bench-cache}
runs=${RUNS:-5}
images=300
frames=2048
data_version="makeBenchData-1 $images $frames"

fail() {
  echo "bench: $*" >&2
  exit 2
}

echo "== build ($build, Release)"
kq_build "$build" -DCMAKE_BUILD_TYPE=Release
bin=$PWD/$build/bin
for program in applyChanges makeKqR makeBenchData durableCopy; do
  [ -x "$bin/$program" ] || fail "$bin/$program was not built"
done

# Space: the cached data (1.2 GB) and, during a run, a copy of the large object with its
# temporary file (2.2 GB).
mkdir -p "$cache"
df -h /work /tmp "$cache" 2>/dev/null | awk '!seen[$0]++'
free_kb=$(df -Pk "$cache" | awk 'NR == 2 { print $4 }')
need_kb=$((4 * 1024 * 1024))
[ -f "$cache/stamp" ] || need_kb=$((need_kb + 1300 * 1024))
[ "$free_kb" -ge "$need_kb" ] || fail "not enough space under $cache ($((free_kb / 1024)) MB free, $((need_kb / 1024)) MB needed)"

if [ "$(cat "$cache/stamp" 2>/dev/null)" != "$data_version" ]; then
  echo "== generating the benchmark data in $cache"
  rm -rf "$cache/study" "$cache/large.dcm" "$cache/edit.kqr" "$cache/stamp"
  "$bin/makeBenchData" study "$cache/study" "$images"
  "$bin/makeBenchData" multiframe "$cache/large.dcm" "$frames"
  "$bin/makeKqR" -m "PatientName=Edited^Bench" -m "PatientID=EDIT0001" "$cache/edit.kqr"
  echo "$data_version" >"$cache/stamp"
fi
large_bytes=$(stat -c %s "$cache/large.dcm")
study_bytes=$(du -sb "$cache/study" | cut -f1)

work=$(mktemp -d "$cache/run.XXXXXX")
trap 'rm -rf "$work"' EXIT

# A fresh copy of the study or of the large object in $work/data, on disk before timing.
fresh() {
  rm -rf "$work/data"
  mkdir "$work/data"
  if [ "$1" = study ]; then
    cp -r "$cache/study/." "$work/data/"
  else
    cp "$cache/large.dcm" "$work/data/large.dcm"
  fi
  sync -f "$work/data"
}

# Runs one tool on the fresh copy; appends "<seconds> <max RSS KB>" to $work/<tool>.<set>.
timed() {
  local tool=$1 set=$2
  local target=$work/data
  [ "$set" = large ] && target=$work/data/large.dcm
  local -a command
  case $tool in
    applyChanges)
      if [ "$set" = study ]; then command=("$bin/applyChanges" -p "$cache/edit.kqr" -d "$target")
      else command=("$bin/applyChanges" -p "$cache/edit.kqr" -o "$target"); fi ;;
    peer)
      command=(sh -c 'dcmodify -nb -i "(0010,0010)=Edited^Bench" -i "(0010,0020)=EDIT0001" "$@" >/dev/null && sync -f "$0"'
               "$work/data")
      if [ "$set" = study ]; then command+=("$work"/data/IM*); else command+=("$target"); fi ;;
    floor)
      if [ "$set" = study ]; then command=("$bin/durableCopy" -d "$target")
      else command=("$bin/durableCopy" "$target"); fi ;;
  esac
  /usr/bin/time -f "%e %M" -o "$work/time" "${command[@]}" || fail "$tool failed on the $set"
  cat "$work/time" >>"$work/$tool.$set"
  if [ "$tool" != floor ]; then
    local probe=$work/data/IM0150
    [ "$set" = large ] && probe=$target
    dcmdump +P 0010,0020 "$probe" | grep -q EDIT0001 || fail "$tool did not edit the $set"
  fi
}

median() {
  sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}

for set in study large; do
  echo "== $set: $runs runs of each tool"
  for ((r = 1; r <= runs; ++r)); do
    for tool in applyChanges peer floor; do
      fresh "$set"
      timed "$tool" "$set"
    done
    printf '   run %d: applyChanges %s s, peer %s s, floor %s s\n' "$r" \
      "$(tail -1 "$work/applyChanges.$set" | cut -d' ' -f1)" "$(tail -1 "$work/peer.$set" | cut -d' ' -f1)" \
      "$(tail -1 "$work/floor.$set" | cut -d' ' -f1)"
  done
  rm -rf "$work/data"
done

# Peak memory of applyChanges -o on the large object: the largest of its runs, measured
# once more with /usr/bin/time -v as its "Maximum resident set size".
fresh large
/usr/bin/time -v "$bin/applyChanges" -p "$cache/edit.kqr" -o "$work/data/large.dcm" 2>"$work/verbose" ||
  fail "applyChanges -o failed on the large object"
rm -rf "$work/data"
peak_kb=$(sed -n 's/.*Maximum resident set size (kbytes): //p' "$work/verbose")
for k in $(cut -d' ' -f2 "$work/applyChanges.large"); do
  [ "$k" -gt "$peak_kb" ] && peak_kb=$k
done

echo
echo "== results ($(date -u '+%Y-%m-%d %H:%M UTC'), $(nproc) CPUs, $(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -1))"
printf '%-8s %10s %14s %8s %8s %12s %12s %10s\n' set size applyChanges peer floor applyC/peer applyC/floor peer/floor
for set in study large; do
  a=$(cut -d' ' -f1 "$work/applyChanges.$set" | median)
  p=$(cut -d' ' -f1 "$work/peer.$set" | median)
  f=$(cut -d' ' -f1 "$work/floor.$set" | median)
  size=$study_bytes
  [ "$set" = large ] && size=$large_bytes
  awk -v set="$set" -v size="$size" -v a="$a" -v p="$p" -v f="$f" 'BEGIN {
    printf "%-8s %7.0f MB %12.2f s %6.2f s %6.2f s %12.2f %12.2f %10.2f\n", set, size / 1e6, a, p, f, a / p, a / f, p / f }'
  echo "$a $p" >"$work/ratio.$set"
done
awk -v kb="$peak_kb" -v size="$large_bytes" 'BEGIN {
  printf "peak memory of applyChanges -o on the large object: %.0f MB = %.3f x its size (%.0f MB)\n",
         kb * 1024 / 1e6, kb * 1024 / size, size / 1e6 }'

status=0
read -r a p <"$work/ratio.study"
if awk -v a="$a" -v p="$p" 'BEGIN { exit !(a <= p) }'; then
  echo "target met:     applyChanges at most 1.0x the durable peer on the study"
else
  echo "target NOT met: applyChanges at most 1.0x the durable peer on the study"
  status=1
fi
if awk -v kb="$peak_kb" -v size="$large_bytes" 'BEGIN { exit !(kb * 1024 <= 1.15 * size) }'; then
  echo "target met:     peak memory at most 1.15x the largest object"
else
  echo "target NOT met: peak memory at most 1.15x the largest object"
  status=1
fi

if [ "${KQ_BENCH_MICRO:-1}" != 0 ] && [ -x "$bin/bench_objdiff" ]; then
  echo
  echo "== comparator on large binary values (bench_objdiff)"
  "$bin/bench_objdiff" "$work" 2>&1 | grep -v '^\*\*\*WARNING'
fi
exit $status
