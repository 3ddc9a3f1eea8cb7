#!/usr/bin/env bash
# Rewrites the expected outputs of pimrp scenarios from what the built pimrp does now, the same
# way run_scenario.sh runs them. Read the resulting diff before committing it.
#
#   regenerate.sh PIMRP [NAME...]    (no NAME: every scenario that has expectations)
set -uo pipefail

pimrp=$(realpath "${1:?usage: regenerate.sh PIMRP [NAME...]}")
shift
cd "$(dirname "$0")" || exit 1

names=("$@")
if [ ${#names[@]} -eq 0 ]; then
  mapfile -t names < <(ls ./*.out ./*.json 2>/dev/null | sed 's|^\./||; s|\.[a-z]*$||' | sort -u)
fi

for name in "${names[@]}"; do
  for mode in human json; do
    expected=$name.out
    [ "$mode" = json ] && expected=$name.json
    # A scenario without an expectation for a mode is not run in that mode.
    if [ ! -f "$expected" ] && [ "$mode" = json ] && [ -f "$name.out" ]; then continue; fi
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
    [ -f "$name.input" ] && input=$(<"$name.input")
    : >"$expected"
    output=$expected
    [ -f "$name.output" ] && output=$(<"$name.output")
    "$pimrp" "${args[@]}" <"$input" >"$output" 2>"$name.err.new"
    status=$?
    # Standard error and the status are the same in both modes; the human run writes them.
    if [ "$mode" = human ] || [ ! -f "$name.out" ]; then
      if [ -s "$name.err.new" ]; then mv "$name.err.new" "$name.err"; else rm -f "$name.err"; fi
      if [ "$status" -ne 0 ]; then echo "$status" >"$name.status"; else rm -f "$name.status"; fi
    fi
    rm -f "$name.err.new"
  done
done
