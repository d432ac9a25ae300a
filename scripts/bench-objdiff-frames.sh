#!/usr/bin/env bash
# Speed and memory of the decoded-frame comparison (objdiff -m 1) on a 100-frame object of
# 512x512 16-bit samples, next to DCMTK's dcmicmp, which compares native pixel data only, and,
# for a compressed object, gdcmconv --raw followed by dcmicmp:
#
#   copy          the object against a copy (lossless rule: byte for byte)
#   small diffs   against a copy with 50 samples per frame off by one (peak-error rule, timed
#                 with bench_objdiff_frames, since two native objects get the lossless rule)
#   JPEG 2000     against its JPEG 2000 lossy re-encoding (the project's transcode, rate 0.1)
#   one frame     a single-frame pair, whole process
#
#   scripts/bench-objdiff-frames.sh
#
# Milliseconds per frame of whole runs (process start, load, decode, compare), median and best of
# $RUNS runs (default 5; the machine may be shared), and the peak resident memory of objdiff on
# the 100-frame pairs beside two decoded copies of the object, which the comparison holds by
# design. Exit status 0 when every speed target is met (on the median), 1 when one is missed,
# 2 on a failure.
#
# Environment: BUILD_DIR (default build-bench, a Release build), KQ_BENCH_CACHE (default
# /tmp/kq-bench-cache; the objects are made once in its objdiff-frames/ folder), RUNS.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
kq_install_packages

build=${BUILD_DIR:-build-bench}
cache=${KQ_BENCH_CACHE:-/tmp/kq-bench-cache}/objdiff-frames
runs=${RUNS:-5}
frames=100

fail() {
  echo "bench-objdiff-frames: $*" >&2
  exit 2
}

echo "== build ($build, Release)"
kq_build_release_targets "$build" objdiff_tool bench_objdiff_frames makeBenchData transcode
bin=$PWD/$build/bin

mkdir -p "$cache"
if [ "$(cat "$cache/stamp" 2>/dev/null)" != "objdiff-frames-1 $frames" ]; then
  echo "== making the objects in $cache"
  rm -f "$cache"/*.dcm "$cache/stamp"
  "$bin/makeBenchData" multiframe "$cache/native.dcm" "$frames" >/dev/null
  cp "$cache/native.dcm" "$cache/copy.dcm"
  /usr/bin/python3 - "$cache/native.dcm" "$cache/smalldiff.dcm" <<'PYTHON' || fail "cannot make the copy with small differences"
import sys
import numpy as np
import pydicom
ds = pydicom.dcmread(sys.argv[1])
samples = ds.pixel_array.copy()
rng = np.random.default_rng(12)
for frame in samples:
    flat = frame.reshape(-1)
    flat[rng.integers(0, flat.size, 50)] += 1
ds.PixelData = samples.tobytes()
ds.save_as(sys.argv[2])
PYTHON
  env -u CONF "$bin/transcode" -x 1.2.840.10008.1.2.4.91 "$cache/native.dcm" "$cache/j2k.dcm" || fail "transcode failed"
  "$bin/makeBenchData" multiframe "$cache/one.dcm" 1 >/dev/null
  cp "$cache/one.dcm" "$cache/one-copy.dcm"
  echo "objdiff-frames-1 $frames" >"$cache/stamp"
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# what the encoder records about itself
printf '(0008,2111)\n(0008,9215)\n' >"$work/ignore"

# "<median> <best>" wall times in seconds of a command run $runs times; it must exit 0
median() {
  local times=()
  for _ in $(seq "$runs"); do
    local start end
    start=$(date +%s.%N)
    "$@" >/dev/null 2>&1 || fail "failed: $*"
    end=$(date +%s.%N)
    times+=("$(awk -v s="$start" -v e="$end" 'BEGIN { print e - s }')")
  done
  printf '%s\n' "${times[@]}" | sort -g | awk '{ a[NR] = $1 } END { print a[int((NR + 1) / 2)], a[1] }'
}

raw_then_dcmicmp() {
  gdcmconv --raw "$cache/j2k.dcm" "$work/raw.dcm" && dcmicmp "$cache/native.dcm" "$work/raw.dcm"
}

ms() { awk -v s="$1" -v n="$2" 'BEGIN { printf "%.2f", 1000 * s / n }'; }

echo "== timing ($runs runs each)"
unset OPJ_NUM_THREADS
status=0
rows=()
# row <case> <unit count> <ours: median best> <reference> <reference: median best> <target ms>;
# the target is checked on the median
row() {
  local ours best ref met
  ours=$(ms "${3% *}" "$2")
  best=$(ms "${3#* }" "$2")
  ref=$(ms "${5% *}" "$2")
  if awk -v o="$ours" -v t="$6" 'BEGIN { exit !(o <= t) }'; then met=yes; else met=no; status=1; fi
  rows+=("$(printf '%-30s %8s %8s %-26s %8s %7s %4s' "$1" "$ours" "$best" "$4" "$ref" "$6" "$met")")
}

t=$(median "$bin/objdiff" -m 1 "$cache/native.dcm" "$cache/copy.dcm")
r=$(median dcmicmp "$cache/native.dcm" "$cache/copy.dcm")
row "copy, lossless rule" "$frames" "$t" "dcmicmp" "$r" 1.5
t=$(median "$bin/bench_objdiff_frames" "$cache/native.dcm" "$cache/smalldiff.dcm")
r=$(median dcmicmp "$cache/native.dcm" "$cache/smalldiff.dcm")
row "small diffs, peak-error rule" "$frames" "$t" "dcmicmp" "$r" 2
t=$(median "$bin/objdiff" -m 1 -i "$work/ignore" "$cache/native.dcm" "$cache/j2k.dcm")
r=$(median raw_then_dcmicmp)
row "JPEG 2000 lossy, rate 0.1" "$frames" "$t" "gdcmconv --raw + dcmicmp" "$r" 8
t=$(median "$bin/objdiff" -m 1 "$cache/one.dcm" "$cache/one-copy.dcm")
r=$(median dcmicmp "$cache/one.dcm" "$cache/one-copy.dcm")
row "one 512x512 pair (per process)" 1 "$t" "dcmicmp" "$r" 15

echo
echo "$(date -u +%Y-%m-%d), $(nproc) x $(lscpu | sed -n 's/^Model name: *//p' | head -1), $(uname -sr), load $(cut -d' ' -f1 /proc/loadavg)"
printf '%-30s %8s %8s %-26s %8s %7s %4s\n' "pair (ms per frame)" "objdiff" "best" "reference" "ref" "target" "met"
printf '%s\n' "${rows[@]}"

echo
# The comparison holds every decoded frame of both objects until it has compared them.
peak() { /usr/bin/time -f %M "$@" 2>&1 >/dev/null | tail -1; }
decoded=$((2 * frames * 512 * 512 * 2))
printf '%-30s %12s %18s\n' "peak memory (objdiff -m 1)" "peak RSS" "2 decoded copies"
for pair in "copy:$cache/copy.dcm" "JPEG 2000:$cache/j2k.dcm" "one frame:$cache/one-copy.dcm"; do
  name=${pair%%:*}
  second=${pair#*:}
  first=$cache/native.dcm
  [ "$name" = "one frame" ] && first=$cache/one.dcm
  kb=$(peak "$bin/objdiff" -m 1 -i "$work/ignore" "$first" "$second")
  printf '%-30s %9.1f MB %15.1f MB\n' "$name" "$(awk -v k="$kb" 'BEGIN { print k * 1024 / 1e6 }')" \
    "$(awk -v d="$decoded" -v n="$name" 'BEGIN { print (n == "one frame" ? d / 100 : d) / 1e6 }')"
done

echo
if [ "$status" -eq 0 ]; then echo "speed targets: met"; else echo "speed targets: missed"; fi
exit $status
