#!/bin/bash
# usage: line_report_test.sh PROGRAM...
set -euo pipefail

program=("$@")
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

fail()
{
    echo "$1" >&2
    exit 1
}

# Twice, because the second run replaces what the first one left.
for _ in 1 2; do
    "${program[@]}" "file://$dir/target"
    seq -f 'line %.0f' 10000 | cmp - "$dir/target/lines.txt"
    printf '{"file":"lines.txt","lines":10000}' | cmp - "$dir/target/report.json"
done

# A target below a file cannot be had: the program fails and says why.
echo 'not a directory' >"$dir/file"
if output=$("${program[@]}" "file://$dir/file/target" 2>&1); then
    fail 'succeeded on a target that cannot exist'
fi
[[ -n $output ]] || fail 'failed without a reason'
