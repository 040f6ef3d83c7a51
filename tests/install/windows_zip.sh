#!/bin/bash
# usage: windows_zip.sh STEP BUILD_DIR WORK_DIR COMPILER WINE_RUNNER
#
# What the zip for Windows is good for. WORK_DIR is where it is unpacked, away from everything else.
set -euo pipefail

step=$1 build=$2 work=$3 compiler=$4 wine=$5
sample=$work/sample-build

fail()
{
    echo "$1" >&2
    exit 1
}

# The folder that the zip unpacks to.
unpacked()
{
    local folders=("$work"/client_io-*/)
    [[ ${#folders[@]} == 1 && -d ${folders[0]} ]] || fail 'the zip is not one folder'
    echo "${folders[0]%/}"
}

# usage: as_uri FOLDER
as_uri()
{
    echo "file:///Z:$1"
}

UnpacksIntoOneFolder()
{
    local zip path
    rm -rf "$work"
    mkdir -p "$work/package"
    cpack --config "$build/CPackConfig.cmake" -B "$work/package"
    (cd "$work" && cmake -E tar xf "$work"/package/client_io-*.zip)
    zip=$(unpacked)
    for path in bin/client_io.dll bin/cio.exe lib/libclient_io.dll.a README.md sample/host.cpp \
        include/client_io/client_io/client_io.h; do
        [[ -f $zip/$path ]] || fail "$path is missing"
    done
    [[ -n $(find "$zip/licenses" -type f) ]] || fail 'no licences'
}

# Each DLL that is asked for lies in the zip or belongs to Windows itself.
NothingElseHasToBeInstalled()
{
    local zip asked dll
    zip=$(unpacked)
    asked=$(objdump -p "$zip"/bin/*.dll "$zip"/bin/*.exe | sed -nE 's/^\s*DLL Name: //p' | sort -fu)
    [[ -n $asked ]]
    for dll in $asked; do
        [[ ! -f $zip/bin/$dll ]] || continue
        case ${dll,,} in
            advapi32.dll | bcrypt.dll | crypt32.dll | iphlpapi.dll | kernel32.dll | msvcrt.dll | \
                mswsock.dll | netapi32.dll | shell32.dll | user32.dll | ws2_32.dll | wsock32.dll) ;;
            *) fail "$dll is neither in the zip nor part of Windows" ;;
        esac
    done
}

SampleBuildsAgainstIt()
{
    rm -rf "$sample"
    # Only what the zip holds may be found.
    PKG_CONFIG_LIBDIR=/nonexistent cmake -S "$(unpacked)/sample" -B "$sample" \
        -DCMAKE_SYSTEM_NAME=Windows -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_BUILD_TYPE=Debug \
        -DCMAKE_PREFIX_PATH="$(unpacked)" -DCMAKE_FIND_ROOT_PATH="$(unpacked)" \
        -DCMAKE_FIND_ROOT_PATH_MODE_PACKAGE=ONLY
    cmake --build "$sample"
}

SampleWritesReadsAndLogsThroughItsOwnAce()
{
    local output target=$work/target
    rm -rf "$target"
    output=$("$wine" -L "$(unpacked)/bin" "$sample/host.exe" "$(as_uri "$target")" | tr -d '\r')
    echo "$output"
    [[ $(<"$target/sample/hello.txt") == 'Hello, target' ]] || fail 'the file is not there'
    grep -q '^host log: read back: Hello, target$' <<<"$output" || fail 'the sample did not read it'
    # What the library itself says.
    grep -q '^host log: Unexpected error in .*path is NULL' <<<"$output" ||
        fail "the library's message did not reach the host's log"
}

ItsProgramRunsByItself()
{
    local zip target=$work/cio-target
    zip=$(unpacked)
    rm -rf "$target"
    echo data >"$work/data"
    "$wine" "$zip/bin/cio.exe" --version
    "$wine" "$zip/bin/cio.exe" put "Z:$work/data" "$(as_uri "$target")" copy
    cmp "$work/data" "$target/copy"
}

"$step"
