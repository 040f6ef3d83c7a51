#!/bin/bash
# usage: upward_includes.sh ROOT
# Fails when a file includes a folder that does not lie below its own in the order of layers, or
# an include of the project is not written from the root.
set -euo pipefail

root=$1

# folder: what it may include, besides itself
declare -A may_include=(
    [platform/runtime]=''
    [platform/json]='platform/runtime'
    [platform/http]='platform/runtime platform/json'
    [platform/image]='platform/runtime platform/json'
    [platform/lzop]='platform/runtime platform/json'
    [platform/rpc]='platform/runtime platform/json'
    [platform/object_store]='platform/runtime platform/json platform/http'
    [platform/cloud]='platform/runtime platform/json platform/http'
    [platform/dedup]='platform/runtime platform/json platform/rpc'
    [platform/d2t]='platform/runtime platform/json platform/rpc'
    [platform/mtf]='platform/runtime platform/json platform/rpc'
    [client_io]='platform'
    [servers]='client_io platform'
    [cli]='client_io platform servers'
)

# The folder of the table in which a file lies, or nothing.
layer_of()
{
    local path=$1
    case $path in
    platform/*/*)
        path=${path#platform/}
        echo "platform/${path%%/*}"
        ;;
    */*)
        echo "${path%%/*}"
        ;;
    esac
}

failures=0 files=0
complain()
{
    echo "$1" >&2
    failures=$((failures + 1))
}

while IFS= read -r -d '' file; do
    files=$((files + 1))
    path=${file#"$root"/}
    layer=$(layer_of "$path")
    if [[ ! -v may_include[$layer] ]]; then
        complain "$path: its folder has no place in the order of layers"
        continue
    fi
    while IFS=: read -r number line; do
        [[ $line =~ [\"\<]([^\"\>]+)[\"\>] ]] || continue
        included=${BASH_REMATCH[1]}
        if [[ $line != *'"'* ]]; then
            # Angle brackets are for what is not ours, in sources that are the library itself.
            [[ ! -e $root/$included ]] ||
                complain "$path:$number: <$included> is the project's own: write it in quotes"
            continue
        fi
        if [[ ! -e $root/$included ]]; then
            complain "$path:$number: \"$included\" is not written from the root of the project"
            continue
        fi
        target=$(layer_of "$included")
        [[ $target != "$layer" ]] || continue
        allowed=false
        for below in ${may_include[$layer]}; do
            [[ $target != "$below" && $target != "$below"/* ]] || allowed=true
        done
        if [[ $allowed == false ]]; then
            complain "$path:$number: $layer may not include $included"
            echo "    it may use: ${may_include[$layer]:-nothing} (and itself), so that it can be" >&2
            echo "    understood and tested without what stands above it" >&2
        fi
    done < <(grep -nE '^[[:space:]]*#[[:space:]]*include' "$file" || true)
done < <(cd / && find "$root"/platform "$root"/client_io "$root"/cli "$root"/servers \
    -type f \( -name '*.h' -o -name '*.cpp' \) -print0 2>/dev/null)

if ((files == 0)); then
    complain "no sources found below $root"
fi
echo "$files files, $failures violations"
((failures == 0))
