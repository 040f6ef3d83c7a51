#!/bin/bash
# usage: exports.sh LIBRARY ROOT
# Fails when the shared library shows a symbol that does not belong to a class or function marked
# CLIENT_IO_EXPORT in a header, or when such a class or function shows none.
set -euo pipefail

library=$1 root=$2

# The mangled names that the library shows, one a line.
shown()
{
    if [[ $library == *.dll ]]; then
        # The last of its tables, with lines of the form "	[   0] NAME".
        objdump -p "$library" | sed -nE '/^\[Ordinal\/Name Pointer\] Table/,/^$/s/^.*\] //p' |
            grep -v '^Table'
    else
        nm -D --defined-only "$library" | sed -E 's/^[0-9a-f]* *[A-Za-z] //'
    fi
}

# Everything marked, one "class NAME" or "function NAME" a line.
marked=$(find "$root/client_io" "$root/platform" -name '*.h' -exec cat {} + |
    awk '
        /CLIENT_IO_EXPORT/ && !/^[[:space:]]*#/ && !/^[[:space:]]*\/\// {
            rest = $0
            sub(/.*CLIENT_IO_EXPORT[[:space:]]+/, "", rest)
            if ($0 ~ /(class|struct)[[:space:]]+CLIENT_IO_EXPORT/) {
                match(rest, /^[A-Za-z_0-9:]+/)
                print "class", substr(rest, 1, RLENGTH)
            } else {
                match(rest, /[A-Za-z_0-9]+\(/)
                print "function", substr(rest, RSTART, RLENGTH - 1)
            }
        }' | sort -u)

shown | c++filt |
    awk -v marked="$marked" '
        BEGIN {
            count = split(marked, lines, "\n")
            for (i = 1; i <= count; ++i) {
                split(lines[i], words, " ")
                kind[words[2]] = words[1]
            }
        }
        {
            name = $0
            whole = name
            sub(/^(vtable|VTT|typeinfo|typeinfo name) for /, "", name)
            sub(/^(non-virtual|virtual) thunk to /, "", name)
            sub(/\[abi:[^\]]*\]/, "", name)
            sub(/[(<].*/, "", name)
            # A class or function in a namespace of ours is marked under its last name.
            sub(/^(json_spirit|file_system|qovr)::/, "", name)
            owner = name
            while (!(owner in kind) && sub(/::[^:]*$/, "", owner)) {}
            ++symbols
            if (!(owner in kind) || (kind[owner] == "function" && owner != name)) {
                print "not public: " whole
                ++failures
            }
            seen[owner] = 1
        }
        END {
            for (name in kind)
                if (!(name in seen)) {
                    print "marked for export but not shown: " name
                    ++failures
                }
            print symbols + 0 " symbols of " count " classes and functions, " failures + 0 " violations"
            exit failures > 0 || symbols == 0
        }'
