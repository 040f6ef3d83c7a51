#!/bin/bash
# usage: self_test.sh COMPILER
# Gives each check of this folder something to reject and something to accept.
set -euo pipefail

compiler=$1
checks=$(cd "$(dirname "$0")" && pwd)
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
failures=0

accepts()
{
    if ! output=$("$@" 2>&1); then
        echo "rejected, but nothing is wrong: ${*##*/}"$'\n'"$output" >&2
        failures=$((failures + 1))
    fi
}

# usage: rejects TEXT COMMAND... : the command must fail and its output hold the text
rejects()
{
    local text=$1
    shift
    if output=$("$@" 2>&1); then
        echo "accepted, but it should be rejected for: $text"$'\n'"$output" >&2
        failures=$((failures + 1))
    elif [[ $output != *"$text"* ]]; then
        echo "rejected for another reason than: $text"$'\n'"$output" >&2
        failures=$((failures + 1))
    fi
}

fresh_tree()
{
    rm -rf "${tree:?}"/*
    mkdir -p "$tree"/{platform/runtime,platform/json,client_io,cli,cmake,docs}
    cat >"$tree/platform/runtime/low.h" <<<'int CLIENT_IO_EXPORT low();'
    cat >"$tree/platform/json/middle.h" <<<'#include "platform/runtime/low.h"'
    cat >"$tree/client_io/high.h" <<<'#include "platform/json/middle.h"
class CLIENT_IO_EXPORT High
{
public:
    virtual ~High();
};'
    cat >"$tree/cli/top.cpp" <<<'#include "client_io/high.h"'
    cat >"$tree/cmake/PublicHeaders.cmake" <<<'client_io/high.h platform/json/middle.h platform/runtime/low.h'
    cat >"$tree/docs/page.md" <<<'[low](../platform/runtime/low.h), `client_io/high.h`'
}

# upward_includes.sh
fresh_tree
accepts "$checks/upward_includes.sh" "$tree"
echo '#include "client_io/high.h"' >>"$tree/platform/runtime/low.h"
rejects 'platform/runtime may not include client_io/high.h' "$checks/upward_includes.sh" "$tree"
fresh_tree
echo '#include "platform/json/middle.h"' >>"$tree/platform/runtime/low.h"
rejects 'platform/runtime may not include platform/json/middle.h' "$checks/upward_includes.sh" "$tree"
fresh_tree
echo '  #  include "cli/top.cpp"' >>"$tree/client_io/high.h"
rejects 'client_io may not include cli/top.cpp' "$checks/upward_includes.sh" "$tree"
fresh_tree
echo '#include "high.h"' >>"$tree/client_io/high.h"
rejects 'not written from the root' "$checks/upward_includes.sh" "$tree"
fresh_tree
echo '#include <client_io/high.h>' >>"$tree/platform/runtime/low.h"
rejects "the project's own" "$checks/upward_includes.sh" "$tree"
fresh_tree
mkdir "$tree/platform/unknown"
touch "$tree/platform/unknown/a.h"
rejects 'has no place in the order of layers' "$checks/upward_includes.sh" "$tree"
rejects 'no sources found' "$checks/upward_includes.sh" "$tree/docs"

# public_headers.sh
fresh_tree
accepts "$checks/public_headers.sh" "$tree"
cat >"$tree/cmake/PublicHeaders.cmake" <<<'client_io/high.h platform/json/middle.h'
rejects 'platform/runtime/low.h belongs to the installed headers' "$checks/public_headers.sh" "$tree"
fresh_tree
touch "$tree/client_io/spare.h"
echo 'client_io/spare.h' >>"$tree/cmake/PublicHeaders.cmake"
rejects 'client_io/spare.h is listed but shows nothing' "$checks/public_headers.sh" "$tree"

# links.sh
fresh_tree
accepts "$checks/links.sh" "$tree"
echo '[gone](gone.md)' >>"$tree/docs/page.md"
rejects 'the link to gone.md is broken' "$checks/links.sh" "$tree"
fresh_tree
echo '`client_io/gone.h`' >>"$tree/docs/page.md"
rejects 'there is no client_io/gone.h' "$checks/links.sh" "$tree"

# exports.sh and duplicate_symbols.sh
build()
{
    "$compiler" -fPIC -fvisibility=hidden '-DCLIENT_IO_EXPORT=__attribute__((visibility("default")))' \
        -I"$tree" "$@"
}
fresh_tree
mkdir "$tree/objects"
cat >"$tree/low.cpp" <<<'#include "platform/runtime/low.h"
int low() { return 1; }'
cat >"$tree/high.cpp" <<<'#include "client_io/high.h"
High::~High() = default;'
build -shared -o "$tree/good.so" "$tree/low.cpp" "$tree/high.cpp"
accepts "$checks/exports.sh" "$tree/good.so" "$tree"
build -shared -o "$tree/poor.so" "$tree/low.cpp"
rejects 'marked for export but not shown: High' "$checks/exports.sh" "$tree/poor.so" "$tree"
cat >"$tree/leak.cpp" <<<'#include <vector>
__attribute__((visibility("default"))) void leak(std::vector<int>& all) { all.push_back(1); }'
build -shared -o "$tree/leaky.so" "$tree/low.cpp" "$tree/high.cpp" "$tree/leak.cpp"
rejects 'not public: leak' "$checks/exports.sh" "$tree/leaky.so" "$tree"
rejects 'not public: void std::vector' "$checks/exports.sh" "$tree/leaky.so" "$tree"

build -c -o "$tree/objects/low.o" "$tree/low.cpp"
build -c -o "$tree/objects/high.o" "$tree/high.cpp"
accepts "$checks/duplicate_symbols.sh" "$tree/objects"
cp "$tree/objects/low.o" "$tree/objects/low_again.o"
rejects 'defined twice: low()' "$checks/duplicate_symbols.sh" "$tree/objects"
rm "$tree/objects/low_again.o"
cat >"$tree/one.cpp" <<<'struct Same { virtual void a() {} };
Same one;'
cat >"$tree/two.cpp" <<<'struct Same { virtual void a() {} virtual void b() {} };
Same two;'
build -c -o "$tree/objects/one.o" "$tree/one.cpp"
build -c -o "$tree/objects/two.o" "$tree/two.cpp"
rejects 'two different ones: vtable for Same' "$checks/duplicate_symbols.sh" "$tree/objects"
mkdir "$tree/empty"
rejects 'no object files' "$checks/duplicate_symbols.sh" "$tree/empty"

echo "$failures failures"
((failures == 0))
