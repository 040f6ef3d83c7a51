#!/bin/bash
# usage: make_seeds.sh TARGET DIRECTORY
#
# Makes inputs from which fuzzing (or a replay) starts: files of the standard tools, whole, cut and
# damaged. The first byte of each tells the target how long the pieces are that it reads.
set -euo pipefail
export LC_ALL=C

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
target=$1 directory=$2
mkdir -p "$directory"
cd "$directory"

# usage: seed NAME : standard input as the seeds NAME-*, with several lengths of pieces
seed()
{
    local name=$1 data
    data=$(mktemp)
    cat >"$data"
    for lead in '\001' '\020' '\377'; do
        { printf '%b' "$lead"; cat "$data"; } >"$name-$((8#${lead#\\}))"
    done
    { printf '\020'; head -c 30 "$data"; } >"$name-cut"
    { printf '\020'; head -c 40 "$data"; printf 'damage'; tail -c +47 "$data"; } >"$name-damaged"
    rm "$data"
}

plain()
{
    case $1 in
    empty) ;;
    text) printf 'one line of text, again and again\n%.0s' {1..100} ;;
    zeros) head -c 300000 /dev/zero ;;
    mixed) for i in {1..2000}; do printf '%d %d\n' "$i" $((i * i)); done ;;
    esac
}

for kind in empty text zeros mixed; do
    case $target in
    lzop)
        for option in -1 -3 -9 --crc32 --no-checksum; do
            plain "$kind" | lzop "$option" -c 2>/dev/null | seed "$kind$option"
        done
        ;;
    zstd)
        for option in -1 -19 --fast=5 --no-check --long=24; do
            plain "$kind" | zstd -q "$option" -c | seed "$kind$option"
        done
        ;;
    evp)
        plain "$kind" | openssl enc -aes-256-cbc \
            -K 6e6f7420736f2073656372657400000000000000000000000000000000000000 \
            -iv 6e6f7220697320746869730000000000 | seed "$kind"
        plain "$kind" | seed "$kind-plain"
        ;;
    image | options | request | response | users)
        break
        ;;
    *)
        echo "make_seeds.sh: no target $target" >&2
        exit 2
        ;;
    esac
done

case $target in
lzop) (plain text | lzop -c; plain mixed | lzop -9 -c) | seed two-members ;;
zstd) (plain text | zstd -q -c; plain mixed | zstd -q -c) | seed two-frames ;;
image)
    # The target repairs checksums where the first byte is odd, so parts may be put together.
    known=$here/../unit/image/known.img
    seed known <"$known"
    # Parts of images without an extra area, in blocks of 512 bytes.
    superblock() # usage: superblock DATA_BLOCKS
    {
        head -c 40 "$known"
        printf '%b' "\\0$1"
        head -c 7 /dev/zero
        head -c 64 "$known" | tail -c 16
        head -c 448 /dev/zero
    }
    descriptor() # usage: descriptor SEQUENCE CONTINUATION RECORD... : records of one block each
    {
        local sequence=$1 continuation=$2 offset
        shift 2
        printf '%b' "SDD1\\0\\0\\0$continuation\\0\\0$#\\0\\0\\0\\0$#\\0\\0\\0\\0$sequence"
        head -c 7 /dev/zero
        head -c 32 "$known" | tail -c 16
        head -c 24 /dev/zero
        for offset in "$@"; do
            printf '%b' "\\0$offset\\0\\0\\0\\0\\0\\0\\0\\01\\0\\0\\0\\0\\0\\0\\0"
        done
        head -c $((448 - 16 * $#)) /dev/zero
        head -c $((512 * $#)) /dev/zero
    }
    { superblock 3; descriptor 0 0 1 3; descriptor 1 1 2; } | seed two-descriptor-blocks
    { superblock 2; descriptor 0 2 1 2; } | seed one-descriptor-block
    ;;
options)
    cat >all <<'END'
{"overwrite":true,"socket_timeout":30,"max_retry":600,"resumption_buffer_size":1048576,
"forward":false,"max_bytes_per_second":1000000,
"rate_control":[{"start_time":28800,"end_time":64800,"max_bytes_per_second":5242880}],
"compression":"zstd","compression_level":3,"encryption":"aes-256-cbc",
"key":"AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA=","iv":"AAAAAAAAAAAAAAAAAAAAAA==",
"dedup_chunk_size":65536,"access_key":"a","secret_key":"b","d2t_access_mode":1,
"node_addrs":[{"node_id":1,"address":"h"}],"extra_opts":{"D2T_RPC_PORT":"8080"}}
END
    echo '{"rate_control":[1,{"start_time":"x"}],"node_addrs":{},"extra_opts":[]}' >wrong-types
    echo '{"encryption":"aes-128-ctr","key":"!","iv":null}' >bad-key
    ;;
request)
    printf '%s\r\n' 'PUT /a%20b//%C3%A9/../c HTTP/1.1' 'Host: h' 'Content-Length: 5' \
        'Content-Range: bytes 2-6/10' 'Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT' \
        'X-Mode-Creation-Mask: 63' 'Expect: 100-continue' '' >put
    printf '%s\r\n' 'POST http://h:80/f HTTP/1.1' 'Host: h' 'Transfer-Encoding: chunked' \
        'Content-Range: bytes 2--1/*' 'Last-Modified: 2024-02-29T12:34:56Z' '' >post
    printf '%s\r\n' 'GET /f HTTP/1.0' 'Range: bytes=-5' 'If-Match: W/"a", "b,c"' '' >download
    printf '%s\r\n' 'GET /f HTTP/1.1' 'Host: h' 'Content-Length: 1' 'Transfer-Encoding: chunked' \
        ' folded' '' >smuggled
    printf 'bytes=0-9223372036854775807' >range
    printf 'bytes 5-9/*' >content-range
    printf '/.%%2e/%%2f%%00' >target
    ;;
response)
    head='HTTP/1.1 200 OK\r\nETag: "x"\r\n'
    printf '%bContent-Length: 5\r\n\r\nhello' "$head" | seed length
    printf '%b\r\nhello' "$head" | seed until-close
    printf '%bTransfer-Encoding: chunked\r\n\r\n%b%b' "$head" \
        '5;a=b\r\nhello\r\n00C \r\n0\r\n\r\nabcdefg\r\n' \
        '0\r\nTrailer: x\r\n\r\nHTTP/1.1 200 OK\r\n' | seed chunked
    printf '%b\r\n%bContent-Length: 0\r\nConnection: close\r\n\r\n' \
        'HTTP/1.1 100 Continue\r\n' "$head" | seed interim
    printf '%bContent-Length: 5\r\nTransfer-Encoding: chunked\r\nA : b\r\n c\r\n\r\n' "$head" |
        seed smuggled
    ;;
users)
    digest=$(printf secret | sha256sum | cut -d ' ' -f 1)
    {
        echo '# a comment'
        echo "robot sha256:$digest root=a%20b%23/c read-only # more"
        echo 'alice scrypt:10:1:1:U29kaXVtQ2hsb3JpZGU=:cCO9yzr9c0hGHAbNgf046/2o+7qQT44+qbVD9lRdofI='
    } >both
    echo 'a:b scrypt:63:0:99:::' >wrong
    ;;
esac
