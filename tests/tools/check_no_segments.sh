#!/bin/sh
# Fails, naming them, when test processes that have ended left shared-memory segments behind
# (pimrp-test-<pid>-...); removes them so that the next run starts clean. Segments of test
# processes still running belong to them.
left=0
for segment in /dev/shm/pimrp-test-*; do
  [ -e "$segment" ] || continue
  pid=$(basename "$segment" | cut -d- -f3)
  kill -0 "$pid" 2>/dev/null && continue
  echo "left behind: $segment"
  rm -f "$segment"
  left=1
done
exit $left
