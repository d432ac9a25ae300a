#!/usr/bin/env bash
# The wavelet codec beside OpenJPEG: PSNR of a 4096-byte "GW10" stream (header included) and of
# opj_compress's irreversible 9/7 codestream at the largest rate within 4086 bytes, on CT_small
# (128 x 128) and MR_small (64 x 64) of the pydicom corpus, two real 512 x 512 CTs of the corpus
# (J2K_pixelrep_mismatch, a head CT stored lossless; 693_J2KI, stored as lossy JPEG 2000, which
# favours OpenJPEG) and a generated 2048 x 2048 phantom; then the codec's speed (one thread,
# Release) against its targets and the 2048 x 2048 transform against the plain loop.
#
# Usage: scripts/bench-gwav.sh      Environment: BUILD_DIR (default build-bench).
# Exit status 0 when every target is met, 1 when one is missed, 2 on a failure.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
kq_install_packages

build=${BUILD_DIR:-build-bench}
corpus=/usr/lib/python3/dist-packages/pydicom/data/test_files

kq_build_release_targets "$build" bench_gwav

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
unset OPJ_NUM_THREADS
# the JPEG 2000 objects uncompressed, for the codec and as OpenJPEG's input
for name in J2K_pixelrep_mismatch 693_J2KI; do
  gdcmconv --raw "$corpus/$name.dcm" "$work/$name.dcm"
done

echo "== GW10 beside OpenJPEG at 4096 bytes ($(date -u +%Y-%m-%d), $(nproc) cores: $(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -1))"
status=0
"$build/bin/bench_gwav" "$work" "$corpus/CT_small.dcm" "$corpus/MR_small.dcm" "$work/J2K_pixelrep_mismatch.dcm" \
  "$work/693_J2KI.dcm" phantom2048 || status=$?
exit $status
