#!/usr/bin/env bash
# pimrp --check FILE reports on standard error exactly what a run of FILE reports there (errors
# and warnings), ends with 0 where the run ends with 0 and with 2 where it ends with 2, and prints
# no answer: for the demo script and every scenario script that a run takes with no other
# argument.
#
#   check_matches_run.sh PIMRP DIR
set -uo pipefail

pimrp=$1
dir=$2
cd "$dir" || exit 1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$pimrp" --demo-script >"$work/demo.pimrp"
scripts=("$work/demo.pimrp")
for script in *.pimrp; do
  [ -f "${script%.pimrp}.args" ] || scripts+=("$script")
done

failed=0
for script in "${scripts[@]}"; do
  "$pimrp" "$script" >/dev/null 2>"$work/run.err"
  run=$?
  "$pimrp" --check "$script" >"$work/check.out" 2>"$work/check.err"
  check=$?
  if [ "$run" != "$check" ]; then
    echo "$script: --check ends with $check, the run with $run" >&2
    failed=1
  fi
  if ! diff -u "$work/run.err" "$work/check.err" >&2; then
    echo "$script: --check reports otherwise than the run" >&2
    failed=1
  fi
  if [ -s "$work/check.out" ]; then
    echo "$script: --check printed answers" >&2
    failed=1
  fi
done
echo "${#scripts[@]} scripts checked"
exit $failed
