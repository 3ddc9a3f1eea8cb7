#!/usr/bin/env bash
# pimrp at a terminal: runs it under a pseudo-terminal (script(1)) and types a line, recalls it
# with the up arrow, and edits a third with the left arrow; the answers must show the recalled
# line run again and the edit made where the cursor was, not escape text in the statements.
#   terminal_editing.sh PIMRP
set -uo pipefail
pimrp=${1:?usage: terminal_editing.sh PIMRP}

# Pauses let the editor take each line before the next keys arrive, as a person types.
typed=$( (printf 'show acl A\n'; sleep 0.5; printf '\033[A\n'; sleep 0.5
          printf 'show acl Bx\033[D\033[DC\n'; sleep 0.5; printf '\004') |
        timeout 20 script -qec "$pimrp --json -" /dev/null)
status=$?
answers=$(grep -o '{"acl":"[A-Za-z]*"' <<<"$typed" | tr '\n' ' ')
expected='{"acl":"A" {"acl":"A" {"acl":"CBx" '
if [ "$status" -ne 0 ] || [ "$answers" != "$expected" ]; then
  echo "status $status, answers: $answers (expected: $expected)" >&2
  printf '%s\n' "$typed" | cat -A >&2
  exit 1
fi
# The prompt appears: the editor, not plain reading, served the terminal.
grep -q 'pimrp> ' <<<"$typed" || { echo "no prompt" >&2; exit 1; }
