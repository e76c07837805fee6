#!/bin/sh
# Installs what is missing (Debian 12, as root) and builds everything into out/.
# Extra CMake arguments may come in RUVO_CMAKE_ARGS, e.g. -DRUVO_SANITIZE=ON.
set -e
cd "$(dirname "$0")/.."

packages="cmake make g++ clang clang-format libcjson-dev libgtest-dev libgmock-dev \
libbenchmark-dev libclang-rt-14-dev libpcre2-dev pkg-config python3 python3-can python3-canmatrix zlib1g-dev"
sh tools/ensure_packages.sh $packages

cmake -S . -B out -DCMAKE_BUILD_TYPE=RelWithDebInfo ${RUVO_CMAKE_ARGS:-} >/dev/null
cmake --build out -j"$(nproc)"
