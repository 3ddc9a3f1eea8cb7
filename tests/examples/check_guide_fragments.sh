#!/usr/bin/env bash
# Fails when a code fragment of the embedding guide is not, to the character, the region of an
# example source it names, so that the guide cannot drift from code that builds and runs.
#
# In the guide, each ```cpp or ```cmake block follows a line
#   <!-- fragment: PATH NAME -->
# and in PATH (relative to ROOT) the region NAME lies between a line holding [guide:NAME] and one
# holding [/guide:NAME] (in a comment of the language); the block is the region's lines with their
# common indentation removed. Every such block must name a region, and every region of the
# examples must appear in the guide.
#
#   check_guide_fragments.sh ROOT   (the guide is ROOT/docs/embedding.md)
set -uo pipefail

root=${1:?usage: check_guide_fragments.sh ROOT}
guide=$root/docs/embedding.md
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The region NAME of FILE, its common indentation removed.
region() {  # file, name
  awk -v name="$2" '
    index($0, "[/guide:" name "]") { inside = 0 }
    inside { lines[++count] = $0 }
    index($0, "[guide:" name "]") { inside = 1 }
    END {
      indent = -1
      for (i = 1; i <= count; ++i) {
        if (lines[i] ~ /^[[:space:]]*$/) continue
        match(lines[i], /^ */)
        if (indent < 0 || RLENGTH < indent) indent = RLENGTH
      }
      for (i = 1; i <= count; ++i) print substr(lines[i], indent + 1)
    }' "$1"
}

failed=0
fail() {
  echo "check_guide_fragments: $*" >&2
  failed=1
}

# Each block of the guide with the marker before it: "PATH NAME" per block, and its text.
awk -v work="$work" '
  /^<!-- fragment: / { marker = $3 " " $4; next }
  /^```(cpp|cmake)$/ {
    ++blocks
    if (marker == "") { print "unmarked " NR; inside = 2; next }
    print "block " blocks " " marker
    file = work "/block" blocks; printf "" > file; inside = 1; marker = ""; next
  }
  /^```/ && inside { inside = 0; next }
  inside == 1 { print > file }
  { marker = "" }
' "$guide" >"$work/blocks"

while read -r kind number path name; do
  if [ "$kind" = unmarked ]; then
    fail "$guide:$number: a code block without a '<!-- fragment: PATH NAME -->' line before it"
    continue
  fi
  echo "$path $name" >>"$work/used"
  if [ ! -f "$root/$path" ] || ! grep -qF "[guide:$name]" "$root/$path"; then
    fail "fragment $number names $path $name, which holds no region of that name"
    continue
  fi
  region "$root/$path" "$name" >"$work/region"
  if ! diff -u --label "$path [guide:$name]" --label "docs/embedding.md fragment $number" \
      "$work/region" "$work/block$number" >&2; then
    fail "fragment $number is not the region $name of $path"
  fi
done <"$work/blocks"

for source in "$root"/examples/*.cpp "$root"/examples/CMakeLists.txt; do
  path=${source#"$root/"}
  for name in $(grep -o '\[guide:[a-z-]*\]' "$source" | sed 's/\[guide:\(.*\)\]/\1/'); do
    grep -qxF "$path $name" "$work/used" 2>/dev/null || fail "region $name of $path is in no fragment of the guide"
  done
done

count=$(grep -c '^block' "$work/blocks")
((failed == 0)) && echo "OK: $count fragments of docs/embedding.md are their example regions"
exit $failed
