#!/bin/bash
# usage: quoted_in.sh SOURCE DOCUMENT
# Succeeds when one of the document's C++ blocks is the source file, letter by letter.
set -euo pipefail

source_file=$1 document=$2
wanted=$(<"$source_file")

block='' inside=false
while IFS= read -r line; do
    if [[ $line == '```cpp' ]]; then
        inside=true block=''
    elif [[ $line == '```' && $inside == true ]]; then
        inside=false
        if [[ ${block%$'\n'} == "$wanted" ]]; then
            exit 0
        fi
    elif [[ $inside == true ]]; then
        block+=$line$'\n'
    fi
done <"$document"
echo "$document does not quote $source_file as it stands" >&2
exit 1
