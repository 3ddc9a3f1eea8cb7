#!/usr/bin/env bash
# Scaling of the pimrp tool: applying a script must cost time linear in its length.
#   bench/tool_scaling.sh PIMRP
# Generates two scripts, of 10,000 and of 100,000 "rp-address ... group" bindings over 1,000 RPs
# (two RPs per group range, so that selection has to rank them), each followed by as many
# "show rp" queries over the ranges in scattered order; runs each with --json to /dev/null; prints
# both times and their ratio, and fails when the ratio is above 12.
# Then times an access list of 50,000 rules written after the static RP that uses it is bound
# ("bind first") against the same list written before the binding ("rules first"), and fails when
# binding first costs more than twice as much: a script's run of rules reaches the library as
# one change of the list, whichever comes first.
#
# Times are processor time (user + system) of the process: on a shared machine the wall clock
# mostly measures the neighbours.
set -euo pipefail

pimrp=${1:?usage: tool_scaling.sh PIMRP}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# generate COUNT FILE: COUNT bindings, then COUNT queries. The bindings are written RP by RP, as
# a configuration lists them; RPs 2k and 2k+1 share their COUNT/1000 ranges, at priorities that
# differ from pair to pair.
generate() {
  awk -v count="$1" 'BEGIN {
    perRp = int(count / 1000)
    for (i = 0; i < count; i++) {
      rp = int(i / perRp)
      range = int(rp / 2) * perRp + i % perRp
      printf "rp-address 10.%d.%d.1 group %d.%d.%d.0/24 priority %d hashmask 30\n",
             int(rp / 256), rp % 256, 225 + int(range / 65536), int(range / 256) % 256,
             range % 256, (rp % 4) * 10
    }
    ranges = int(count / 2)
    for (q = 0; q < count; q++) {
      range = (q * 7919) % ranges
      printf "show rp %d.%d.%d.%d\n", 225 + int(range / 65536), int(range / 256) % 256,
             range % 256, 1 + q % 254
    }
  }' >"$2"
}

# seconds FILE TIMES: processor seconds (user + system) of running FILE TIMES times in a row.
seconds() {
  local TIMEFORMAT='%U %S'
  local times
  times=$( { time for ((run = 0; run < $2; run++)); do "$pimrp" --json "$1" >/dev/null; done; } 2>&1 )
  awk '{ printf "%.4f\n", $1 + $2 }' <<<"$times"
}

generate 10000 "$work/small.pimrp"
generate 100000 "$work/large.pimrp"
# Each round times ten runs of the small script, then one of the large one, so that both see the
# same machine; the round with the median ratio is reported.
rounds=()
for ((round = 0; round < 5; round++)); do
  small=$(awk -v t="$(seconds "$work/small.pimrp" 10)" 'BEGIN { printf "%.4f", t / 10 }')
  large=$(seconds "$work/large.pimrp" 1)
  rounds+=("$(awk -v s="$small" -v l="$large" 'BEGIN { printf "%.3f %.4f %.4f", l / s, s, l }')")
done
read -r ratio small large < <(printf '%s\n' "${rounds[@]}" | sort -n | sed -n 3p)
printf '10000 bindings + 10000 queries:   %.3f s\n' "$small"
printf '100000 bindings + 100000 queries: %.3f s\n' "$large"
printf 'ratio: %.2f (at most 12)\n' "$ratio"
awk -v r="$ratio" 'BEGIN { exit !(r <= 12) }'

# acl_script COUNT FILE bind-first|rules-first: COUNT permit rules of one list, each a /24 of its
# own, apart from its neighbours so that each stays a range of its own, and a static RP bound
# to the list before or after them; then one query.
acl_script() {
  awk -v count="$1" -v order="$3" 'BEGIN {
    if (order == "bind-first") print "rp-address 10.0.0.1 acl BIG"
    for (i = 0; i < count; i++) {
      range = 2 * i
      printf "acl BIG seq %d permit %d.%d.%d.0/24\n", i + 1, 225 + int(range / 65536),
             int(range / 256) % 256, range % 256
    }
    if (order == "rules-first") print "rp-address 10.0.0.1 acl BIG"
    print "show rp 225.0.0.1"
  }' >"$2"
}

acl_script 50000 "$work/rules-first.pimrp" rules-first
acl_script 50000 "$work/bind-first.pimrp" bind-first
rounds=()
for ((round = 0; round < 3; round++)); do
  rules_first=$(seconds "$work/rules-first.pimrp" 1)
  bind_first=$(seconds "$work/bind-first.pimrp" 1)
  rounds+=("$(awk -v r="$rules_first" -v b="$bind_first" 'BEGIN { printf "%.3f %.4f %.4f", b / r, r, b }')")
done
read -r ratio rules_first bind_first < <(printf '%s\n' "${rounds[@]}" | sort -n | sed -n 2p)
printf '50000 access-list rules, then the binding: %.3f s\n' "$rules_first"
printf 'the binding, then 50000 access-list rules: %.3f s\n' "$bind_first"
printf 'ratio: %.2f (at most 2)\n' "$ratio"
awk -v r="$ratio" 'BEGIN { exit !(r <= 2) }'

# The whole pipeline at scale: 1,000 static ranges (/22s of 239.0.0.0/12, each with its own RP),
# 1,048,576 known groups, then run until no wake-up is pending (every review of both sources in
# both modes done, the final tables merged, the group filters reviewed). Reports wall time and
# processor time and peak memory of the one run; the review's per-group cost is in
# bench/RpHashReviewBench.
awk 'BEGIN {
  for (i = 0; i < 1000; i++) {
    printf "rp-address 10.%d.%d.1 group 239.%d.%d.0/22\n", int(i / 256), i % 256,
           int(i * 4 / 256), (i * 4) % 256
  }
  print "group 239.0.0.0/12"
  print "run"
  print "show review"
  print "show alloc-requests"
}' >"$work/pipeline.pimrp"
if [ -x /usr/bin/time ]; then
  /usr/bin/time -f '%e %U %S %M' -o "$work/pipeline.time" "$pimrp" --json \
    "$work/pipeline.pimrp" >"$work/pipeline.out"
  read -r wall user system peak <"$work/pipeline.time"
  printf '1000 ranges, 1048576 known groups, settled: %.2f s wall, %.2f s user + %.2f s system, %d MB peak\n' \
    "$wall" "$user" "$system" "$((peak / 1024))"
else
  start=$(date +%s.%N)
  "$pimrp" --json "$work/pipeline.pimrp" >"$work/pipeline.out"
  printf '1000 ranges, 1048576 known groups, settled: %.2f s wall\n' \
    "$(awk -v s="$start" -v e="$(date +%s.%N)" 'BEGIN { print e - s }')"
fi
head -c 300 "$work/pipeline.out"
echo
