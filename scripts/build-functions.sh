# shellcheck shell=bash
# Shared by the scripts beside it; sourced, not run.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# configure <folder> [cmake option...]: makes the build folder, or takes over new options.
configure() {
  local folder=$1 fresh=()
  shift
  # A build folder that came along with a copied tree belongs to another place.
  if [[ -f $folder/CMakeCache.txt ]] &&
    ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$folder/CMakeCache.txt"; then
    fresh=(--fresh)
  fi
  cmake -S "$root" -B "$folder" -G Ninja "${fresh[@]}" \
    -DKESTREL_FIXTURE_DIR="$root/build/fixtures" "$@"
}

# configure_clang [cmake option...]: build/clang, for what Clang says of the sources. Nothing there
# need be fast.
configure_clang() {
  configure "$root/build/clang" -DCMAKE_CXX_COMPILER=clang++-14 -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_CXX_FLAGS_DEBUG=-O0 -DKESTREL_BUILD_TESTS=ON "$@"
}

# is_configured <folder>: whether its build files are whole and belong to this place.
is_configured() {
  [[ -f $1/build.ninja ]] &&
    grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$1/CMakeCache.txt" 2>/dev/null
}

# lock <folder>: waits until no other script builds in that folder; unlock lets the next one in.
lock() {
  mkdir -p "$1"
  exec 9>"$1/.lock"
  flock 9
}
unlock() { exec 9>&-; }
