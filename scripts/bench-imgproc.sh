#!/usr/bin/env bash
# Decoding speed and memory of the image pipeline (CImageProcess) on a 300-frame object of
# 512x512 16-bit samples, stored native and re-encoded JPEG 2000 lossless (the project's
# transcode), RLE (dcmcrle) and JPEG lossless (dcmcjpeg), next to the independent decoders of
# the same frames: DCMTK's dcmdrle and dcmdjpeg, OpenJPEG's opj_decompress (on the object's
# codestreams, one process per frame) and gdcmconv --raw; for the native object dcmconv, which
# reads and writes the frames without decoding, is the floor.
#
#   scripts/bench-imgproc.sh
#
# Frames per second of whole runs (load, decode every frame, and for the tools write the
# result), median of $RUNS runs (default 3); for opj_decompress also the decode time it reports
# itself. The pipeline decodes through a memory that reuses one frame buffer; its peak resident
# memory must stay below 10% of the stored object (exit status 1 otherwise, 2 on a failure).
#
# Environment: BUILD_DIR (default build-bench, a Release build), KQ_BENCH_CACHE (default
# /tmp/kq-bench-cache; the objects are made once in its imgproc/ folder), RUNS.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
kq_install_packages

build=${BUILD_DIR:-build-bench}
cache=${KQ_BENCH_CACHE:-/tmp/kq-bench-cache}/imgproc
runs=${RUNS:-3}
frames=300

fail() {
  echo "bench-imgproc: $*" >&2
  exit 2
}

echo "== build ($build, Release)"
kq_build_release_targets "$build" bench_imgproc makeBenchData transcode
bin=$PWD/$build/bin

mkdir -p "$cache"
if [ "$(cat "$cache/stamp" 2>/dev/null)" != "imgproc-2 $frames" ]; then
  echo "== making the objects in $cache"
  rm -f "$cache"/*.dcm "$cache/stamp"
  "$bin/makeBenchData" multiframe "$cache/native.dcm" "$frames" >/dev/null
  "$bin/transcode" -x 1.2.840.10008.1.2.4.90 "$cache/native.dcm" "$cache/j2k.dcm" || fail "transcode failed"
  dcmcrle "$cache/native.dcm" "$cache/rle.dcm" || fail "dcmcrle failed"
  dcmcjpeg +e1 "$cache/native.dcm" "$cache/jpegll.dcm" || fail "dcmcjpeg failed"
  # one frame of each, for the memory that does not depend on the number of frames
  "$bin/makeBenchData" multiframe "$cache/native-1.dcm" 1 >/dev/null
  "$bin/transcode" -x 1.2.840.10008.1.2.4.90 "$cache/native-1.dcm" "$cache/j2k-1.dcm" || fail "transcode failed"
  echo "imgproc-2 $frames" >"$cache/stamp"
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$bin/bench_imgproc" extract "$cache/j2k.dcm" "$work" || fail "cannot extract the codestreams"

# median wall time in seconds of a command run $runs times
median() {
  local times=()
  for _ in $(seq "$runs"); do
    local start end
    start=$(date +%s.%N)
    "$@" >/dev/null 2>&1 || fail "failed: $*"
    end=$(date +%s.%N)
    times+=("$(awk -v s="$start" -v e="$end" 'BEGIN { print e - s }')")
  done
  printf '%s\n' "${times[@]}" | sort -g | awk '{ a[NR] = $1 } END { print a[int((NR + 1) / 2)] }'
}

ours() { # seconds of the fastest of $runs runs
  "$bin/bench_imgproc" decode "$1" "$runs" | awk '{ print $2 }'
}

opj_frames() {
  local total=0
  for f in "$work"/frame-*.j2k; do
    opj_decompress -i "$f" -o "$work/out.raw" >/dev/null 2>&1 || return 1
  done
}

opj_library_ms() { # decode time opj_decompress reports, summed over the frames
  local total=0 ms
  for f in "$work"/frame-*.j2k; do
    ms=$(opj_decompress -i "$f" -o "$work/out.raw" 2>&1 | sed -n 's/^decode time: \([0-9]*\) ms.*/\1/p')
    total=$((total + ${ms:-0}))
  done
  echo "$total"
}

fps() { awk -v f="$frames" -v s="$1" 'BEGIN { printf "%.1f", f / s }'; }

echo "== timing ($runs runs each)"
unset OPJ_NUM_THREADS
rows=()
row() { rows+=("$(printf '%-22s %10s %-34s %10s %9s' "$1" "$(fps "$2")" "$3" "$(fps "$4")" "$(awk -v a="$4" -v b="$2" 'BEGIN { printf "%.2f", a / b }')")"); }

t=$(ours "$cache/native.dcm"); r=$(median dcmconv "$cache/native.dcm" "$work/out.dcm")
row "native" "$t" "dcmconv (read+write, no decoding)" "$r"
t=$(ours "$cache/rle.dcm"); r=$(median dcmdrle "$cache/rle.dcm" "$work/out.dcm")
row "RLE" "$t" "dcmdrle" "$r"
t=$(ours "$cache/jpegll.dcm"); r=$(median dcmdjpeg "$cache/jpegll.dcm" "$work/out.dcm")
row "JPEG lossless SV1" "$t" "dcmdjpeg" "$r"
t=$(ours "$cache/j2k.dcm"); r=$(median opj_frames)
row "JPEG 2000 lossless" "$t" "opj_decompress (process per frame)" "$r"
lib=$(opj_library_ms)
row "JPEG 2000 lossless" "$t" "opj_decompress (its decode time)" "$(awk -v ms="$lib" 'BEGIN { print ms / 1000 }')"
r=$(median gdcmconv --raw "$cache/j2k.dcm" "$work/out.dcm")
row "JPEG 2000 lossless" "$t" "gdcmconv --raw" "$r"

echo
echo "$(date -u +%Y-%m-%d), $(nproc) x $(lscpu | sed -n 's/^Model name: *//p' | head -1), $(uname -sr)"
printf '%-22s %10s %-34s %10s %9s\n' "object (300 frames)" "ours fps" "reference" "ref fps" "ours/ref"
printf '%s\n' "${rows[@]}"

echo
# The target is on the object itself (its native form); the JPEG 2000 copy must not grow with
# the number of frames either: its peak over the peak of a one-frame copy stays below 10% of
# its size. The one-frame peak is the process's own (libraries, dictionary, one frame).
status=0
printf '%-22s %10s %12s %8s %16s\n' "peak memory" "stored" "peak RSS" "ratio" "1-frame peak"
for object in native j2k; do
  size=$(stat -c %s "$cache/$object.dcm")
  peak_kb=$("$bin/bench_imgproc" decode "$cache/$object.dcm" 1 | awk '{ print $4 }')
  one_kb=$("$bin/bench_imgproc" decode "$cache/$object-1.dcm" 1 | awk '{ print $4 }')
  ratio=$(awk -v p="$peak_kb" -v s="$size" 'BEGIN { printf "%.3f", p * 1024 / s }')
  printf '%-22s %7d MB %9.1f MB %8s %13.1f MB\n' "$object" "$((size / 1000000))" "$(awk -v k="$peak_kb" 'BEGIN { print k / 1000 }')" "$ratio" "$(awk -v k="$one_kb" 'BEGIN { print k / 1000 }')"
  if [ "$object" = native ]; then
    awk -v r="$ratio" 'BEGIN { exit !(r < 0.10) }' || status=1
  else
    awk -v p="$peak_kb" -v o="$one_kb" -v s="$size" 'BEGIN { exit !((p - o) * 1024 < 0.10 * s) }' || status=1
  fi
done
if [ "$status" -eq 0 ]; then
  echo "peak memory below 10% of the stored object, no growth with the frames: met"
else
  echo "peak memory target missed"
fi
exit $status
