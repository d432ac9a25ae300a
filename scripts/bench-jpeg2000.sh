#!/usr/bin/env bash
# JPEG 2000 decode throughput of the archive's codec next to OpenJPEG's opj_decompress, on the
# same codestreams: synthetic CT, CR and RGB images (lossless and lossy) made by the codec's
# encoder, and codestreams of JPEG 2000 objects of the pydicom corpus.
#
# Usage: scripts/bench-jpeg2000.sh [seconds per codestream, default 2]
# Environment: BUILD_DIR (default build-bench, a Release build of bench_jpeg2000).
#
# Figures are MB of decoded samples per second: ours on one thread and with its worker threads
# (one per core), opj_decompress on one thread. For opj_decompress two:
# "library" from the decode time it reports itself (header and decoding, without process
# start and output file), and "process" from the wall time of whole runs.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
kq_install_packages

seconds=${1:-2}
build=${BUILD_DIR:-build-bench}
corpus=/usr/lib/python3/dist-packages/pydicom/data/test_files

kq_build_release_targets "$build" bench_jpeg2000

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# one thread for both decoders
unset OPJ_NUM_THREADS

objects=("$corpus/J2K_pixelrep_mismatch.dcm" "$corpus/693_J2KI.dcm" "$corpus/MR_small_jp2klossless.dcm")
KQ_J2K_THREADS=1 "$build/bin/bench_jpeg2000" "$work" "$seconds" "${objects[@]}" >"$work/ours.txt"
# and with the codec's worker threads, one per core, as the archive's programs run it
"$build/bin/bench_jpeg2000" "$work" "$seconds" "${objects[@]}" >"$work/threaded.txt"

printf '%-28s %11s %10s %12s %12s %12s %8s %14s %9s\n' codestream size bytes ours opj-library opj-process ours/opj \
  "ours, $(nproc) cores" "/opj"
while read -r name columns rows samples bytes ours; do
  threaded=$(awk -v n="$name" '$1 == n { print $6 }' "$work/threaded.txt")
  file="$work/$name"
  frame=$((columns * rows * samples * bytes))
  runs=0
  decode_ms=0
  start=$(date +%s.%N)
  while :; do
    ms=$(opj_decompress -i "$file" -o "$work/out.raw" 2>&1 | sed -n 's/^decode time: \([0-9]*\) ms.*/\1/p')
    [ -n "$ms" ] || { echo "opj_decompress failed on $name" >&2; exit 1; }
    decode_ms=$((decode_ms + ms))
    runs=$((runs + 1))
    now=$(date +%s.%N)
    awk -v s="$start" -v n="$now" -v lim="$seconds" 'BEGIN { exit !(n - s < lim) }' || break
  done
  awk -v name="$name" -v c="$columns" -v r="$rows" -v sz="$(stat -c %s "$file")" -v f="$frame" -v runs="$runs" \
      -v ms="$decode_ms" -v s="$start" -v n="$now" -v ours="$ours" -v threaded="$threaded" 'BEGIN {
        mb = f * runs / 1e6
        lib = ms > 0 ? mb / (ms / 1000.0) : 0
        proc = mb / (n - s)
        printf "%-28s %5dx%-5d %10d %9.1f MB/s %7.1f MB/s %7.1f MB/s %8.2f %9.1f MB/s %9.2f\n", name, c, r, sz, ours, lib,
               proc, (lib > 0 ? ours / lib : 0), threaded, (lib > 0 ? threaded / lib : 0)
      }'
done <"$work/ours.txt"
