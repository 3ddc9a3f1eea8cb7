#!/usr/bin/env bash
# Runs the examples as an agent and a reader would be run, and compares what they print with the
# expectations beside this script. The agent's tables are named after this process and removed on
# exit, pass or fail.
#
#   run_examples.sh settles|agent-and-reader RP_AGENT RP_READER PIMRP EXAMPLES_DIR
#
#   settles            the agent reads its input, settles and exits (--exit-when-settled)
#   agent-and-reader   the agent settles and stays; the reader answers from its tables while it
#                      runs; SIGTERM stops the agent
set -uo pipefail

mode=$1
agent=$2
reader=$3
pimrp=$4
examples=$5
expected=$(cd "$(dirname "$0")" && pwd)

tables=pimrp-example-$$
work=$(mktemp -d)
agent_pid=
cleanup() {
  [ -n "$agent_pid" ] && kill -KILL "$agent_pid" 2>/dev/null
  "$pimrp" --shm "$tables" --unlink >/dev/null 2>&1
  rm -rf "$work"
}
trap cleanup EXIT

failed=0
compare() {  # expected, actual, what
  if ! diff -u "$1" "$2"; then
    echo "$3 differs" >&2
    failed=1
  fi
}

case "$mode" in
  settles)
    timeout 60 "$agent" "$tables" --exit-when-settled <"$examples/rp_agent_input.txt" \
      >"$work/agent.out" 2>"$work/agent.err"
    status=$?
    compare "$expected/rp_agent.out" "$work/agent.out" "the agent's output"
    compare /dev/null "$work/agent.err" "the agent's errors"
    [ "$status" = 0 ] || { echo "the agent exited with $status" >&2; failed=1; }
    ;;
  agent-and-reader)
    "$agent" "$tables" <"$examples/rp_agent_input.txt" >"$work/agent.out" 2>"$work/agent.err" &
    agent_pid=$!
    # Settling takes a few milliseconds; a minute is for a machine under heavy load.
    for _ in $(seq 600); do
      grep -qx settled "$work/agent.out" && break
      kill -0 "$agent_pid" 2>/dev/null || break
      sleep 0.1
    done
    "$reader" "$tables" 239.1.1.1 239.9.9.9 238.1.1.1 237.1.1.1 236.1.1.1 ff0e::1 \
      >"$work/reader.out" 2>"$work/reader.err"
    compare "$expected/rp_reader.out" "$work/reader.out" "the reader's answers"
    compare /dev/null "$work/reader.err" "the reader's errors"
    kill -TERM "$agent_pid"
    wait "$agent_pid"
    status=$?
    agent_pid=
    { cat "$expected/rp_agent.out"; echo stopped; } >"$work/agent.expected"
    compare "$work/agent.expected" "$work/agent.out" "the agent's output"
    [ "$status" = 0 ] || { echo "the agent exited with $status" >&2; failed=1; }
    ;;
  *)
    echo "usage: run_examples.sh settles|agent-and-reader RP_AGENT RP_READER PIMRP EXAMPLES_DIR" >&2
    exit 2
    ;;
esac
exit $failed
