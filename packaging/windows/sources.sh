# shellcheck shell=bash
#
# Sourced by build_dependencies.sh: takes source packages from where this Debian system takes its
# packages. apt verifies the signatures of the lists, and by the sums in them what it downloads.

# usage: open_sources FOLDER : keeps in FOLDER what is downloaded, for the functions below. This is
# an apt of our own: the system's may list no source packages, and changing it needs root.
open_sources()
{
    local list lists=$1/apt/sources.list.d
    sources_folder=$1/sources
    sources_log=$1/apt/apt.log
    apt_options=(
        -o Dir::Etc::SourceList=/dev/null
        -o Dir::Etc::SourceParts="$lists"
        -o Dir::State::Lists="$1/apt/lists"
        -o Dir::Cache="$1/apt/cache"
        -o Acquire::Languages=none
        -o Acquire::AllowInsecureRepositories=false
        -o APT::Get::AllowUnauthenticated=false
        -o APT::Sandbox::User=root
    )
    rm -rf "$lists"
    mkdir -p "$sources_folder" "$lists" "$1/apt/lists/partial" "$1/apt/cache"
    for list in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
        [[ ! -e $list ]] ||
            sed -nE 's/^[[:space:]]*deb(-src)?[[:space:]]/deb-src /p' "$list" | sort -u \
                >"$lists/${list##*/}"
    done
    for list in /etc/apt/sources.list.d/*.sources; do
        [[ ! -e $list ]] || sed -E 's/^Types:.*/Types: deb-src/' "$list" >"$lists/${list##*/}"
    done
}

update_sources()
{
    apt-get "${apt_options[@]}" -q --error-on=any update >"$sources_log" 2>&1
}

# usage: take_source PACKAGE : downloads the newest version that can be had whole, and prints the
# name of its .dsc file, which holds the sums of the others
take_source()
{
    local package=$1 version versions
    versions=$(apt-cache "${apt_options[@]}" showsrc --only-source "$package" 2>/dev/null |
        sed -n 's/^Version: //p' | sort -ruV) || true
    for version in $versions; do
        if take_version "$package=$version" >"$sources_log" 2>&1; then
            # An epoch is no part of file names.
            echo "${package}_${version#*:}.dsc"
            return
        fi
        echo "$package $version cannot be had: $(grep -m 1 '^E: ' "$sources_log")" >&2
    done
    echo "$package: no version can be had" >&2
    return 1
}

# usage: take_version PACKAGE=VERSION
take_version()
{
    local command=(apt-get "${apt_options[@]}" -q source --only-source)
    cd "$sources_folder" || return 1
    # The description first: it is small, and lists are most often ahead of the files in this one.
    "${command[@]}" --dsc-only "$1" && "${command[@]}" --download-only "$1"
}
