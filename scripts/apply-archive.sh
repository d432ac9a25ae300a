#!/usr/bin/env bash
# Applies soft edits to many studies: runs applyChanges -p <KqR file> -d <study directory> for each
# line of a manifest, with GNU parallel as the engine (progress bar, job log, resumable, several
# machines). Each study is one job; a study's own guarantees are applyChanges' (every object
# whole, the first failing object ends that study's run).
#
#   scripts/apply-archive.sh [options] <manifest>
#
# Manifest: one study per line, the KqR file and the study directory separated by a tab; empty
# lines and lines starting with "#" are skipped.
#
# Options:
#   -j <jobs>        jobs at a time on each machine (default: its number of cores)
#   -l <joblog>      GNU parallel's job log (default: <manifest>.joblog); kept between runs
#   -r               resume: run again the studies that failed, and those never started
#   -S <sshlogin>    machines to run on, as parallel's --sshlogin (repeatable; ":" is this
#                    machine). Each machine needs applyChanges at the same path and the studies
#                    at the same paths (shared storage); see the README.
#   -b <program>     applyChanges to run (default: applyChanges on PATH, else build/bin's)
#   -q               no progress bar
#   -h               this text
#
# Exit status: 0 when every study of the manifest is done, 1 when a study failed or is left,
# 2 on a usage error. The summary names the failed studies; their messages are in the output,
# each line tagged with its study directory.
set -uo pipefail

usage() {
  sed -n '2,/^set -uo/p' "$0" | sed '$d' | sed 's/^# \{0,1\}//'
}

jobs=
joblog=
resume=
bar=--bar
program=
sshlogins=()
while getopts "j:l:rS:b:qh" option; do
  case $option in
    j) jobs=$OPTARG ;;
    l) joblog=$OPTARG ;;
    r) resume=--resume-failed ;;
    S) sshlogins+=(--sshlogin "$OPTARG") ;;
    b) program=$OPTARG ;;
    q) bar= ;;
    h) usage; exit 0 ;;
    *) echo "apply-archive: see $0 -h" >&2; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
if [ $# -ne 1 ]; then
  echo "apply-archive: exactly one manifest expected (see $0 -h)" >&2
  exit 2
fi
manifest=$1
if [ ! -r "$manifest" ]; then
  echo "apply-archive: cannot read the manifest $manifest" >&2
  exit 2
fi
command -v parallel >/dev/null || { echo "apply-archive: GNU parallel is not installed (apt-get install parallel)" >&2; exit 2; }
if [ -z "$program" ]; then
  program=$(command -v applyChanges || true)
  [ -n "$program" ] || program=$(cd "$(dirname "$0")/.." && pwd)/build/bin/applyChanges
fi
[ -x "$program" ] || { echo "apply-archive: $program is not an executable applyChanges" >&2; exit 2; }
joblog=${joblog:-$manifest.joblog}

# The studies, without comments and empty lines, each line checked for its two fields.
studies=$(mktemp)
trap 'rm -f "$studies"' EXIT
awk -F'\t' -v manifest="$manifest" '
  /^[[:space:]]*(#|$)/ { next }
  NF != 2 || $1 == "" || $2 == "" { printf "apply-archive: %s line %d: expected <KqR file><tab><study directory>\n", manifest, NR > "/dev/stderr"; bad = 1; next }
  { print }
  END { exit bad }' "$manifest" >"$studies" || exit 2
total=$(wc -l <"$studies")

# One job per study; a job's lines are tagged with its study and kept together.
parallel --will-cite --colsep '\t' --joblog "$joblog" $resume $bar ${jobs:+-j "$jobs"} "${sshlogins[@]}" \
  --tagstring '{2}:' "$program" -p {1} -d {2} :::: "$studies"

# The summary from the job log: its Seq is the study's line among the studies, and the last
# entry of each study counts (a resumed job keeps its Seq).
summary=$(awk -F'\t' -v studies="$studies" '
  BEGIN { while ((getline line < studies) > 0) { total++; split(line, f, "\t"); study[total] = f[2] } }
  NR == 1 { next }
  { status[$1] = $7 }
  END {
    for (i = 1; i <= total; i++) {
      if (!(i in status)) left++
      else if (status[i] == 0) done++
      else { failed++; printf "  failed (exit %s): %s\n", status[i], study[i] }
    }
    printf "studies: %d in the manifest, %d done, %d failed, %d left\n", total, done, failed, left
    exit (failed + left) > 0
  }' "$joblog")
status=$?
echo "$summary"
[ "$status" -eq 0 ] || echo "resume with: $0 -r -l $joblog $manifest"
exit "$status"
