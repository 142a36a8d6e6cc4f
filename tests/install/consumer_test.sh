#!/usr/bin/env bash
# Installs the build tree BUILD_DIR into a temporary prefix, moves that, and builds and runs the
# program in consumer/ against it, with the compiler CXX and its flags CXXFLAGS.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
temp=$(mktemp -d)
trap 'rm -rf "$temp"' EXIT

fail() { echo "FAILED: $*" >&2; exit 1; }

cmake --install "$BUILD_DIR" --prefix "$temp/first" >/dev/null
mv "$temp/first" "$temp/moved"
prefix=$temp/moved
libdir=$(dirname "$(find "$prefix" -name libkestrelcode.so)")

echo "--- what is installed"
(cd "$prefix" && find . -type l -o -type f | sort)
[[ -L $libdir/libkestrelcode.so.0 ]] || fail "no link for the library's interface version"
[[ -f $prefix/include/kestrel/kestrel.h ]] || fail "no headers"
if grep -rl "$BUILD_DIR" "$libdir/cmake" "$libdir/pkgconfig" "$prefix/include"; then
  fail "these name the build folder"
fi

echo "--- by CMake"
cmake -G Ninja -S "$here/consumer" -B "$temp/build" -DCMAKE_PREFIX_PATH="$prefix"
cmake --build "$temp/build"
"$temp/build/consumer"

echo "--- by pkg-config"
export PKG_CONFIG_PATH=$libdir/pkgconfig
read -ra flags <<<"$CXXFLAGS $(pkg-config --cflags --libs kestrelcode)"
"$CXX" -std=c++20 "$here/consumer/main.cpp" "${flags[@]}" -o "$temp/consumer"
LD_LIBRARY_PATH=$libdir "$temp/consumer"

if [[ -x $prefix/bin/kestrel ]]; then
  echo "--- the installed command line"
  "$prefix/bin/kestrel" --version
  # From another folder, without the library's being named: the tree knows its own parts.
  (cd "$temp" && env -u LD_LIBRARY_PATH "$prefix/bin/kestrel" help join) >/dev/null
  for helper in QTMovieHelperTask SamplePointsTask; do
    [[ -x $prefix/libexec/kestrelcode/$helper ]] || fail "no $helper"
    status=0
    env -u LD_LIBRARY_PATH "$prefix/libexec/kestrelcode/$helper" >/dev/null 2>&1 || status=$?
    [[ $status -eq 2 ]] || fail "$helper does not start: $status"
  done
  [[ -s $prefix/share/man/man1/kestrel.1 && -s $prefix/share/man/man1/kestrel-convert.1 ]] ||
    fail "no manual pages"
  [[ -s $prefix/share/man/man3/libkestrelcode.3 ]] || fail "no page of the library"
  for file in bash-completion/completions/kestrel zsh/site-functions/_kestrel \
    fish/vendor_completions.d/kestrel.fish; do
    [[ -s $prefix/share/$file ]] || fail "no $file"
  done

  echo "--- an installed library finds its helpers for any program"
  "$CXX" -std=c++20 "$here/consumer/helper.cpp" "${flags[@]}" -o "$temp/helper"
  LD_LIBRARY_PATH=$libdir "$temp/helper" || fail "it does not"
fi
