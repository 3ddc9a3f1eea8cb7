#!/usr/bin/env bash
# Builds the Debian package of pimrp from a build tree and checks it without installing it on the
# machine: the package holds the tool, the headers, the libraries and the CMake package, declares
# its dependencies, and a project outside the tree builds and runs against the unpacked files.
#
# usage: scripts/package-check.sh [BUILD_DIR]   (default build; configured and built when needed)
set -euo pipefail
cd "$(dirname "$0")/.."

build_dir=${1:-build}
./scripts/setup.sh
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build_dir" -j "$(nproc)"
build_dir=$(cd "$build_dir" && pwd)

scratch=$(mktemp -d "$build_dir/package-check.XXXXXX")
trap 'rm -rf "$scratch"' EXIT

cpack --config "$build_dir/CPackConfig.cmake" -G DEB -B "$scratch/out" >/dev/null
debs=("$scratch"/out/pimrp-*.deb)
deb=${debs[0]}
echo "package-check: $(basename "$deb")"

failures=0
fail() {
  echo "package-check: $*" >&2
  failures=$((failures + 1))
}

# Contents: one pattern per file that must be there (extended regular expressions over the paths).
dpkg-deb -c "$deb" | awk '{print $6}' >"$scratch/contents"
for expected in \
  '\./usr/bin/pimrp' \
  '\./usr/include/pimrp/framework/Kel/Ptr\.h' \
  '\./usr/include/pimrp/model/Pim/RpCandidateStatus\.h' \
  '\./usr/include/pimrp/rp/PimRpCompute\.h' \
  '\./usr/include/pimrp/pipeline/VrfPipeline\.h' \
  '\./usr/lib/(.+/)?libpimrp_framework\.a' \
  '\./usr/lib/(.+/)?libpimrp_model\.a' \
  '\./usr/lib/(.+/)?libpimrp_rp\.a' \
  '\./usr/lib/(.+/)?libpimrp_pipeline\.a' \
  '\./usr/lib/(.+/)?cmake/pimrp/pimrpConfig\.cmake' \
  '\./usr/lib/(.+/)?cmake/pimrp/pimrpConfigVersion\.cmake' \
  '\./usr/lib/(.+/)?cmake/pimrp/pimrpTargets\.cmake'; do
  grep -qxE "$expected" "$scratch/contents" || fail "missing from the package: $expected"
done
# The project's own test seams and the tool's internals stay out.
if grep -E '/testing/|/include/pimrp/tools/|libpimrp_tool' "$scratch/contents"; then
  fail "the package holds files meant for this project only (above)"
fi

depends=$(dpkg-deb -f "$deb" Depends)
depends_names=$(tr ',' '\n' <<<"$depends" | awk '{print $1}')
for package in libc6 libstdc++6 libboost-dev; do
  grep -qxF "$package" <<<"$depends_names" || fail "Depends lacks $package: $depends"
done
[[ $(dpkg-deb -f "$deb" Maintainer) == "pimrp maintainers" ]] || fail "wrong Maintainer"
[[ $(dpkg-deb -f "$deb" Architecture) == "$(dpkg --print-architecture)" ]] || fail "wrong Architecture"

# Unpacked into a scratch root: the tool runs, and the consumer project builds against that root.
dpkg -x "$deb" "$scratch/root"
"$scratch/root/usr/bin/pimrp" --version
cmake -S tests/consumer -B "$scratch/consumer" -DCMAKE_PREFIX_PATH="$scratch/root/usr" >/dev/null
found=$(sed -n 's/^pimrp_DIR:PATH=//p' "$scratch/consumer/CMakeCache.txt")
[[ $found == "$scratch/root/usr/"* ]] || fail "find_package(pimrp) found '$found', not the unpacked package"
cmake --build "$scratch/consumer" >/dev/null
"$scratch/consumer/pimrp_consumer" || fail "the consumer built against the package gave a wrong answer"
for mode in settles agent-and-reader; do
  tests/examples/run_examples.sh "$mode" "$scratch/consumer/examples/rp_agent" \
    "$scratch/consumer/examples/rp_reader" "$scratch/root/usr/bin/pimrp" examples ||
    fail "the examples built against the package ($mode) did not answer as expected"
done

if ((failures > 0)); then
  echo "package-check: FAILED ($failures)" >&2
  exit 1
fi
echo "package-check: OK"
