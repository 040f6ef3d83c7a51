#!/bin/bash
# usage: hello_target_test.sh PROGRAM...
set -euo pipefail

program=("$@")
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

fail()
{
    echo "$1" >&2
    exit 1
}

output=$("${program[@]}" "file://$dir/target") || fail "failed on a fresh target: $output"
# On Windows lines of text end in two characters.
[[ ${output%$'\r'} == 'Hello, target' ]] || fail "unexpected output: $output"
printf 'Hello, target\n' | cmp - "$dir/target/hello.txt"

# A target below a file cannot be had: the program fails and says why, and the file stays.
echo 'not a directory' >"$dir/file"
if output=$("${program[@]}" "file://$dir/file/target" 2>&1); then
    fail 'succeeded on a target that cannot exist'
fi
[[ -n $output ]] || fail 'failed without a reason'
[[ $(<"$dir/file") == 'not a directory' ]] || fail 'the file in the way was changed'
