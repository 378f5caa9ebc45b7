#!/bin/sh
# Installs the built library into a scratch prefix and builds a consumer
# project against it with find_package(ZelDicom). The consumer also compiles
# every installed header on its own: a public header that needs a header
# left out of the installation fails here.
set -eu
build_dir=$1
source_dir=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cmake --install "$build_dir" --prefix "$scratch/prefix" >/dev/null
includes="$scratch/prefix/include/zeldicom"
(cd "$includes" && find . -name '*.h' | sort | sed 's|^\./\(.*\)|#include "\1"|') >"$scratch/headers.cpp"
[ -s "$scratch/headers.cpp" ] || { echo "no headers installed" >&2; exit 1; }
cmake -S "$source_dir/tests/install/consumer" -B "$scratch/consumer" -G Ninja \
  -DCMAKE_PREFIX_PATH="$scratch/prefix" -DCONSUMER_HEADERS="$scratch/headers.cpp" >/dev/null
cmake --build "$scratch/consumer" >/dev/null
"$scratch/consumer/consumer"
