#!/usr/bin/env bash
# applyChanges against its peer and its floor, on a study and on one large object, on the
# working file system and on a fresh journaled ext4; how time grows with the study; the archive
# script over many studies.
#
#   applyChanges  applyChanges -d (or -o) with a KqR file setting PatientName and PatientID at
#                 study level: load, edit, save, verify every object, make it durable, replace.
#   peer          dcmodify -nb -i ... <files> && sync -f <dir>: the same edit, in place, made
#                 durable once, without verification.
#   floor         durableCopy: every object read, written to a temporary file, fsynced and
#                 renamed over itself, without any DICOM work.
#
# Data (made once, deterministic, cached in $KQ_BENCH_CACHE, default /tmp/kq-bench-cache): a
# study of 300 CT images of 512x512 16-bit samples, one of 3,000, a multi-frame object of 2048
# such frames (1 GiB of pixel data). Every timed run works on a fresh copy, flushed to disk
# before the clock starts and removed afterwards. Each figure is the median of $RUNS runs
# (default 5), the three tools taking turns in a rotating order; each ratio is reported with its
# spread (minimum, median, maximum of the ratios of runs of the same round).
#
# Targets: applyChanges at most 1.0x the peer on the study, on both file systems; at most 1.05x
# the floor on the large object; peak memory at most 1.05x the large object; the 3,000-object
# study's time per object within 10% of the 300-object study's. Exit status 0 when all are met,
# 1 when one is not, 2 on a failure.
#
# Environment: BUILD_DIR (default build-bench, a Release build), KQ_BENCH_CACHE, RUNS,
# KQ_BENCH_LOOP=0 to skip the journaled ext4 (it needs root and a loop device).
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
kq_install_packages time parallel

build=${BUILD_DIR:-build-bench}
cache=${KQ_BENCH_CACHE:-/tmp/kq-bench-cache}
runs=${RUNS:-5}
data_version="makeBenchData-2 300 3000 2048"

fail() {
  echo "bench-applychanges: $*" >&2
  exit 2
}

echo "== build ($build, Release)"
kq_build "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
bin=$PWD/$build/bin
for program in applyChanges makeKqR makeBenchData durableCopy; do
  [ -x "$bin/$program" ] || fail "$bin/$program was not built"
done

mkdir -p "$cache"
free_kb=$(df -Pk "$cache" | awk 'NR == 2 { print $4 }')
[ "$free_kb" -ge $((8 * 1024 * 1024)) ] || fail "not enough space under $cache ($((free_kb / 1024)) MB free, 8 GB needed)"
if [ "$(cat "$cache/stamp" 2>/dev/null)" != "$data_version" ]; then
  echo "== generating the benchmark data in $cache"
  rm -rf "$cache/study" "$cache/study3000" "$cache/large.dcm" "$cache/edit.kqr" "$cache/stamp"
  "$bin/makeBenchData" study "$cache/study" 300
  "$bin/makeBenchData" study "$cache/study3000" 3000
  "$bin/makeBenchData" multiframe "$cache/large.dcm" 2048
  "$bin/makeKqR" -m "PatientName=Edited^Bench" -m "PatientID=EDIT0001" "$cache/edit.kqr"
  echo "$data_version" >"$cache/stamp"
fi
large_bytes=$(stat -c %s "$cache/large.dcm")

results=$(mktemp -d "$cache/results.XXXXXX")
loop_mount=
cleanup() {
  [ -n "$loop_mount" ] && umount "$loop_mount" 2>/dev/null
  rm -rf "$results"
}
trap cleanup EXIT

# A fresh copy of a data set in <dir>/data, on disk before timing.
fresh() {
  local dir=$1 set=$2
  rm -rf "$dir/data"
  mkdir "$dir/data"
  case $set in
    large) cp "$cache/large.dcm" "$dir/data/large.dcm" ;;
    *) cp -r "$cache/$set/." "$dir/data/" ;;
  esac
  sync -f "$dir/data"
}

# Runs one tool on the fresh copy in <dir>/data; prints "<seconds> <max RSS KB>".
timed() {
  local dir=$1 tool=$2 set=$3
  local target=$dir/data
  [ "$set" = large ] && target=$dir/data/large.dcm
  local -a command
  case $tool in
    applyChanges)
      if [ "$set" = large ]; then command=("$bin/applyChanges" -p "$cache/edit.kqr" -o "$target")
      else command=("$bin/applyChanges" -p "$cache/edit.kqr" -d "$target"); fi ;;
    peer)
      command=(sh -c 'dcmodify -nb -i "(0010,0010)=Edited^Bench" -i "(0010,0020)=EDIT0001" "$@" >/dev/null && sync -f "$0"'
               "$dir/data")
      if [ "$set" = large ]; then command+=("$target"); else command+=("$dir"/data/IM*); fi ;;
    floor)
      if [ "$set" = large ]; then command=("$bin/durableCopy" "$target")
      else command=("$bin/durableCopy" -d "$target"); fi ;;
  esac
  /usr/bin/time -f "%e %M" -o "$results/time" "${command[@]}" || fail "$tool failed on the $set in $dir"
  if [ "$tool" != floor ]; then
    local probe=$dir/data/IM0150
    [ "$set" = large ] && probe=$target
    dcmdump +P 0010,0020 "$probe" | grep -q EDIT0001 || fail "$tool did not edit the $set in $dir"
  fi
  cat "$results/time"
}

median() {
  sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}
spread() { # min median max of the numbers on standard input
  sort -n | awk '{ v[NR] = $1 } END { m = (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2
                                      printf "%.2f %.2f %.2f", v[1], m, v[NR] }'
}

# Rounds of the three tools on one data set in one directory; keeps the times per tool and the
# ratios of each round in $results/<label>.*
compare() {
  local label=$1 dir=$2 set=$3
  local tools=(applyChanges peer floor)
  echo "== $label: $runs rounds"
  for ((r = 0; r < runs; ++r)); do
    declare -A took=()
    for ((k = 0; k < 3; ++k)); do
      local tool=${tools[$(((r + k) % 3))]}
      fresh "$dir" "$set"
      timed "$dir" "$tool" "$set" >"$results/last"
      read -r seconds rss <"$results/last"
      took[$tool]=$seconds
      echo "$seconds" >>"$results/$label.$tool"
      [ "$tool" = applyChanges ] && echo "$rss" >>"$results/$label.rss"
    done
    awk -v a="${took[applyChanges]}" -v p="${took[peer]}" 'BEGIN { printf "%.4f\n", a / p }' >>"$results/$label.vspeer"
    awk -v a="${took[applyChanges]}" -v f="${took[floor]}" 'BEGIN { printf "%.4f\n", a / f }' >>"$results/$label.vsfloor"
    printf '   round %d: applyChanges %s s, peer %s s, floor %s s\n' $((r + 1)) "${took[applyChanges]}" \
      "${took[peer]}" "${took[floor]}"
    unset took
  done
  rm -rf "$dir/data"
}

report() {
  local label=$1
  printf '%-22s %8.2f s %8.2f s %8.2f s   %-16s %-16s\n' "$label" \
    "$(median <"$results/$label.applyChanges")" "$(median <"$results/$label.peer")" \
    "$(median <"$results/$label.floor")" "$(spread <"$results/$label.vspeer")" "$(spread <"$results/$label.vsfloor")"
}

work=$(mktemp -d "$cache/run.XXXXXX")
trap 'cleanup; rm -rf "$work"' EXIT
fs_label() { findmnt -no FSTYPE,OPTIONS -T "$1" | awk '{ print $1 " (" $2 ")" }'; }
echo "== working file system: $(fs_label "$work")"
compare study-working "$work" study
compare large-working "$work" large

filesystems="working"
if [ "${KQ_BENCH_LOOP:-1}" != 0 ] && [ "$(id -u)" -eq 0 ] && command -v mkfs.ext4 >/dev/null; then
  image=$cache/ext4.img
  rm -f "$image"
  truncate -s 8G "$image"
  if mkfs.ext4 -q -F "$image" && mkdir -p "$work/loop" && mount -o loop "$image" "$work/loop"; then
    loop_mount=$work/loop
    echo "== fresh journaled ext4 on a loop device: $(fs_label "$loop_mount")"
    compare study-journaled "$loop_mount" study
    compare large-journaled "$loop_mount" large
    umount "$loop_mount" && loop_mount=
    filesystems="working journaled"
  else
    echo "== no loop mount possible here: the journaled ext4 is skipped"
  fi
  rm -f "$image"
fi

# How time and memory grow with the study: applyChanges on 300 and 3,000 objects.
echo "== 3,000-object study: 3 runs"
for ((r = 0; r < 3; ++r)); do
  fresh "$work" study3000
  timed "$work" applyChanges study3000 >"$results/last"
  cat "$results/last" >>"$results/study3000"
  printf '   run %d: applyChanges %s s, peak memory %s KB\n' $((r + 1)) $(cat "$results/last")
done
rm -rf "$work/data"

# The archive script over 20 studies of 30 objects, with 1 and 2 jobs.
echo "== archive script: 20 studies of 30 objects"
archive_runs() {
  local jobs=$1
  rm -rf "$work/archive"
  mkdir -p "$work/archive"
  : >"$work/archive/manifest"
  for ((s = 1; s <= 20; ++s)); do
    mkdir "$work/archive/s$s"
    ls "$cache/study" | head -30 | sed "s|^|$cache/study/|" | xargs cp -t "$work/archive/s$s"
    printf '%s\t%s\n' "$cache/edit.kqr" "$work/archive/s$s" >>"$work/archive/manifest"
  done
  sync -f "$work/archive"
  /usr/bin/time -f "%e" -o "$results/time" scripts/apply-archive.sh -q -j "$jobs" -b "$bin/applyChanges" \
    -l "$work/archive/joblog" "$work/archive/manifest" >/dev/null || fail "the archive script failed"
  cat "$results/time"
}
for jobs in 1 2; do
  for ((r = 0; r < 3; ++r)); do archive_runs "$jobs" >>"$results/archive.$jobs"; done
done
rm -rf "$work/archive"

echo
echo "== results ($(date -u '+%Y-%m-%d %H:%M UTC'), $(nproc) CPUs, $(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -1), $(uname -r))"
printf '%-22s %10s %10s %10s   %-16s %-16s\n' set applyChanges peer floor "/peer min med max" "/floor min med max"
for fs in $filesystems; do
  report "study-$fs"
  report "large-$fs"
done
per300=$(median <"$results/study-working.applyChanges" | awk '{ printf "%.3f", $1 / 300 * 1000 }')
per3000=$(cut -d' ' -f1 "$results/study3000" | median | awk '{ printf "%.3f", $1 / 3000 * 1000 }')
rss300=$(sort -n "$results/study-working.rss" | tail -1)
rss3000=$(cut -d' ' -f2 "$results/study3000" | sort -n | tail -1)
printf 'time per object: %s ms (300 objects), %s ms (3,000 objects); peak memory %d MB and %d MB\n' \
  "$per300" "$per3000" $((rss300 / 1024)) $((rss3000 / 1024))
printf 'archive script, 20 studies of 30 objects: %s s with 1 job, %s s with 2 jobs\n' \
  "$(median <"$results/archive.1")" "$(median <"$results/archive.2")"
peak_kb=$(sort -n "$results/large-working.rss" | tail -1)
awk -v kb="$peak_kb" -v size="$large_bytes" 'BEGIN {
  printf "peak memory of applyChanges -o on the large object: %.0f MB = %.3f x its size (%.0f MB)\n",
         kb * 1024 / 1e6, kb * 1024 / size, size / 1e6 }'

status=0
check() { # <condition awk expression> <text>
  if awk "BEGIN { exit !($1) }"; then echo "target met:     $2"; else echo "target NOT met: $2"; status=1; fi
}
for fs in $filesystems; do
  check "$(median <"$results/study-$fs.vspeer") <= 1.0" "applyChanges at most 1.0x the durable peer on the study ($fs)"
  check "$(median <"$results/large-$fs.vsfloor") <= 1.05" "applyChanges at most 1.05x the floor on the large object ($fs)"
done
check "$peak_kb * 1024 <= 1.05 * $large_bytes" "peak memory at most 1.05x the largest object"
check "$per3000 <= 1.10 * $per300" "time per object of 3,000 objects within 10% of 300 objects'"
exit $status
