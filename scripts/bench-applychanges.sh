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
# study of 300 CT images of 512x512 16-bit samples ("study"), studies of 200 and 3,000 small
# images of 40 KB ("small200", "small3000"), a study of mixed sizes ("mixed": 270 small images,
# 30 CT images and a 20 MB multi-frame object), a multi-frame object of 2048 CT frames (1 GiB,
# "large") and, generated for the run and removed after it, an object of 4 GiB of encapsulated
# fragments ("huge"). Every timed run works on a fresh copy, flushed to disk before the clock
# starts and removed afterwards. Each figure is the median of $RUNS rounds (default 5; 3 for the
# 4 GiB object), the three tools taking turns in a rotating order; each ratio is reported with
# its spread (minimum, median, maximum of the ratios of runs of the same round).
#
# Targets: applyChanges at most 0.8x the peer on every study, on both file systems; at most 1.0x
# the floor on the 1 GiB and 4 GiB objects, with a peak memory of at most 64 MB; the 3,000-object
# study's time per object within 10% of the 200-object study's. Exit status 0 when all are met, 1
# when one is not, 2 on a failure.
#
# Environment: BUILD_DIR (default build-bench, a Release build), KQ_BENCH_CACHE, RUNS,
# KQ_BENCH_LOOP=0 to skip the journaled ext4 (it needs root and a loop device), KQ_BENCH_HUGE=0
# to skip the 4 GiB object, KQ_BENCH_PROFILE=1 to add a system-call profile (strace -c -f) of one
# run on each study shape.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
kq_install_packages time parallel strace

build=${BUILD_DIR:-build-bench}
cache=${KQ_BENCH_CACHE:-/tmp/kq-bench-cache}
runs=${RUNS:-5}
data_version="makeBenchData-3 300 small200 small3000 mixed300 2048"

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
[ "$free_kb" -ge $((16 * 1024 * 1024)) ] || fail "not enough space under $cache ($((free_kb / 1024)) MB free, 16 GB needed)"
if [ "$(cat "$cache/stamp" 2>/dev/null)" != "$data_version" ]; then
  echo "== generating the benchmark data in $cache"
  rm -rf "$cache/study" "$cache/study3000" "$cache/small200" "$cache/small3000" "$cache/mixed" "$cache/large.dcm" \
    "$cache/edit.kqr" "$cache/stamp"
  "$bin/makeBenchData" study "$cache/study" 300
  "$bin/makeBenchData" small "$cache/small200" 200
  "$bin/makeBenchData" small "$cache/small3000" 3000
  "$bin/makeBenchData" mixed "$cache/mixed" 300
  "$bin/makeBenchData" multiframe "$cache/large.dcm" 2048
  "$bin/makeKqR" -m "PatientName=Edited^Bench" -m "PatientID=EDIT0001" "$cache/edit.kqr"
  echo "$data_version" >"$cache/stamp"
fi
large_bytes=$(stat -c %s "$cache/large.dcm")
huge=0
if [ "${KQ_BENCH_HUGE:-1}" != 0 ]; then
  echo "== generating the 4 GiB object"
  "$bin/makeBenchData" encapsulated "$cache/huge.dcm" 4096 || fail "cannot write the 4 GiB object"
  huge=1
fi

results=$(mktemp -d "$cache/results.XXXXXX")
loop_mount=
cleanup() {
  [ -n "$loop_mount" ] && umount "$loop_mount" 2>/dev/null
  rm -rf "$results" "$cache/huge.dcm"
}
trap cleanup EXIT

# A fresh copy of a data set in <dir>/data, on disk before timing.
fresh() {
  local dir=$1 set=$2
  rm -rf "$dir/data"
  mkdir "$dir/data"
  case $set in
    large | huge) cp "$cache/$set.dcm" "$dir/data/object.dcm" ;;
    *) cp -r "$cache/$set/." "$dir/data/" ;;
  esac
  sync -f "$dir/data"
}

# Runs one tool on the fresh copy in <dir>/data; prints "<seconds> <max RSS KB>".
timed() {
  local dir=$1 tool=$2 set=$3
  local target=$dir/data
  single() { [ "$set" = large ] || [ "$set" = huge ]; }
  single && target=$dir/data/object.dcm
  local -a command
  case $tool in
    applyChanges)
      if single; then command=("$bin/applyChanges" -p "$cache/edit.kqr" -o "$target")
      else command=("$bin/applyChanges" -p "$cache/edit.kqr" -d "$target"); fi ;;
    peer)
      command=(sh -c 'dcmodify -nb -i "(0010,0010)=Edited^Bench" -i "(0010,0020)=EDIT0001" "$@" >/dev/null && sync -f "$0"'
               "$dir/data")
      if single; then command+=("$target"); else command+=("$dir"/data/*); fi ;;
    floor)
      if single; then command=("$bin/durableCopy" "$target")
      else command=("$bin/durableCopy" -d "$target"); fi ;;
  esac
  /usr/bin/time -f "%e %M" -o "$results/time" "${command[@]}" || fail "$tool failed on the $set in $dir"
  if [ "$tool" != floor ]; then
    local probe=$dir/data/IM0150
    single && probe=$target
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
  local label=$1 dir=$2 set=$3 rounds=${4:-$runs}
  local tools=(applyChanges peer floor)
  echo "== $label: $rounds rounds"
  for ((r = 0; r < rounds; ++r)); do
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
    awk -v a="${took[applyChanges]}" -v p="${took[peer]}" 'BEGIN { printf "%.4f\n", a / (p > 0 ? p : 0.01) }' \
      >>"$results/$label.vspeer"
    awk -v a="${took[applyChanges]}" -v f="${took[floor]}" 'BEGIN { printf "%.4f\n", a / (f > 0 ? f : 0.01) }' \
      >>"$results/$label.vsfloor"
    printf '   round %d: applyChanges %s s, peer %s s, floor %s s\n' $((r + 1)) "${took[applyChanges]}" \
      "${took[peer]}" "${took[floor]}"
    unset took
  done
  rm -rf "$dir/data"
}

report() {
  local label=$1
  [ -f "$results/$label.applyChanges" ] || return 0
  printf '%-22s %8.2f s %8.2f s %8.2f s   %-16s %-16s %6d MB\n' "$label" \
    "$(median <"$results/$label.applyChanges")" "$(median <"$results/$label.peer")" \
    "$(median <"$results/$label.floor")" "$(spread <"$results/$label.vspeer")" "$(spread <"$results/$label.vsfloor")" \
    $(($(sort -n "$results/$label.rss" | tail -1) / 1024))
}

# Every data set on the file system under dir, labelled <set>-<fs>.
compare_all() {
  local fs=$1 dir=$2
  for set in study small200 small3000 mixed large; do compare "$set-$fs" "$dir" "$set"; done
  [ "$huge" = 1 ] && compare "huge-$fs" "$dir" huge 3
  return 0
}

# Where the time of one run goes: the system calls of applyChanges on a fresh copy of each study.
profile() {
  local dir=$1
  for set in study small3000 mixed; do
    fresh "$dir" "$set"
    echo "== system-call profile of applyChanges on $set (strace -c -f, top 8)"
    strace -c -f -o "$results/strace" "$bin/applyChanges" -p "$cache/edit.kqr" -d "$dir/data" >/dev/null 2>&1
    sed -n '1,2p;3,10p' "$results/strace"
  done
  rm -rf "$dir/data"
}

work=$(mktemp -d "$cache/run.XXXXXX")
trap 'cleanup; rm -rf "$work"' EXIT
fs_label() { findmnt -no FSTYPE,OPTIONS -T "$1" | awk '{ print $1 " (" $2 ")" }'; }
echo "== working file system: $(fs_label "$work")"
compare_all working "$work"
[ "${KQ_BENCH_PROFILE:-0}" = 1 ] && profile "$work"

filesystems="working"
if [ "${KQ_BENCH_LOOP:-1}" != 0 ] && [ "$(id -u)" -eq 0 ] && command -v mkfs.ext4 >/dev/null; then
  image=$cache/ext4.img
  rm -f "$image"
  truncate -s 16G "$image"
  if mkfs.ext4 -q -F "$image" && mkdir -p "$work/loop" && mount -o loop "$image" "$work/loop"; then
    loop_mount=$work/loop
    echo "== fresh journaled ext4 on a loop device: $(fs_label "$loop_mount")"
    compare_all journaled "$loop_mount"
    umount "$loop_mount" && loop_mount=
    filesystems="working journaled"
  else
    echo "== no loop mount possible here: the journaled ext4 is skipped"
  fi
  rm -f "$image"
fi

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
printf '%-22s %10s %10s %10s   %-16s %-16s %9s\n' set applyChanges peer floor "/peer min med max" \
  "/floor min med max" "peak mem"
for fs in $filesystems; do
  for set in study small200 small3000 mixed large huge; do report "$set-$fs"; done
done
per200=$(median <"$results/small200-working.applyChanges" | awk '{ printf "%.3f", $1 / 200 * 1000 }')
per3000=$(median <"$results/small3000-working.applyChanges" | awk '{ printf "%.3f", $1 / 3000 * 1000 }')
printf 'time per small object: %s ms (200 objects), %s ms (3,000 objects)\n' "$per200" "$per3000"
printf 'archive script, 20 studies of 30 objects: %s s with 1 job, %s s with 2 jobs\n' \
  "$(median <"$results/archive.1")" "$(median <"$results/archive.2")"

status=0
check() { # <condition awk expression> <text>
  if awk "BEGIN { exit !($1) }"; then echo "target met:     $2"; else echo "target NOT met: $2"; status=1; fi
}
for fs in $filesystems; do
  for set in study small200 small3000 mixed; do
    check "$(median <"$results/$set-$fs.vspeer") <= 0.8" "applyChanges at most 0.8x the durable peer on $set ($fs)"
  done
  for set in large huge; do
    [ -f "$results/$set-$fs.vsfloor" ] || continue
    check "$(median <"$results/$set-$fs.vsfloor") <= 1.0" "applyChanges at most 1.0x the floor on $set ($fs)"
    check "$(sort -n "$results/$set-$fs.rss" | tail -1) <= 65536" "peak memory at most 64 MB on $set ($fs)"
  done
done
check "$per3000 <= 1.10 * $per200" "time per object of 3,000 small objects within 10% of 200's"
exit $status
