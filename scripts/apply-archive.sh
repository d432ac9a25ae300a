#!/usr/bin/env bash
# Applies soft edits to many studies: runs applyChanges -p <KqR file> -d <study directory> for each
# line of a manifest, with GNU parallel as the engine (progress bar, job log, several machines).
# Each study is one job; a study's own guarantees are applyChanges' (every object whole, the
# first failing object ends that study's run).
#
#   scripts/apply-archive.sh [options] <manifest>
#
# Manifest: one study per line, the KqR file and the study directory separated by a tab; empty
# lines and lines starting with "#" are skipped.
#
# What was done is recorded per study, keyed by the study directory and the KqR file's SHA-256,
# in the state directory: a run skips the studies already done with that KqR file and runs the
# others (failed, interrupted or new), whatever the order or content of the manifest. Each
# study's applyChanges output is kept in <state>/logs/.
#
# Options:
#   -j <jobs>        jobs at a time on each machine (default: its number of cores)
#   -s <state>       the state directory (default: <manifest>.state); made when missing
#   -l <joblog>      GNU parallel's job log (default: <state>/joblog)
#   -S <sshlogin>    machines to run on, as parallel's --sshlogin (repeatable; ":" is this
#                    machine). Each machine needs applyChanges and this script at the same
#                    paths, and the studies and the state directory at the same paths (shared
#                    storage); see the README.
#   -b <program>     applyChanges to run (default: applyChanges on PATH, else build/bin's)
#   -t               status only: list the studies done, failed and pending; run nothing
#   -r               accepted for older scripts: every run resumes
#   -q               no progress bar
#   -h, --help       this text
#
# Stopping: an interrupt or termination of this script stops its jobs through GNU parallel's
# termination sequence (each applyChanges puts what it verified in place and ends); a later run
# finishes the work.
#
# Exit status: 0 when every study of the manifest is done, 1 when a study failed or is pending,
# 2 on a usage error. The summary names each failed study with the first line of its error.
set -uo pipefail

usage() {
  sed -n '2,/^set -uo/p' "$0" | sed '$d' | sed 's/^# \{0,1\}//'
}

# The key of a study in the state directory.
study_key() {
  printf '%s' "$1" | sha256sum | cut -c1-64
}

# One job (run by parallel, here or on another machine): <program> <state> <KqR file> <study>.
run_job() {
  local program=$1 state=$2 kqr=$3 study=$4
  local key sum record log
  key=$(study_key "$study")
  sum=$(sha256sum <"$kqr" 2>/dev/null | cut -c1-64)
  record=$state/$key
  log=$state/logs/$key.log
  if [ -n "$sum" ] && [ -f "$record" ] && [ "$(cut -f1,2 "$record")" = "done	$sum" ]; then
    return 0 # done with this very KqR file
  fi
  "$program" -p "$kqr" -d "$study" >"$log" 2>&1
  local status=$?
  local outcome=done first=
  if [ "$status" -ne 0 ]; then
    outcome=failed
    # the first line of the error, not the toolkit's own log lines ("E: ...")
    first=$(grep -v -E '^[FEWIDT]: ' "$log" | head -1)
    [ -n "$first" ] || first="applyChanges ended with exit status $status"
  fi
  # written whole, then renamed: a killed job leaves the previous record or none
  printf '%s\t%s\t%s\t%s\t%s\n' "$outcome" "$sum" "$study" "$kqr" "$first" >"$record.tmp.$$" &&
    mv -f "$record.tmp.$$" "$record"
  [ "$status" -eq 0 ] || printf '%s: %s\n' "$study" "$first" >&2
  return "$status"
}

if [ "${1:-}" = --job ]; then
  shift
  run_job "$@"
  exit $?
fi
if [ "${1:-}" = --help ]; then
  usage
  exit 0
fi

jobs=
joblog=
state=
bar=--bar
program=
status_only=
sshlogins=()
while getopts "j:l:s:rS:b:tqh" option; do
  case $option in
    j) jobs=$OPTARG ;;
    l) joblog=$OPTARG ;;
    s) state=$OPTARG ;;
    r) ;;
    S) sshlogins+=(--sshlogin "$OPTARG") ;;
    b) program=$OPTARG ;;
    t) status_only=1 ;;
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
state=${state:-$manifest.state}
mkdir -p "$state/logs" || { echo "apply-archive: cannot make the state directory $state" >&2; exit 2; }
state=$(cd "$state" && pwd)
joblog=${joblog:-$state/joblog}

# The studies, without comments and empty lines, each line checked for its two fields.
studies=$(mktemp)
trap 'rm -f "$studies"' EXIT
awk -F'\t' -v manifest="$manifest" '
  /^[[:space:]]*(#|$)/ { next }
  NF != 2 || $1 == "" || $2 == "" { printf "apply-archive: %s line %d: expected <KqR file><tab><study directory>\n", manifest, NR > "/dev/stderr"; bad = 1; next }
  { print }
  END { exit bad }' "$manifest" >"$studies" || exit 2

# Each study of the manifest as the records say: done (with this KqR file), failed, or pending.
summary() {
  local done=0 failed=0 pending=0 total=0 kqr study key record sum
  local failures=
  while IFS=$'\t' read -r kqr study; do
    total=$((total + 1))
    key=$(study_key "$study")
    record=$state/$key
    sum=$(sha256sum <"$kqr" 2>/dev/null | cut -c1-64)
    if [ -f "$record" ] && [ "$(cut -f2 "$record")" = "$sum" ] && [ -n "$sum" ]; then
      case $(cut -f1 "$record") in
        done) done=$((done + 1)); [ -n "$status_only" ] && echo "  done: $study" ;;
        *) failed=$((failed + 1))
           failures+="  failed: $study: $(cut -f5 "$record") (log: $state/logs/$key.log)"$'\n' ;;
      esac
    else
      pending=$((pending + 1))
      [ -n "$status_only" ] && echo "  pending: $study"
    fi
  done <"$studies"
  printf '%s' "$failures"
  echo "studies: $total in the manifest, $done done, $failed failed, $pending pending"
  [ $((failed + pending)) -eq 0 ]
}

if [ -n "$status_only" ]; then
  summary
  exit $?
fi

command -v parallel >/dev/null || { echo "apply-archive: GNU parallel is not installed (apt-get install parallel)" >&2; exit 2; }
if [ -z "$program" ]; then
  program=$(command -v applyChanges || true)
  [ -n "$program" ] || program=$(cd "$(dirname "$0")/.." && pwd)/build/bin/applyChanges
fi
[ -x "$program" ] || { echo "apply-archive: $program is not an executable applyChanges" >&2; exit 2; }
self=$(cd "$(dirname "$0")" && pwd)/$(basename "$0")

# One job per study. An interrupt or termination of this script is passed on to parallel twice:
# it stops starting jobs, then ends the running ones by its termination sequence (applyChanges
# commits what it verified on SIGINT or SIGTERM).
parallel --will-cite --colsep '\t' --joblog "$joblog" --termseq INT,5000,TERM,5000,KILL,25 $bar \
  ${jobs:+-j "$jobs"} "${sshlogins[@]}" "$self" --job "$program" "$state" {1} {2} :::: "$studies" &
engine=$!
stop() {
  kill -TERM "$engine" 2>/dev/null
  sleep 0.2
  kill -TERM "$engine" 2>/dev/null
}
trap stop INT TERM HUP
wait "$engine"
# a signal ends the first wait; the engine is waited for until it has stopped its jobs
while kill -0 "$engine" 2>/dev/null; do wait "$engine"; done
trap - INT TERM HUP

summary
status=$?
[ "$status" -eq 0 ] || echo "run again to finish: $0 $manifest"
exit "$status"
