#!/usr/bin/env bash
# Installs, builds and runs the whole test suite; then again under ASan and UBSan.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
kq_install_packages

jobs=$(nproc)

echo "== build (RelWithDebInfo)"
kq_build build
echo "== tests"
(cd build && ctest --output-on-failure -j"$jobs")

echo "== build (AddressSanitizer + UndefinedBehaviorSanitizer)"
kq_build build-asan -DKQ_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug
echo "== tests under sanitizers"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
(cd build-asan && ctest --output-on-failure -j"$jobs")

echo "== fuzzing (libFuzzer, bounded run of every target)"
scripts/fuzz.sh "${KQ_FUZZ_SECONDS:-30}"
