#!/usr/bin/env bash
# show config prints statements that, run as a script, rebuild the same candidate statuses and
# the same running configuration: for the demo script and every scenario script that applies
# cleanly (a .pimrp or .stdin with no .args and no .status), the candidates of both sources and
# show config itself come out the same after the script and after its show config.
#
# One scenario leaves a static candidate with values that no statement gives back (its group
# binding removed while a list still gives the range): there show config notes it, and running
# the statements rebuilds the same statements, now without the note.
#
#   config_round_trip.sh PIMRP DIR
set -uo pipefail

pimrp=$1
dir=$2
cd "$dir" || exit 1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$pimrp" --demo-script >"$work/demo.pimrp"
scripts=("$work/demo.pimrp")
for script in *.pimrp *.stdin; do
  name=${script%.*}
  [ -f "$name.args" ] || [ -f "$name.status" ] || scripts+=("$script")
done

# The last `count` answers a run of `script` followed by `shows` prints (answers are separated by
# one blank line and hold none).
last_answers() {  # script, count
  { cat "$1"; printf '\n%s\n' "${shows[@]}"; } >"$work/run.pimrp"
  "$pimrp" "$work/run.pimrp" 2>/dev/null |
    awk -v count="$2" 'BEGIN { RS = ""; ORS = "\n\n" } { kept[NR] = $0 }
      END { for (i = NR - count + 1; i <= NR; ++i) print kept[i] }'
}

noted=show_config_history.pimrp

failed=0
for script in "${scripts[@]}"; do
  shows=("show config")
  last_answers "$script" 1 >"$work/config.pimrp"
  if [ "$script" = "$noted" ]; then
    grep -v '^# note:' "$work/config.pimrp" >"$work/before"
    last_answers "$work/config.pimrp" 1 >"$work/after"
    if ! grep -q '^# note:' "$work/config.pimrp" || ! diff -u "$work/before" "$work/after" >&2; then
      echo "$script: show config does not note what it cannot give back, or rebuilds otherwise" >&2
      failed=1
    fi
    continue
  fi
  shows=("show candidates static" "show candidates bsr" "show config")
  last_answers "$script" 3 >"$work/before"
  last_answers "$work/config.pimrp" 3 >"$work/after"
  if grep -q '^# note:' "$work/config.pimrp"; then
    echo "$script: show config notes candidates it cannot give back:" >&2
    grep '^# note:' "$work/config.pimrp" >&2
    failed=1
  fi
  if ! diff -u "$work/before" "$work/after" >&2; then
    echo "$script: running its show config does not rebuild the same" >&2
    failed=1
  fi
done
echo "${#scripts[@]} scripts round-tripped"
exit $failed
