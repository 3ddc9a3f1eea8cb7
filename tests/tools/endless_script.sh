#!/usr/bin/env bash
# A script that never ends ends pimrp at once, with exit status 2, nothing applied and nothing
# printed: /dev/urandom under a time limit, and a bounded stream of random bytes through a pipe.
# Reading stops at the hundredth error (or at a line longer than 4096 bytes, which random bytes
# seldom make).
#
#   endless_script.sh PIMRP
set -uo pipefail

pimrp=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

stopped='(: error: 100 errors; the input is not read past this line|: error: line longer than 4096 bytes; the input is not read past it)$'
failed=0
check() {  # what, status
  if [ "$2" != 2 ]; then
    echo "$1: exit status $2, expected 2" >&2
    failed=1
  fi
  if ! tail -n 1 "$work/err" | grep -Eq "$stopped"; then
    echo "$1: did not stop reading where expected:" >&2
    tail -n 2 "$work/err" >&2
    failed=1
  fi
  if [ -s "$work/out" ]; then
    echo "$1: printed answers" >&2
    failed=1
  fi
}

timeout 60 "$pimrp" /dev/urandom >"$work/out" 2>"$work/err"
check /dev/urandom $?
head -c 10000000 /dev/urandom | timeout 60 "$pimrp" /dev/stdin >"$work/out" 2>"$work/err"
check "a bounded stream" "${PIPESTATUS[1]}"
exit $failed
