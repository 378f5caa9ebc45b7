#!/bin/sh
# scripts/setup installs missing packages as root directly and as another
# user through sudo, and says what to do when there is no sudo. The package
# tools are stand-ins that record how they were called.
set -eu
source_dir=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir "$scratch/bin"
tool() { printf '#!/bin/sh\n%s\n' "$2" >"$scratch/bin/$1"; chmod +x "$scratch/bin/$1"; }
tool dpkg-query 'exit 1'
tool apt-get 'echo "apt-get $*" >>"'"$scratch"'/calls"'
tool sudo 'echo "sudo" >>"'"$scratch"'/calls"; exec "$@"'
for needed in sh env grep cat; do ln -s "$(command -v $needed)" "$scratch/bin/$needed"; done

run() {  # user id, with or without sudo
  tool id "echo $1"
  [ "$2" = with-sudo ] || rm -f "$scratch/bin/sudo"
  : >"$scratch/calls"
  PATH="$scratch/bin" sh "$source_dir/scripts/setup" 2>"$scratch/err" && status=0 || status=$?
}
fail() { echo "FAIL: $*" >&2; cat "$scratch/calls" "$scratch/err" >&2; exit 1; }

run 0 with-sudo
[ $status = 0 ] && ! grep -q sudo "$scratch/calls" && grep -q "apt-get install" "$scratch/calls" ||
  fail "root installs without sudo"
run 1000 with-sudo
[ $status = 0 ] && [ "$(head -1 "$scratch/calls")" = sudo ] && grep -q "apt-get install" "$scratch/calls" ||
  fail "a user installs through sudo"
run 1000 without-sudo
[ $status = 1 ] && [ ! -s "$scratch/calls" ] && grep -q "sudo is not installed" "$scratch/err" ||
  fail "a user without sudo is told what to do"
echo "setup ok"
