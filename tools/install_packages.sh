#!/usr/bin/env bash
# Installs the Debian packages that the project needs; does nothing when all are there.
#
#     tools/install_packages.sh build     what ./run needs
#     tools/install_packages.sh test      what ./test needs besides (the default)
#     tools/install_packages.sh block     what ./run block needs: the build's, nbdkit and clients
#     tools/install_packages.sh bench     what ./bench needs: the build's packages and the peers
#
# The one place that lists them. As root it calls apt-get itself, otherwise through sudo.
set -euo pipefail

BUILD_PACKAGES=(
    g++ cmake ninja-build pkg-config
    libmxml-dev     # configuration document
    libnuma-dev     # memory near the thread that uses it
    libinih-dev     # ini files
    libspdlog-dev   # log sinks and rotation
    systemtap-sdt-dev # static probes: a header, nothing at run time
    libcli11-dev    # command lines of the programs
    nbdkit-plugin-dev libisal-dev # nbd_node: what it plugs into, and its CRC
    libedit-dev libncurses-dev # cmmctl's prompt and screen
    nlohmann-json3-dev # cmmctl and the tests read the console commands' JSON
)
TEST_PACKAGES=(
    gcc clang-14
    libgtest-dev libgmock-dev
    python3 binutils # the checks of includes and exports
    gcovr            # the coverage of the unit tests
    tmux             # cmmctl as a user sees it
    valgrind libc6-dbg # a use after free is found at its line
)
BLOCK_PACKAGES=(
    nbdkit                         # the server that nbd_node plugs into
    libnbd-bin python3-libnbd qemu-utils fio e2fsprogs # its clients
)
BENCH_PACKAGES=(
    libbenchmark-dev python3
    libdpdk-dev     # packet-buffer pool
    libmimalloc2.0 libjemalloc2 libtcmalloc-minimal4
    libradospp-dev  # buffer list
    hyperfine linux-perf # cmm_node beside cp, and where its time goes
)

missing_packages()
{
    local package
    for package in "$@"; do
        if [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
            echo "$package"
        fi
    done
}

as_root()
{
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        echo "install_packages.sh: packages are missing ($MISSING_TEXT)," \
             "and there is neither root nor sudo to install them" >&2
        exit 1
    fi
}

case "${1:-test}" in
    build) wanted=("${BUILD_PACKAGES[@]}") ;;
    test)  wanted=("${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}" "${BLOCK_PACKAGES[@]}") ;;
    block) wanted=("${BUILD_PACKAGES[@]}" "${BLOCK_PACKAGES[@]}") ;;
    bench) wanted=("${BUILD_PACKAGES[@]}" "${BENCH_PACKAGES[@]}") ;;
    *)     echo "usage: tools/install_packages.sh [build|test|block|bench]" >&2; exit 2 ;;
esac

if ! command -v dpkg-query >/dev/null; then
    echo "install_packages.sh: this is no Debian; install by hand: ${wanted[*]}" >&2
    exit 1
fi

mapfile -t missing < <(missing_packages "${wanted[@]}")
if [ "${#missing[@]}" -eq 0 ]; then
    echo "packages: all ${#wanted[@]} are installed"
    exit 0
fi

MISSING_TEXT="${missing[*]}"
echo "packages: installing $MISSING_TEXT"
as_root env DEBIAN_FRONTEND=noninteractive apt-get update -qq
as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}"
