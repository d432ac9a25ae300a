#!/usr/bin/env bash
# Installs, builds and runs applyChanges on the bundled example study; can be run repeatedly.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
kq_install_packages
kq_build build >/dev/null

work=demo-output
rm -rf "$work"
mkdir -p "$work/study"
for dump in examples/study/*.dump; do
  dump2dcm -q "$dump" "$work/study/$(basename "$dump" .dump)"
done
# the KqR file lives in the study directory, as in the archive; applyChanges skips "KqR." names
dump2dcm -q examples/KqR.edit.dump "$work/study/KqR.edit"

object="$work/study/IM0002"
show() {
  dcmdump -q +P PatientName +P PatientBirthDate +P SeriesDescription +P InstanceNumber +P ImageComments "$object"
}

echo "== $object before"
show
echo
echo "== build/bin/applyChanges -v -p $work/study/KqR.edit -d $work/study"
# -v also traces every attribute the verification compares; only the driver's own lines are shown
build/bin/applyChanges -v -p "$work/study/KqR.edit" -d "$work/study" | grep -v -E '^(DEBUG|STRING|BINARY)'
echo
echo "== $object after"
show
