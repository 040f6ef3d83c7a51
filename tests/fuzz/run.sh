#!/bin/bash
# usage: run.sh BUILD_DIR SECONDS [TARGET...]
#
# Fuzzes each target for so long, from fresh seeds, what was found before, and what earlier runs
# collected in BUILD_DIR. Ends with 1 when one finds something; the input lies in BUILD_DIR then.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=$(cd "$1" && pwd) seconds=$2
shift 2
targets=("$@")
((${#targets[@]} > 0)) || targets=(evp image lzop options request response users zstd)

status=0
for target in "${targets[@]}"; do
    collected=$build/corpus/$target
    "$here/make_seeds.sh" "$target" "$build/seeds/$target"
    mkdir -p "$collected"
    inputs=("$collected" "$build/seeds/$target")
    [[ ! -d $here/found/$target ]] || inputs+=("$here/found/$target")
    echo "== $target, $seconds s"
    # Its own output goes to a file; what matters of it is shown.
    if "$build/tests/fuzz/${target}_fuzz" -max_total_time="$seconds" -timeout=20 \
        -rss_limit_mb=2048 -max_len=70000 -artifact_prefix="$build/$target-" \
        "${inputs[@]}" >"$build/$target.log" 2>&1; then
        tail -n 2 "$build/$target.log"
    else
        tail -n 60 "$build/$target.log"
        status=1
    fi
done
exit "$status"
