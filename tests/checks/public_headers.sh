#!/bin/bash
# usage: public_headers.sh ROOT
# Fails when the list of installed headers (cmake/PublicHeaders.cmake) lacks a header that marks
# something CLIENT_IO_EXPORT or that a listed one includes, or lists one without such a reason.
set -euo pipefail

root=$1
failures=0
complain()
{
    echo "$1" >&2
    failures=$((failures + 1))
}

mapfile -t listed < <(grep -oE '(client_io|platform)/[a-z0-9_/]+\.h' "$root/cmake/PublicHeaders.cmake")
declare -A public=() wanted=()
for header in "${listed[@]}"; do
    public[$header]=1
    [[ -f $root/$header ]] || complain "$header is listed but does not exist"
done

while IFS= read -r header; do
    wanted[${header#"$root"/}]=1
done < <(grep -rlE --include='*.h' '^[^/#]*CLIENT_IO_EXPORT' "$root/client_io" "$root/platform")

for header in "${listed[@]}"; do
    [[ -f $root/$header ]] || continue
    while IFS= read -r included; do
        wanted[$included]=1
    done < <(sed -nE 's/^ *# *include "([^"]+)".*/\1/p' "$root/$header")
done

for header in "${!wanted[@]}"; do
    [[ -v public[$header] ]] || complain "$header belongs to the installed headers but is not listed"
done
for header in "${listed[@]}"; do
    [[ -v wanted[$header] ]] ||
        complain "$header is listed but shows nothing and no public header includes it"
done

echo "${#listed[@]} headers, $failures violations"
((failures == 0 && ${#listed[@]} > 0))
