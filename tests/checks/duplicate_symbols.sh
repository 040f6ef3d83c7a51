#!/bin/bash
# usage: duplicate_symbols.sh DIRECTORY...
# Looks at every object file below the directories as one program. Fails when two of them define
# the same function or variable (a linker does not see that across a shared library's border), or
# when two classes of one name differ in their virtual tables or in the size of an inline variable.
set -euo pipefail

objects=$(find "$@" -name '*.o' | sort)
if [[ -z $objects ]]; then
    echo "no object files below $*" >&2
    exit 1
fi

# One line a symbol: FILE: NAME TYPE [VALUE SIZE]
xargs -d '\n' nm -A -P --defined-only --extern-only <<<"$objects" |
    awk '
        {
            file = $1; name = $2; type = $3; size = $5
            if (type ~ /^[TDBRGS]$/) {
                ++strong
                if (name in owner) {
                    print "defined twice: " name " in " owner[name] " and " file
                    ++failures
                }
                owner[name] = file
            } else if ((type == "V" || type == "u") && name !~ /^DW\.ref/) {
                if (name in sizes && sizes[name] != size) {
                    print "two different ones: " name " in " place[name] " and " file
                    ++failures
                }
                sizes[name] = size
                place[name] = file
            }
        }
        END {
            print strong + 0 " definitions, " failures + 0 " violations"
            exit failures > 0 || strong == 0
        }' | c++filt
