#!/usr/bin/env bash
# Installs a built pimrp tree into a scratch prefix inside that build tree, then configures, builds
# and runs the consumer project beside this script (and the examples it builds) against the
# prefix, through find_package(pimrp) only. The scratch folder is removed on exit, pass or fail.
#
# usage: run_consumer_test.sh CMAKE BUILD_DIR CXX_COMPILER BUILD_TYPE CXX_FLAGS LINKER_FLAGS
#   CXX_FLAGS and LINKER_FLAGS are the build's own (warnings, sanitizers), so that the consumer
#   compiles as strictly as the project and links with the same sanitizer runtime.
set -euo pipefail

cmake=${1:?usage: run_consumer_test.sh CMAKE BUILD_DIR CXX_COMPILER BUILD_TYPE CXX_FLAGS LINKER_FLAGS}
build_dir=$2
cxx_compiler=$3
build_type=$4
cxx_flags=$5
linker_flags=$6
consumer_source=$(cd "$(dirname "$0")" && pwd)

scratch=$(mktemp -d "$build_dir/consumer-test.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix

"$cmake" --install "$build_dir" --prefix "$prefix" >/dev/null
"$prefix/bin/pimrp" --version

# Installed headers include one another by their paths from the project root; each must be there.
unresolved=0
while IFS= read -r -d '' header; do
  while IFS= read -r included; do
    if [[ ! -f $prefix/include/pimrp/$included ]]; then
      echo "${header#"$prefix/"} includes \"$included\", which is not installed" >&2
      unresolved=$((unresolved + 1))
    fi
  done < <(sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"\([^"]*\)".*/\1/p' "$header")
done < <(find "$prefix/include/pimrp" -name '*.h' -print0)
((unresolved == 0)) || exit 1

"$cmake" -S "$consumer_source" -B "$scratch/build" \
  -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_COMPILER="$cxx_compiler" \
  -DCMAKE_BUILD_TYPE="$build_type" \
  -DCMAKE_CXX_FLAGS="$cxx_flags" \
  -DCMAKE_EXE_LINKER_FLAGS="$linker_flags" >/dev/null
# A pimrp installed elsewhere on the machine must not stand in for the one under test.
found=$(sed -n 's/^pimrp_DIR:PATH=//p' "$scratch/build/CMakeCache.txt")
case "$found" in
  "$prefix"/*) ;;
  *)
    echo "find_package(pimrp) found '$found', not the package installed under $prefix" >&2
    exit 1
    ;;
esac
"$cmake" --build "$scratch/build" >/dev/null
"$scratch/build/pimrp_consumer"
# The examples, built against the installed tree, run as ctest runs them in the build tree.
for mode in settles agent-and-reader; do
  "$consumer_source/../examples/run_examples.sh" "$mode" "$scratch/build/examples/rp_agent" \
    "$scratch/build/examples/rp_reader" "$prefix/bin/pimrp" "$consumer_source/../../examples"
done
