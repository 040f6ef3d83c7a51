# shellcheck shell=bash
# shellcheck disable=SC2034 # the lists are for those who source this
#
# Sourced by the two commands at the root: names the packages that the project needs and installs
# those that are missing. Debian 12 and its relatives.

build_packages=(
    g++ cmake ninja-build pkg-config
    libace-dev libssl-dev libzstd-dev liblzo2-dev libyajl-dev
    libboost1.81-dev nlohmann-json3-dev libcli11-dev libext2fs-dev
)
# diffutils and the like are on every Debian system; these are not.
test_packages=(
    libgtest-dev libgmock-dev libbenchmark-dev
    clang-16 clang-format clang-tidy-16 libclang-rt-16-dev doxygen gcovr mandoc shellcheck ccache
    lzop openssl zstd e2fsprogs python3
    curl nginx libnginx-mod-http-dav-ext apache2-bin
)
# What builds for Windows and runs it; the libraries are built by windows/build_dependencies.sh.
windows_packages=(
    g++-mingw-w64-x86-64-posix dpkg-dev make perl
    wine wine64
)

# usage: install_packages PACKAGE...
install_packages()
{
    local package status missing=() as_root=()
    for package in "$@"; do
        status=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
        [[ $status == installed ]] || missing+=("$package")
    done
    ((${#missing[@]} > 0)) || return 0

    echo "missing packages: ${missing[*]}"
    if ! command -v apt-get >/dev/null; then
        echo "This system has no apt-get: install these packages, or what they are called here." >&2
        return 1
    fi
    if ((EUID != 0)); then
        if ! command -v sudo >/dev/null; then
            echo "Installing them needs root. As root, run:" >&2
            echo "    apt-get update && apt-get install --no-install-recommends ${missing[*]}" >&2
            return 1
        fi
        as_root=(sudo)
    fi
    "${as_root[@]}" apt-get update -q
    without_services "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -q -y -o Dpkg::Use-Pty=0 --no-install-recommends "${missing[@]}"
}

# usage: without_services COMMAND... : runs it, and meanwhile no package's service is started: the
# tests run servers of their own, and nobody asked for a web server of the system.
without_services()
(
    policy=/usr/sbin/policy-rc.d
    if [[ ! -e $policy ]]; then
        trap '"${as_root[@]}" rm -f "$policy"' EXIT
        printf '#!/bin/sh\nexit 101\n' | "${as_root[@]}" tee "$policy" >/dev/null
        "${as_root[@]}" chmod 755 "$policy"
    fi
    "$@"
)
