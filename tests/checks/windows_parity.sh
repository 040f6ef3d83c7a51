#!/bin/bash
# usage: windows_parity.sh LINUX_BUILD WINDOWS_BUILD LIST
#
# Fails when a test of the Linux build is missing in the Windows build without being on the list, or
# when an entry of the list stands for no such test. Prints the list with the number of tests that
# each entry leaves out. Lines of the list: "PATTERN | REASON", the pattern as in shells.
set -euo pipefail

linux=$1 windows=$2 list=$3
failures=0

# usage: tests_of BUILD RUNNER... : the names of the tests in its programs, then of its other tests
tests_of()
{
    local build=$1 programs program inside
    shift
    mapfile -t programs < <(find "$build/tests" -type f \( -name '*_test' -o -name '*_tests' \
        -o -name '*_test.exe' -o -name '*_tests.exe' \))
    inside=$(for program in "${programs[@]}"; do
        "$@" "$program" --gtest_list_tests | tr -d '\r' |
            awk '/^[^ ].*\.( |$)/ { suite = $1 } /^  / { print suite $1 }'
    done)
    # Tests of a program that are known outside as well have the name of a suite in front.
    awk -F. 'NR == FNR { print; suites[$1] = 1; next } !($1 in suites)' <(echo "$inside") \
        <(ctest --test-dir "$build" -N | sed -nE 's/^ *Test +#[0-9]+: ([^ ]+).*/\1/p')
}

of_linux=$(tests_of "$linux" env | sort -u)
of_windows=$(tests_of "$windows" packaging/windows/run_under_wine.sh \
    -L "$(<"$windows.prefix")/bin" -L "$windows/client_io" | sort -u)
missing=$(comm -23 <(echo "$of_linux") <(echo "$of_windows"))
both=$(comm -12 <(echo "$of_linux") <(echo "$of_windows") | wc -l)
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
