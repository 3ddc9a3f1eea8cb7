#!/usr/bin/env bash
# Runs one pimrp scenario and compares standard output, standard error and the exit status with
# what the scenario expects.
#
#   run_scenario.sh PIMRP DIR NAME human|json
#
# A scenario NAME in DIR is made of:
#   NAME.pimrp    a script, run as "pimrp [--json] [ARGS] NAME.pimrp"
#   NAME.stdin    or statements fed to "pimrp [--json] [ARGS] -" on standard input
#   NAME.args     extra arguments, one per line (alone: "pimrp ARGS", e.g. --help)
#   NAME.input    a path read as standard input instead (e.g. "." for a directory)
#   NAME.output   a path written as standard output instead (e.g. /dev/full); NAME.out is then
#                 empty
#   NAME.out      expected standard output of the human run
#   NAME.json     expected standard output of the --json run
#   NAME.err      expected standard error (both runs; absent: nothing)
#   NAME.status   expected exit status (absent: 0)
# Files are named relative to DIR, as the scenario's error messages quote them.
set -uo pipefail

pimrp=$1
dir=$2
name=$3
mode=$4

cd "$dir" || exit 1

args=()
[ "$mode" = json ] && args+=(--json)
if [ -f "$name.args" ]; then
  mapfile -t extra <"$name.args"
  args+=("${extra[@]}")
fi
input=/dev/null
if [ -f "$name.pimrp" ]; then
  args+=("$name.pimrp")
elif [ -f "$name.stdin" ]; then
  args+=(-)
  input=$name.stdin
fi

expected_out=$name.out
[ "$mode" = json ] && expected_out=$name.json
expected_status=0
[ -f "$name.status" ] && expected_status=$(<"$name.status")

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

[ -f "$name.input" ] && input=$(<"$name.input")
output=$work/out
[ -f "$name.output" ] && output=$(<"$name.output")
: >"$work/out"
"$pimrp" "${args[@]}" <"$input" >"$output" 2>"$work/err"
status=$?

failed=0
if ! diff -u "$expected_out" "$work/out"; then
  echo "standard output differs: pimrp ${args[*]}" >&2
  failed=1
fi
if [ -f "$name.err" ]; then
  expected_err=$name.err
else
  expected_err=/dev/null
fi
if ! diff -u "$expected_err" "$work/err"; then
  echo "standard error differs: pimrp ${args[*]}" >&2
  failed=1
fi
if [ "$status" != "$expected_status" ]; then
  echo "exit status $status, expected $expected_status: pimrp ${args[*]}" >&2
  failed=1
fi
exit $failed
