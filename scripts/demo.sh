#!/usr/bin/env bash
# Installs, builds and runs applyChanges on the bundled example study; can be run repeatedly:
# the preview of the edit, the edit, one object before and after, a damaging KqR file refused,
# and image dumps of an object before and after as PNG files.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
echo "== installing what is missing (apt-get; nothing when all is there)"
kq_install_packages
echo "== building in build/ (a few minutes the first time)"
cmake -S . -B build -G Ninja >/dev/null
# ninja's "[n/N]" lines shown every tenth of the way
cmake --build build -j"$(nproc)" |
  awk -F'[][/]' '/^\[[0-9]+\/[0-9]+\]/ { p = int($2 * 10 / $3); if (p != last) { printf "   %3d%% (%s of %s steps)\n", p * 10, $2, $3; last = p } }'

work=demo-output
rm -rf "$work"
mkdir -p "$work/study" "$work/dumps"
for dump in examples/study/*.dump; do
  dump2dcm -q "$dump" "$work/study/$(basename "$dump" .dump)"
done
# the KqR file lives in the study directory, as in the archive; applyChanges skips "KqR." names
dump2dcm -q examples/KqR.edit.dump "$work/study/KqR.edit"
dump2dcm -q examples/KqR.damaging.dump "$work/KqR.damaging"

object="$work/study/IM0002"
show() {
  dcmdump -q +P PatientName +P PatientBirthDate +P SeriesDescription +P InstanceNumber +P ImageComments "$object"
}
# An image dump of the object (objdiff -w) and the PNG gwav makes of it; prints the PNG's path.
dump_png() {
  local prefix=$work/dumps/IM0002-$1
  build/bin/objdiff -q -w "$prefix" "$object" >/dev/null
  build/bin/gwav decode "$prefix.dump.wavelet" "$prefix.png"
  echo "   $prefix.png"
}

echo
echo "== build/bin/previewChanges -p $work/study/KqR.edit -d $work/study (writes nothing)"
build/bin/previewChanges -p "$work/study/KqR.edit" -d "$work/study"
echo
echo "== $object before"
show
dump_png before
echo
echo "== build/bin/applyChanges -v -p $work/study/KqR.edit -d $work/study"
# -v also traces every attribute the verification compares; only the driver's own lines are shown
build/bin/applyChanges -v -p "$work/study/KqR.edit" -d "$work/study" | grep -v -E '^(DEBUG|STRING|BINARY)'
echo
echo "== $object after"
show
dump_png after
echo
echo "== a KqR file that could only do damage is refused before any object"
before=$(cat "$work"/study/IM* | md5sum)
status=0
build/bin/applyChanges -p "$work/KqR.damaging" -d "$work/study" || status=$?
after=$(cat "$work"/study/IM* | md5sum)
echo "   exit status $status; study byte-identical: $([ "$before" = "$after" ] && echo yes || echo NO)"
