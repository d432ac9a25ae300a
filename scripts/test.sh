#!/usr/bin/env bash
# Installs, builds and runs the whole test suite; then again under ASan and UBSan (clang), whose
# build also carries the fuzz targets for a bounded fuzz run.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
kq_install_packages lintian

jobs=$(nproc)

echo "== build (RelWithDebInfo)"
kq_build build
echo "== tests"
(cd build && ctest --output-on-failure -j"$jobs")

echo "== Debian package, unpacked into a scratch root"
rm -f build/kqarchive_*.deb
(cd build && cpack -G DEB >cpack.log 2>&1) || { cat build/cpack.log; exit 1; }
deb=$(ls build/kqarchive_*.deb)
echo "$deb: Depends: $(dpkg-deb -f "$deb" Depends)"
for dep in $(dpkg-deb -f "$deb" Depends | tr ',' '\n' | sed 's/(.*)//; s/ //g'); do
  dpkg-query -W -f='${Status}' "$dep" | grep -q "install ok installed" || { echo "not installed: $dep"; exit 1; }
done
scratch=$(mktemp -d)
dpkg-deb -x "$deb" "$scratch"
usage=$("$scratch/usr/bin/applyChanges" -h 2>&1)
page=$(MANPAGER=cat MANWIDTH=80 man -l "$scratch/usr/share/man/man1/applyChanges.1.gz")
archive=$("$scratch/usr/bin/apply-archive" -h)
rm -rf "$scratch"
grep -q '^applyChanges \[-h\] \[-v\] -p <kqrfile>' <<<"$usage" || { echo "applyChanges -h: $usage"; exit 1; }
grep -q '^GUARANTEES' <<<"$page" || { echo "man -l applyChanges.1.gz shows no GUARANTEES"; exit 1; }
grep -q 'apply-archive.sh \[options\] <manifest>' <<<"$archive" || { echo "apply-archive -h: $archive"; exit 1; }
echo "== lintian"
# errors fail the run; warnings and notes are shown
lintian --tag-display-limit 0 "$deb" | tee build/lintian.log
if grep -q '^E: ' build/lintian.log; then echo "lintian found errors"; exit 1; fi

# One clang build serves the sanitizer run of the tests and the fuzz targets: every library is
# compiled once with AddressSanitizer, UndefinedBehaviorSanitizer and the fuzzers' coverage.
echo "== build (clang: AddressSanitizer + UndefinedBehaviorSanitizer, and the fuzz targets)"
kq_install_packages "${KQ_FUZZ_PACKAGES[@]}"
CC=clang CXX=clang++ kq_build build-fuzz -DKQ_FUZZ=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo
echo "== tests under sanitizers"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
(cd build-fuzz && ctest --output-on-failure -j"$jobs")

echo "== fuzzing (libFuzzer, bounded run of every target)"
KQ_FUZZ_BUILD=build-fuzz scripts/fuzz.sh "${KQ_FUZZ_SECONDS:-20}"
