#!/usr/bin/env bash
# Takes the sources at ROOT into another project by add_subdirectory, and looks at what that build
# does: the library, and nothing that is the other project's own business. One folder of the library
# and the project's own program are compiled there. To compile all of it once more would take minutes,
# so the program is linked, by that build's own command, with the library of BUILD_DIR in its place.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
temp=$(mktemp -d)
trap 'rm -rf "$temp"' EXIT

fail() { echo "FAILED: $*" >&2; exit 1; }

cmake -G Ninja -S "$here/parent" -B "$temp/build" -DKESTREL_ROOT="$ROOT" >"$temp/log" ||
  { cat "$temp/log"; fail "it does not configure"; }
cd "$temp/build"

ninja -t targets all | cut -d: -f1 | sort >"$temp/targets"
grep -qx 'kestrel/libkestrelcode.so' "$temp/targets" || fail "no library"
if grep -E '(^|/)(kestrel|test_[a-z]+|fuzz_[a-z]+|kestrel_bench|QTMovieHelperTask)$' "$temp/targets"; then
  fail "these targets are of no use to another project"
fi
ninja -n parent >/dev/null || fail "its program cannot be built"

ninja kestrel_effects parent_objects >"$temp/log" || { cat "$temp/log"; fail "it does not compile"; }
cp "$BUILD_DIR"/libkestrelcode.so* kestrel/
ninja -t commands parent | tail -n 1 | bash >"$temp/log" || { cat "$temp/log"; fail "no link"; }
[[ $(./parent) == 'stereo is 3' ]] || fail "its program does not run"

if grep -n 'fuse-ld' build.ninja; then fail "a linker is chosen for the other project"; fi
grep -qx 'CMAKE_BUILD_TYPE:STRING=' CMakeCache.txt || fail "a build type is chosen for it"
ctest -N | grep -qx 'Total Tests: 0' || fail "it gets tests that are not its own"
cmake --install . --prefix "$temp/prefix" >/dev/null
[[ -z $(find "$temp/prefix" -type f 2>/dev/null) ]] || fail "it installs what is not its own"
