#!/bin/bash
# usage: extents_test.sh SAVE_EXTENTS RESTORE_EXTENTS [RUNNER]...
#
# RUNNER runs programs of another system.
set -euo pipefail

save_program=$1 restore_program=$2
shift 2
runner=("$@")
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
target=file://$dir/target

fail()
{
    echo "$1" >&2
    exit 1
}

save()
{
    "${runner[@]}" "$save_program" "$dir/source" "$target" "$@" 2>"$dir/errors"
}

restore()
{
    "${runner[@]}" "$restore_program" "$target" "$@" 2>"$dir/errors"
}

# Lines of eight bytes, 1 MiB in all.
seq -f '%07.0f' 131072 >"$dir/source"
output=$(save disk.img 8192 4096 524288 262144 0 4096) || fail "not saved: $(<"$dir/errors")"
# On Windows lines of text end in two characters.
[[ ${output%$'\r'} == '270336 bytes saved' ]] || fail "unexpected output: $output"

# What is in the image is restored, and nothing else is touched.
head -c 1048576 /dev/zero >"$dir/expected"
cp "$dir/expected" "$dir/restored"
for extent in '2 1' '128 64' '0 1'; do
    read -r at count <<<"$extent"
    dd if="$dir/source" of="$dir/expected" bs=4096 skip="$at" seek="$at" count="$count" \
        conv=notrunc status=none
done
output=$(restore disk.img "$dir/restored") || fail "not restored: $(<"$dir/errors")"
[[ ${output%$'\r'} == '270336 bytes restored' ]] || fail "unexpected output: $output"
cmp "$dir/expected" "$dir/restored"

# An extent that is no multiple of the block size, and one beyond the source's end.
for extent in '1 4096' '1048576 4096'; do
    read -r at count <<<"$extent"
    if save "failed-$at.img" "$at" "$count"; then
        fail "saved an extent at $at"
    fi
    [[ -s $dir/errors ]] || fail "failed without a reason at $at"
done

# An image that was cut off.
head -c 300000 "$dir/target/disk.img" >"$dir/target/cut.img"
head -c 70000 "$dir/target/disk.img" >"$dir/target/cut-early.img"
for name in cut.img cut-early.img; do
    truncate -s -1 "$dir/target/$name"
    if restore "$name" "$dir/restored"; then
        fail "restored $name"
    fi
    [[ -s $dir/errors ]] || fail "failed without a reason"
done
