#!/bin/bash
# usage: replay.sh PROGRAM TARGET
#
# Runs a fuzz target on fresh seeds and on what fuzzing found before.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
program=$1 target=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$here/make_seeds.sh" "$target" "$work"
inputs=("$work")
[[ ! -d $here/found/$target ]] || inputs+=("$here/found/$target")
"$program" "${inputs[@]}"
