#!/usr/bin/env bash
# Installs the build tree under a fresh prefix, builds the outside project
# against it and runs it: build_outside_project.sh BUILD_DIR WORK_DIR
set -euo pipefail
build=$1 work=$2
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$work"
cmake --install "$build" --prefix "$work/prefix" >/dev/null
cmake -S "$here" -B "$work/app" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/app" >/dev/null
# The app must not reach back into the build tree.
! ldd "$work/app/app" | grep -q "$build/bin"
"$work/app/app" /usr/bin/python3
