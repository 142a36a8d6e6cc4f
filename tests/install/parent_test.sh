#!/usr/bin/env bash
# Takes the sources at ROOT into another project by add_subdirectory, and looks at what that build
# would do: the library, and nothing that is the other project's own business. (It is not built: that
# would compile the whole library once more.)
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

if grep -n 'fuse-ld' build.ninja; then fail "a linker is chosen for the other project"; fi
grep -qx 'CMAKE_BUILD_TYPE:STRING=' CMakeCache.txt || fail "a build type is chosen for it"
ctest -N | grep -qx 'Total Tests: 0' || fail "it gets tests that are not its own"
cmake --install . --prefix "$temp/prefix" >/dev/null
[[ -z $(find "$temp/prefix" -type f 2>/dev/null) ]] || fail "it installs what is not its own"
