#!/usr/bin/env bash
# Fails, listing each offending line, when a source under framework/, model/, rp/ or pipeline/ of
# ROOT includes a folder above its own. Dependencies point down only:
# tools -> pipeline -> rp -> model -> framework.
#
# usage: check_include_layers.sh ROOT
set -euo pipefail

root=${1:?usage: check_include_layers.sh ROOT}
cd "$root"

# Each folder with the folders it must not include.
declare -A above=(
  [framework]="model rp pipeline tools"
  [model]="rp pipeline tools"
  [rp]="pipeline tools"
  [pipeline]="tools"
)

offenders=0
checked=0
for folder in framework model rp pipeline; do
  [[ -d $folder ]] || continue
  pattern=$(printf '%s|' ${above[$folder]})
  pattern="^[[:space:]]*#[[:space:]]*include[[:space:]]*[\"<](${pattern%|})/"
  while IFS= read -r -d '' file; do
    checked=$((checked + 1))
    while IFS= read -r hit; do
      echo "$file:$hit"
      offenders=$((offenders + 1))
    done < <(grep -nE "$pattern" "$file" || true)
  done < <(find "$folder" -type f \( -name '*.h' -o -name '*.cpp' \) -print0 | sort -z)
done

if ((offenders > 0)); then
  echo "FAILED: $offenders include(s) of a higher folder (tools -> pipeline -> rp -> model -> framework)"
  exit 1
fi
echo "OK: $checked sources include only their own folder or folders below"
