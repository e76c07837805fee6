#!/bin/sh
# Cross-builds Ruvo for 64-bit Windows with mingw-w64 and runs the unit tests under wine64.
# Installs what is missing (Debian 12, as root). Everything goes below out-win/: the Windows
# builds of the dependencies (from Debian's own source packages: cjson, pcre2, zlib, and the
# googletest sources), the build, and a private wine prefix.
set -e
cd "$(dirname "$0")/.."
root="$(pwd)/out-win"
deps="$root/deps"
toolchain="$(pwd)/cmake/mingw-w64-x86_64.cmake"

packages="cmake make g++-mingw-w64-x86-64-posix wine64 dpkg-dev googletest"
sh tools/ensure_packages.sh $packages

# Debian's source packages, fetched with an apt state of our own: the system's sources as deb-src.
fetch_source() {
    apt_dir="$root/apt"
    mkdir -p "$apt_dir/lists/partial" "$apt_dir/sources" "$apt_dir/src"
    if [ ! -f "$apt_dir/sources/debian.sources" ]; then
        for f in /etc/apt/sources.list.d/*.sources; do
            [ -f "$f" ] && sed 's/^Types: deb$/Types: deb-src/' "$f" >> "$apt_dir/sources/debian.sources"
        done
        apt-get -qq -o Dir::Etc::SourceList=/dev/null -o Dir::Etc::SourceParts="$apt_dir/sources" \
            -o Dir::State::Lists="$apt_dir/lists" update
    fi
    # The newest first (security updates); mirrors that lack them get the release's version.
    for which in "$1" "$1/bookworm"; do
        [ -n "$(find "$apt_dir/src" -maxdepth 1 -type d -name "$1-*")" ] && break
        (cd "$apt_dir/src" && apt-get -qq -o Dir::Etc::SourceList=/dev/null \
            -o Dir::Etc::SourceParts="$apt_dir/sources" -o Dir::State::Lists="$apt_dir/lists" \
            source "$which" >/dev/null 2>&1) || true
    done
    src=$(find "$apt_dir/src" -maxdepth 1 -type d -name "$1-*" | head -n 1)
    [ -n "$src" ] || { echo "cannot fetch the Debian source package $1" >&2; exit 1; }
    echo "$src"
}

build_dep() {  # name, source dir, cmake options...
    name="$1"; src="$2"; shift 2
    [ -f "$deps/.$name" ] && return 0
    echo "building $name for Windows"
    cmake -S "$src" -B "$root/dep-build/$name" -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
        -DCMAKE_INSTALL_PREFIX="$deps" -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS=OFF "$@" >/dev/null
    cmake --build "$root/dep-build/$name" -j"$(nproc)" >/dev/null
    cmake --install "$root/dep-build/$name" >/dev/null
    touch "$deps/.$name"
}

mkdir -p "$deps"
[ -f "$deps/.cjson" ] || build_dep cjson "$(fetch_source cjson)" -DENABLE_CJSON_TEST=OFF -DENABLE_CJSON_UTILS=OFF \
    -DENABLE_CUSTOM_COMPILER_FLAGS=OFF
[ -f "$deps/.pcre2" ] || build_dep pcre2 "$(fetch_source pcre2)" -DPCRE2_BUILD_TESTS=OFF -DPCRE2_BUILD_PCRE2GREP=OFF
if [ ! -f "$deps/.zlib" ]; then
    zlib_src="$(fetch_source zlib)"
    # Debian's tarball leaves out win32/; the DLL's version resource is all that is missing.
    mkdir -p "$zlib_src/win32"
    printf '1 VERSIONINFO\nFILEVERSION 1,2,13,0\nBEGIN\nEND\n' > "$zlib_src/win32/zlib1.rc"
    build_dep zlib "$zlib_src"
fi
build_dep googletest /usr/src/googletest -Dgtest_disable_pthreads=OFF

export PKG_CONFIG_LIBDIR="$deps/lib/pkgconfig"
cmake -S . -B "$root/build" -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DRUVO_WINDOWS_DEPS="$deps" \
    -DCMAKE_PREFIX_PATH="$deps" -DRUVO_BUILD_BENCH=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$root/build" -j"$(nproc)"

export WINEPREFIX="$root/wineprefix" WINEDEBUG=-all
# The DLLs of the build, of the dependencies (zlib) and of mingw's runtime are found through PATH.
runtime=$(dirname "$(x86_64-w64-mingw32-g++-posix -print-libgcc-file-name)")
export WINEPATH="$root/build/bin;$root/build/lib;$deps/bin;$runtime;/usr/x86_64-w64-mingw32/lib"
# Wine's own background programs start with the prefix's first program and inherit its output:
# started here, they do not hold a test's output open and ctest waiting for it.
/usr/lib/wine/wine64 wineboot -i >/dev/null 2>&1 </dev/null || true
status=0
ctest --test-dir "$root/build" -j"$(nproc)" -L windows "$@" || status=$?
wineserver -k 2>/dev/null || true
exit $status
