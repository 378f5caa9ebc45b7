#!/bin/sh
# Installs the built library into a scratch prefix and builds a consumer
# project against it with find_package(ZelDicom).
set -eu
build_dir=$1
source_dir=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cmake --install "$build_dir" --prefix "$scratch/prefix" >/dev/null
cmake -S "$source_dir/tests/install/consumer" -B "$scratch/consumer" -G Ninja \
  -DCMAKE_PREFIX_PATH="$scratch/prefix" >/dev/null
cmake --build "$scratch/consumer" >/dev/null
"$scratch/consumer/consumer"
