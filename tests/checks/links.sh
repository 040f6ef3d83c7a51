#!/bin/bash
# usage: links.sh ROOT
# Fails when a relative link, or a path of the project in `code quotes`, in one of the project's
# Markdown files names nothing that exists.
set -euo pipefail

root=$1
failures=0 links=0

while IFS= read -r -d '' document; do
    dir=$(dirname "$document")
    while IFS= read -r target; do
        case $target in *://* | mailto:* | '#'*) continue ;; esac
        links=$((links + 1))
        if [[ ! -e $dir/${target%%#*} ]]; then
            echo "${document#"$root"/}: the link to $target is broken" >&2
            failures=$((failures + 1))
        fi
    done < <(grep -oE '\]\([^) ]+\)' "$document" | sed 's/^](//; s/)$//' || true)
    while IFS= read -r target; do
        links=$((links + 1))
        if [[ ! -e $root/$target ]]; then
            echo "${document#"$root"/}: there is no $target" >&2
            failures=$((failures + 1))
        fi
    done < <(grep -oE '`(client_io|platform|cli|examples|tests|bench|cmake|packaging|docs)/[A-Za-z0-9_./-]*`' \
        "$document" | tr -d '`' || true)
done < <(find "$root" \( -name .git -o -path "$root/build" \) -prune -o -name '*.md' -print0)

echo "$links links and paths, $failures broken"
((failures == 0 && links > 0))
