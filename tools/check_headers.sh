#!/usr/bin/env bash
# Compiles every exported header, every header of the seam, of the platform's host interfaces and of
# the console alone, as C11 and as C++20, with all warnings as errors: each must bring what it needs,
# and serve embedders of either language.
#
#     check_headers.sh CC CXX [compiler flags...]
set -euo pipefail
cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.."

cc=$1
cxx=$2
shift 2
warnings=(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
failed=0

compiles_alone()
{
    local header=$1 folder
    folder=$(dirname "$header")
    shift
    printf '#include "%s"\ntypedef int not_empty;\n' "$(basename "$header")" |
        "$@" -fsyntax-only -I"$folder" -Iplatform/include -
}

check()
{
    local header=$1
    shift
    compiles_alone "$header" "$cc" -x c -std=c11 "${warnings[@]}" -Wstrict-prototypes "$@" ||
        failed=1
    compiles_alone "$header" "$cxx" -x c++ -std=c++20 "${warnings[@]}" "$@" || failed=1
}

for header in include/*.h platform/include/*.h platform/linux/include/*.h console/include/*.h; do
    check "$header" "$@"
done

# A header that leans on what another one happened to include must not get through.
broken=$(mktemp -d)
trap 'rm -rf "$broken"' EXIT
echo 'uint32_t needs_stdint(void);' >"$broken/broken.h"
if compiles_alone "$broken/broken.h" "$cc" -x c -std=c11 "${warnings[@]}" "$@" 2>/dev/null; then
    echo "headers: a header without its includes was let through"
    failed=1
fi

[ "$failed" -eq 0 ] && echo "headers: each one stands alone"
exit "$failed"
