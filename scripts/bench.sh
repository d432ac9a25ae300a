#!/usr/bin/env bash
# Every speed, memory and quality target of the project, measured in one run (by hand; not part
# of scripts/test.sh). Each part builds what it needs in a Release tree ($BUILD_DIR, default
# build-bench), keeps its data in $KQ_BENCH_CACHE (default /tmp/kq-bench-cache) and prints its
# own table:
#
#   bench-applychanges.sh    applyChanges against dcmodify made durable and a durable copy, on
#                            the working file system and a fresh journaled ext4; 3,000 objects;
#                            the archive script
#   bench-objdiff-frames.sh  the decoded-frame comparison against dcmicmp
#   bench-imgproc.sh         the image pipeline's decoding against DCMTK's tools and OpenJPEG
#   bench-gwav.sh            the wavelet codec's dumps against OpenJPEG at 4096 bytes
#   bench-jpeg2000.sh        the JPEG 2000 codec against opj_decompress, one and two threads
#   bench_objdiff            the comparator on large binary values (Google Benchmark)
#
#   scripts/bench.sh [part...]     the parts named (by the names above), or all
#
# Exit status 0 when every target is met, 1 when one is missed, 2 when a part failed.
set -uo pipefail
cd "$(dirname "$0")/.."

parts=("$@")
[ ${#parts[@]} -gt 0 ] || parts=(bench-applychanges.sh bench-objdiff-frames.sh bench-imgproc.sh bench-gwav.sh
                                 bench-jpeg2000.sh bench_objdiff)
status=0
for part in "${parts[@]}"; do
  echo
  echo "######## $part"
  if [ "$part" = bench_objdiff ]; then
    build=${BUILD_DIR:-build-bench}
    cmake --build "$build" --target bench_objdiff >/dev/null 2>&1 || { echo "bench_objdiff: not built"; continue; }
    work=$(mktemp -d)
    "$build/bin/bench_objdiff" "$work" 2>&1 | grep -v '^\*\*\*WARNING'
    rm -rf "$work"
    continue
  fi
  if [ ! -x "scripts/$part" ]; then
    echo "$part: not in this tree"
    continue
  fi
  "scripts/$part"
  result=$?
  [ $result -gt $status ] && status=$result
done
exit $status
