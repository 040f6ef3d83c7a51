#!/bin/bash
# usage: windows_parity.sh LINUX_BUILD WINDOWS_BUILD LIST
#
# Fails when a test of the Linux build is missing in the Windows build without being on the list, or
# when an entry of the list stands for no such test. Prints the list with the number of tests that
# each entry leaves out. Lines of the list: "PATTERN | REASON", the pattern as in shells.
set -euo pipefail

linux=$1 windows=$2 list=$3
failures=0

# usage: tests_of BUILD : the names of its tests; parameters are part of the name, not their values
tests_of()
{
    ctest --test-dir "$1" -N | sed -nE 's/^ *Test +#[0-9]+: ([^ ]+).*/\1/p' | sort -u
}

missing=$(comm -23 <(tests_of "$linux") <(tests_of "$windows"))
both=$(comm -12 <(tests_of "$linux") <(tests_of "$windows") | wc -l)
left_out=0
while IFS='|' read -r pattern reason; do
    pattern=${pattern%% }
    rest='' count=0
    while IFS= read -r name; do
        # shellcheck disable=SC2053 # a pattern is what it is
        if [[ -n $name && $name == $pattern ]]; then
            count=$((count + 1))
        else
            rest+=$name$'\n'
        fi
    done <<<"$missing"
    missing=${rest%$'\n'}
    left_out=$((left_out + count))
    printf '%4d  %s:%s\n' "$count" "$pattern" "$reason"
    if ((count == 0)); then
        echo "      stands for no test" >&2
        failures=$((failures + 1))
    fi
done < <(grep -vE '^(#|$)' "$list")

if [[ -n $missing ]]; then
    echo "missing on Windows and not on the list:" >&2
    while IFS= read -r name; do
        echo "      $name" >&2
    done <<<"$missing"
    failures=$((failures + 1))
fi
echo "$both tests on both systems, $left_out left out on Windows"
((failures == 0 && both > 0))
