#!/usr/bin/env bash
# Runs scripts/setup among stand-ins for the system's programs, which record what they were asked.
set -euo pipefail

setup=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)/scripts/setup
temp=$(mktemp -d)
trap 'rm -rf "$temp"' EXIT
mkdir "$temp/bin"
calls=$temp/calls

fail() { echo "FAILED: $*" >&2; exit 1; }

# stand_in <program>: its body comes from standard input.
stand_in() {
  { echo '#!/bin/bash'; cat; } >"$temp/bin/$1"
  chmod +x "$temp/bin/$1"
}

# Only these programs exist, so that a real sudo is not found.
for program in bash env sed; do ln -s "$(command -v "$program")" "$temp/bin/$program"; done
stand_in apt-get <<<'echo "apt-get $*" >>"$CALLS"; echo "chatter of apt"'
stand_in id <<<'echo "${USER_ID:-0}"'
stand_in dpkg-query <<'STAND_IN'
for word in "$@"; do
  [[ $word == -* || " ${MISSING:-} " == *" $word "* ]] && continue
  if [[ " ${REMOVED:-} " == *" $word "* ]]; then
    echo "config-files $word"
  else
    echo "installed $word"
  fi
done
[[ -z ${MISSING:-} ]]
STAND_IN

# run [NAME=value...]: leaves the status in $status, what was written in out and err.
run() {
  : >"$calls"
  status=0
  env -i PATH="$temp/bin" CALLS="$calls" "$@" bash "$setup" >"$temp/out" 2>"$temp/err" || status=$?
  [[ ! -s $temp/out ]] || fail "standard output is not empty"
}

echo "--- does nothing where nothing is missing"
run
[[ $status -eq 0 && ! -s $calls && ! -s $temp/err ]] || fail "it did something"

echo "--- installs what is missing, after an update, and says so"
run MISSING="cmake ffmpeg"
[[ $status -eq 0 ]] || fail "status $status"
grep -q "installing cmake ffmpeg" "$temp/err" || fail "it does not say what it installs"
[[ $(wc -l <"$calls") -eq 2 ]] || fail "not two calls of apt-get"
sed -n 1p "$calls" | grep -q " update$" || fail "no update first"
sed -n 2p "$calls" | grep -q " install .* cmake ffmpeg$" || fail "no installation of just these"

echo "--- a removed package whose settings remain is missing"
run REMOVED="cmake"
grep -q " install .* cmake$" "$calls" || fail "cmake is not installed"

echo "--- without root and sudo it says what to run"
run MISSING="cmake" USER_ID=1000
[[ $status -eq 1 && ! -s $calls ]] || fail "status $status"
grep -q "run as root: apt-get install .* cmake" "$temp/err" || fail "no advice"

echo "--- goes through sudo where it is not root"
stand_in sudo <<<'echo "sudo $*" >>"$CALLS"; exec "$@"'
run MISSING="cmake" USER_ID=1000
[[ $status -eq 0 ]] || fail "status $status"
grep -q "^sudo .*apt-get .* install .* cmake$" "$calls" || fail "not through sudo"

echo "--- a failing apt-get fails the setup"
stand_in apt-get <<<'exit 100'
run MISSING="cmake"
[[ $status -ne 0 ]] || fail "status 0"
