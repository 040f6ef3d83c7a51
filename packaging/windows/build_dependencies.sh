#!/bin/bash
# usage: packaging/windows/build_dependencies.sh
#
# Builds what client_io stands on for 64-bit Windows, from the source packages of this Debian
# system, and prints the folder where it all is; whatever else there is to say goes to stderr.
# A folder that was finished before is checked against its list of sums and served again.
#
# The folders are below ${CLIENT_IO_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/client_io}/windows, each
# with its build logs beside it. The name of a folder says what it was made of: RECIPE-SOURCES, with
# sums over how it is built, compilers and headers included, and over the source packages.
set -euo pipefail
export LC_ALL=C

if [[ $# -ne 0 ]]; then
    echo "usage: packaging/windows/build_dependencies.sh" >&2
    exit 2
fi
# Only the answer may reach stdout.
exec 3>&1 1>&2

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck source=packaging/windows/sources.sh
source "$root/packaging/windows/sources.sh"

cache=${CLIENT_IO_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/client_io}/windows
toolchain=$root/cmake/mingw-w64.cmake
target=x86_64-w64-mingw32
manifest=SHA256SUMS
jobs=$(nproc)

source_packages=(ace openssl libzstd lzo2 yajl googletest)
header_packages=(libboost1.81-dev nlohmann-json3-dev libcli11-dev)
compiler_packages=(gcc-mingw-w64-x86-64-posix g++-mingw-w64-x86-64-posix
    gcc-mingw-w64-x86-64-posix-runtime binutils-mingw-w64-x86-64 mingw-w64-x86-64-dev)
# They pass on what the compiler throws and start its threads, in every program.
compiler_dlls=(libgcc_s_seh-1.dll libstdc++-6.dll libwinpthread-1.dll)

say()
{
    echo "windows dependencies: $*"
}

die()
{
    say "$*"
    exit 1
}

# usage: logged NAME COMMAND... : keeps what the command writes, and shows the end of it on a failure
logged()
{
    local name=$1 log=$logs/$1.log start=$SECONDS status=0
    shift
    # `set -e` has no force on the left of ||, hence this way to ask for the status.
    set +e
    (set -e; "$@") >"$log" 2>&1
    status=$?
    set -e
    if ((status != 0)); then
        tail -n 25 "$log"
        die "$name failed, see $log"
    fi
    say "$name, $((SECONDS - start)) s"
}

# usage: unpack PACKAGE : unpacks and patches it as ./PACKAGE
unpack()
{
    local dsc
    for dsc in "${sources[@]}"; do
        [[ $dsc == "$1"_* ]] || continue
        # It compares the sums of the files with the .dsc, whose own sum apt has compared.
        dpkg-source --require-strong-checksums --extract "$sources_folder/$dsc" "$1"
        return
    done
    return 1
}

build_openssl()
{
    unpack openssl
    cd openssl
    # The folders are compiled in: they must be ones that only an administrator may write to.
    ./Configure mingw64 --cross-compile-prefix="$target-" CC=gcc-posix CXX=g++-posix \
        --prefix='C:/Program Files/OpenSSL' --openssldir='C:/Program Files/Common Files/SSL' \
        no-shared no-tests no-legacy no-engine no-dso no-module no-capieng
    make -j"$jobs" CC="${launcher[*]} $target-gcc-posix" build_generated libcrypto.a libssl.a
    mkdir -p "$stage/include/openssl" "$stage/lib"
    cp include/openssl/*.h "$stage/include/openssl/"
    cp libcrypto.a libssl.a "$stage/lib/"
}

# A DLL, so that a library logs through the ACE of the program that it is loaded into.
build_ace()
{
    local ACE_ROOT template templates
    unpack ace
    cd ace
    ACE_ROOT=$PWD
    export ACE_ROOT
    echo '#include "ace/config-win32.h"' >ace/config.h
    echo 'include $(ACE_ROOT)/include/makeinclude/platform_mingw32.GNU' \
        >include/makeinclude/platform_macros.GNU
    cd ace
    perl "$ACE_ROOT/bin/mpc.pl" -type gnuace ace.mpc
    make -j"$jobs" -f GNUmakefile.ACE \
        CC="${launcher[*]} $target-gcc-posix" CXX="${launcher[*]} $target-g++-posix" \
        LD="$target-g++-posix" AR="$target-ar" RANLIB="$target-ranlib" \
        DLLTOOL="$target-dlltool" RC="$target-windres" \
        static_libs=0 shared_libs=1 debug=0 optimize=1 winsock2=1 ssl=0
    cd ..

    mkdir -p "$stage/bin" "$stage/include/ace/os_include" "$stage/lib/pkgconfig"
    cp ace/libACE.dll "$stage/bin/"
    cp ace/libACE.dll.a "$stage/lib/"
    cp ace/*.h ace/*.inl "$stage/include/ace/"
    cp -r ace/os_include/. "$stage/include/ace/os_include/"
    # Headers of templates include their sources.
    templates=$(grep -hoE '^# *include "ace/[A-Za-z0-9_]+\.cpp"' ace/*.h | sed -E 's/.*"(.*)"/\1/' |
        sort -u)
    for template in $templates; do
        cp "$template" "$stage/include/ace/"
    done
    cat >"$stage/lib/pkgconfig/ACE.pc" <<END
prefix=
libdir=\${prefix}/lib
includedir=\${prefix}/include

Name: ACE
Description: ADAPTIVE Communication Environment
Version: $(sed -nE 's/^# *define ACE_VERSION "([0-9.]+)"/\1/p' ace/Version.h)
Libs: -L\${libdir} -lACE -lws2_32 -lmswsock
Cflags: -I\${includedir}
END
}

# usage: build_with_cmake PACKAGE FOLDER OPTION... : for those with a CMakeLists.txt, in a FOLDER
build_with_cmake()
{
    local package=$1 folder=$2 launchers=()
    shift 2
    unpack "$package"
    if ((${#launcher[@]} > 0)); then
        launchers=(-DCMAKE_C_COMPILER_LAUNCHER="${launcher[*]}"
            -DCMAKE_CXX_COMPILER_LAUNCHER="${launcher[*]}")
    fi
    cmake -S "$package/$folder" -B "$package.build" -G Ninja \
        -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCLIENT_IO_WINDOWS_PREFIX="$stage" \
        -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" -DCMAKE_INSTALL_LIBDIR=lib \
        -DBUILD_SHARED_LIBS=OFF "${launchers[@]}" "$@"
    cmake --build "$package.build" --parallel "$jobs"
    DESTDIR=$building/stage cmake --install "$package.build"
}

# Its generator. Its build files know no compiler for Windows but Microsoft's; its sources do.
build_yajl()
{
    local part objects=()
    unpack yajl
    cd yajl/src
    mkdir -p "$stage/include/yajl" "$stage/lib/pkgconfig"
    cp api/yajl_{common,gen}.h "$stage/include/yajl/"
    for part in alloc buf encode gen; do
        "${launcher[@]}" "$target-gcc-posix" -O2 -DNDEBUG -Wall -I"$stage/include" \
            -c "yajl_$part.c" -o "yajl_$part.o"
        objects+=("yajl_$part.o")
    done
    "$target-ar" crs "$stage/lib/libyajl.a" "${objects[@]}"
    cat >"$stage/lib/pkgconfig/yajl.pc" <<END
prefix=
libdir=\${prefix}/lib
includedir=\${prefix}/include

Name: yajl
Description: generator of JSON texts
Version: $(sed -nE 's/^SET \(YAJL_(MAJOR|MINOR|MICRO) ([0-9]+)\)$/\2/p' ../CMakeLists.txt | paste -sd .)
Libs: -L\${libdir} -lyajl
Cflags: -I\${includedir}
END
}

# Nothing is compiled of these: what is installed for Linux is right for Windows too.
copy_headers()
{
    local package damaged
    for package in "${header_packages[@]}"; do
        damaged=$(dpkg --verify "$package" | grep -E ' /usr/(include|share/cmake)/' || true)
        if [[ -n $damaged ]]; then
            echo "$damaged"
            echo "package $package is not as it was installed"
            return 1
        fi
        dpkg-query --listfiles "$package" |
            sed -nE 's@^/(usr/(include|share/cmake|share/pkgconfig)/.*)@\1@p' |
            tar -C / --create --no-recursion --files-from - |
            tar -C "$stage" --extract --strip-components 1
    done
    mv "$stage"/share/pkgconfig/* "$stage/lib/pkgconfig/"
}

# The compiler's own DLLs; out with what nobody needs; .pc files that find themselves.
finish()
{
    local dll
    for dll in "${compiler_dlls[@]}"; do
        cp "$("$target-g++-posix" -print-file-name="$dll")" "$stage/bin/"
    done
    rm -rf "$stage"/share/{doc,pkgconfig,man} "$stage"/{doc,libexec}
    sed -i -E -e 's@^prefix=.*@prefix=${pcfiledir}/../..@' \
        -e "s@($prefix|/usr)/(bin|include|lib)@\${pcfiledir}/../../\\2@g" "$stage"/lib/pkgconfig/*.pc
    # Its headers are included as <lzo/...>, which only works by itself where they are the system's.
    sed -i 's@^Cflags: .*@Cflags: -I${includedir}@' "$stage/lib/pkgconfig/lzo2.pc"
    find "$stage" -type d -empty -delete
}

# The terms of what programs are passed on with, and the licences that they name. Not among it are
# GoogleTest and the compiler itself.
copy_licences()
{
    local package folder=$stage/share/licenses
    mkdir -p "$folder/texts"
    for package in ace openssl libzstd lzo2 yajl; do
        install -D -m 644 "$package/debian/copyright" "$folder/$package"
    done
    for package in "${header_packages[@]}" gcc-mingw-w64-x86-64-posix-runtime mingw-w64-x86-64-dev; do
        install -D -m 644 "/usr/share/doc/$package/copyright" "$folder/$package"
    done
    cp /usr/share/common-licenses/{Apache-2.0,GPL-2,GPL-3,LGPL-2.1} "$folder/texts/"
}

build()
{
    # The same folder for all, so that ccache knows again what an earlier build compiled.
    local building=$cache/building stage logs=$prefix.logs launcher=()
    stage=$building/stage$prefix
    if command -v ccache >/dev/null; then
        launcher=(ccache)
    fi
    rm -rf "$building" "$prefix" "$logs"
    mkdir -p "$building" "$stage" "$logs"
    cd "$building"
    say "building into $prefix"
    logged ACE build_ace
    logged OpenSSL build_openssl
    logged zstd build_with_cmake libzstd build/cmake -DZSTD_BUILD_SHARED=OFF \
        -DZSTD_BUILD_PROGRAMS=OFF -DZSTD_MULTITHREAD_SUPPORT=ON
    logged LZO build_with_cmake lzo2 .
    logged yajl build_yajl
    logged GoogleTest build_with_cmake googletest .
    logged headers copy_headers
    logged finish finish
    logged licences copy_licences
    # The rename comes last: what has the name is whole.
    sums "$stage" >"$building/$manifest"
    mv "$building/$manifest" "$stage/$manifest"
    mv "$stage" "$prefix"
    cd "$cache"
    rm -rf "$building"
}

# usage: sums FOLDER : the sum of every file but the list of sums
sums()
{
    (cd "$1" && find . -type f ! -path "./$manifest" -print0 | sort -z | xargs -0 sha256sum)
}

# A sum over stdin, long enough to tell apart what one machine builds.
short_sum()
{
    sha256sum | cut -c1-12
}

# usage: intact FOLDER : whether it is as it was when it was finished; says what is not
intact()
{
    local difference
    [[ -f $1/$manifest ]] || return 1
    if ! difference=$(diff "$1/$manifest" <(sums "$1")); then
        say "$1 is not as it was built:"
        sed -nE 's@^[<>] [0-9a-f]* +\.?/?@    @p' <<<"$difference" | sort -u | head -n 10
        return 1
    fi
}

# Prints the latest intact folder that was built in the same way, of whatever sources.
built_before()
{
    local candidate latest=
    for candidate in "$cache/$recipe"-*/; do
        candidate=${candidate%/}
        if [[ -z $latest || $candidate/$manifest -nt $latest/$manifest ]] && intact "$candidate" >&2; then
            latest=$candidate
        fi
    done
    echo "$latest"
}

for command in apt-get dpkg-source perl make cmake ninja "$target-g++-posix"; do
    command -v "$command" >/dev/null ||
        die "$command is missing; packaging/install_dependencies.sh lists the packages"
done
mkdir -p "$cache"
exec 9>"$cache/lock"
if ! flock --nonblock 9; then
    say 'waiting for another build'
    flock 9
fi

recipe=$(
    {
        cat "${BASH_SOURCE[0]}" "$root/packaging/windows/sources.sh" "$toolchain"
        dpkg-query -W -f '${Package} ${Version}\n' "${compiler_packages[@]}" "${header_packages[@]}"
    } | short_sum
)
open_sources "$cache"
prefix=
if ! update_sources; then
    say "apt cannot update its lists, see $sources_log"
    prefix=$(built_before)
    [[ -z $prefix ]] || say "using what was built before"
fi
if [[ -z $prefix ]]; then
    sources=()
    for package in "${source_packages[@]}"; do
        dsc=$(take_source "$package") || die 'without it nothing can be built'
        sources+=("$dsc")
    done
    prefix=$cache/$recipe-$(cd "$sources_folder" && sha256sum "${sources[@]}" | short_sum)
    if [[ ! -d $prefix ]] || ! intact "$prefix"; then
        build
    fi
fi
# A build runs what it made, to list the tests, and does not wait for long. Wine's server stays, and
# would keep open what it inherits.
"$root/packaging/windows/run_under_wine.sh" --prepare 3>&- 9>&-
echo "$prefix" >&3
