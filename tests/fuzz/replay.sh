#!/bin/bash
# usage: replay.sh TARGET PROGRAM...
#
# Runs a fuzz target on fresh seeds and on what fuzzing found before.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
target=$1
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$here/make_seeds.sh" "$target" "$work"
inputs=("$work")
[[ ! -d $here/found/$target ]] || inputs+=("$here/found/$target")
"$@" "${inputs[@]}"
