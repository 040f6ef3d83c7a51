#!/bin/bash
# usage: run.sh STEP BUILD_DIR PREFIX COMPILER
set -euo pipefail

step=$1 build=$2 prefix=$3 compiler=$4
consumer=$(cd "$(dirname "$0")" && pwd)/consumer
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail()
{
    echo "$1" >&2
    exit 1
}

# The folder of the prefix in which a file lies.
folder_of()
{
    local found
    found=$(find "$1" -name "$2" -print -quit)
    [[ -n $found ]] || fail "$2 was not installed"
    dirname "$found"
}

# usage: expect_consumer_output COMMAND...
expect_consumer_output()
{
    local output
    output=$("$@" "file://$work/target")
    [[ $output == 'file: contents' ]] || fail "unexpected output: $output"
    [[ $(<"$work/target/a directory/file") == contents ]] || fail 'the file does not hold its contents'
}

# usage: build_with_pkg_config PREFIX
build_with_pkg_config()
{
    local flags
    PKG_CONFIG_PATH=$(folder_of "$1" client_io.pc)
    export PKG_CONFIG_PATH
    flags=$(pkg-config --cflags --libs client_io)
    # shellcheck disable=SC2086 # several flags in one word
    "$compiler" -std=c++20 -Wall -Wextra -Wpedantic -Werror "$consumer/consumer.cpp" -o "$work/consumer" $flags
    expect_consumer_output env LD_LIBRARY_PATH="$(folder_of "$1" libclient_io.so)" "$work/consumer"
}

InstallsIntoAnEmptyPrefix()
{
    rm -rf "$prefix"
    cmake --install "$build" --prefix "$prefix"
    [[ -f $(folder_of "$prefix" client_io.h)/client_io_base.h ]]
}

FindPackageConsumerBuildsAndRuns()
{
    cmake -S "$consumer" -B "$work/build" -DCMAKE_CXX_COMPILER="$compiler" \
        -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF
    cmake --build "$work/build"
    grep -q "client_io_DIR:PATH=$prefix/" "$work/build/CMakeCache.txt" ||
        fail 'another copy than the one under test was found'
    expect_consumer_output "$work/build/consumer"
}

PkgConfigConsumerBuildsAndRuns()
{
    build_with_pkg_config "$prefix"
}

MovedPrefixStillServes()
{
    cp -a "$prefix" "$work/moved"
    build_with_pkg_config "$work/moved"
    if pkg-config --cflags --libs client_io | grep -qF "$prefix"; then
        fail 'the pkg-config file still names the old place'
    fi
    "$work/moved/bin/cio" --version
}

EachHeaderCompilesAlone()
{
    local include header count=0
    include=$(folder_of "$prefix" client_io.h)
    include=${include%/client_io}
    while IFS= read -r header; do
        echo "#include <${header#"$include"/}>" >"$work/alone.cpp"
        "$compiler" -std=c++20 -Wall -Wextra -Wpedantic -Werror -fsyntax-only \
            -I"$include" "$work/alone.cpp" || fail "$header does not compile alone"
        count=$((count + 1))
    done < <(find "$include" -name '*.h')
    ((count > 0)) || fail 'no headers were installed'
    echo "$count headers"
}

NoPrivateFileIsInstalled()
{
    local listed installed
    listed=$(grep -oE '(client_io|platform)/[a-z0-9_/]+\.h' "$consumer/../../../cmake/PublicHeaders.cmake" |
        sort)
    installed=$(cd "$(folder_of "$prefix" client_io.h)/.." && find . -name '*.h' | sed 's|^\./||' | sort)
    diff <(echo "$listed") <(echo "$installed") || fail 'other headers than the listed ones'
    if find "$prefix" -name '*.a' | grep .; then
        fail 'a static archive was installed'
    fi
}

InstalledProgramRuns()
{
    echo data >"$work/data"
    env -u LD_LIBRARY_PATH "$prefix/bin/cio" put "$work/data" "file://$work/target" copy
    cmp "$work/data" "$work/target/copy"
    [[ -f $(folder_of "$prefix" 'cio.1*')/$(basename "$(find "$prefix" -name 'cio.1*')") ]]
    find "$prefix" -path '*bash-completion*' -type f | grep -q . || fail 'no shell completion was installed'
}

"$step"
