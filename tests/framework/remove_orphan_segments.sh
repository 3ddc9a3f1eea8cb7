#!/bin/sh
# Removes the shared-memory segments of test processes that no longer run (mirra-test-<pid>-...).
for segment in /dev/shm/mirra-test-*; do
  [ -e "$segment" ] || continue
  pid=$(basename "$segment" | cut -d- -f3)
  kill -0 "$pid" 2>/dev/null || rm -f "$segment"
done
exit 0
