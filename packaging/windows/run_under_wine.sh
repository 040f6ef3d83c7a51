#!/bin/bash
# usage: packaging/windows/run_under_wine.sh [-L FOLDER]... PROGRAM [ARGUMENT...]
#        packaging/windows/run_under_wine.sh --prepare | --stop
#
# Runs a Windows program under Wine and ends with its exit code. DLLs are looked for beside the
# program and in each FOLDER.
#
# Wine works in an environment of its own, ${CLIENT_IO_WINEPREFIX:-CACHE/wine}, where CACHE is
# ${CLIENT_IO_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/client_io}/windows. It is made on first use, or
# by --prepare, and takes no notice of the user's ~/.wine. Wine's server stays for a minute after
# the last program, because starting it takes longer than most tests; --stop ends it, and every
# program that still runs there, at once.
set -euo pipefail

cache=${CLIENT_IO_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/client_io}/windows
export WINEPREFIX=${CLIENT_IO_WINEPREFIX:-$cache/wine}
export WINEARCH=win64
# Names of files are UTF-8, whatever the caller set.
export LC_ALL=C.UTF-8
export WINEDEBUG=${WINEDEBUG:--all}
# No .NET, no HTML, nothing in the user's menus; and no window without a display.
export WINEDLLOVERRIDES='mscoree,mshtml=d;winemenubuilder.exe=d'
unset DISPLAY WAYLAND_DISPLAY

usage()
{
    sed -nE '2,/^#$/s/^# ?//p' "${BASH_SOURCE[0]}" >&2
    exit 2
}

# Makes Wine's environment. The rename comes last: what has the name is whole.
prepare()
{
    local final=$WINEPREFIX
    local -x WINEPREFIX=$final.new
    rm -rf "$WINEPREFIX"
    wine wineboot --init &&
        wine winecfg /v win10 &&
        # A crash is to end the program, not to ask somebody.
        wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f &&
        wineserver --wait &&
        mv "$WINEPREFIX" "$final"
}

# Starts the server where there is none. The first program in an environment starts Wine's services
# too, which keep its output open until they end, for a minute: let that be a program of Wine's.
start()
{
    if wineserver --persistent=60 2>/dev/null; then
        wine wineboot
    fi
}

# usage: alone COMMAND... : runs it while no other run does the same
alone()
{
    local log=$WINEPREFIX.log
    mkdir -p "${WINEPREFIX%/*}"
    if ! { flock 9 && "$@" </dev/null >"$log" 2>&1 9>&-; } 9>"$WINEPREFIX.lock"; then
        tail -n 25 "$log" >&2
        echo "Wine does not start, see $log" >&2
        exit 1
    fi
}

ready()
{
    [[ -d $WINEPREFIX ]] || prepare && start
}

command -v wine >/dev/null || {
    echo "wine is missing; packaging/install_dependencies.sh lists the packages" >&2
    exit 1
}
case ${1-} in
    --prepare)
        alone ready
        exit 0
        ;;
    --stop)
        # They fail when there is none, which is as well.
        wineserver --kill 2>/dev/null || true
        wineserver --wait 2>/dev/null || true
        exit 0
        ;;
esac

dll_path=${WINEPATH-}
while [[ ${1-} == -L ]]; do
    [[ $# -ge 2 ]] || usage
    # Wine shows the root folder as drive Z.
    folder=$(realpath -m "$2")
    dll_path+="${dll_path:+;}Z:${folder//\//\\}"
    shift 2
done
[[ $# -ge 1 && $1 != -* ]] || usage
export WINEPATH=$dll_path

alone ready
exec wine "$@"
