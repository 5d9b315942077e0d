#!/bin/sh
# Compares the operations that the seam's headers declare with the rows of the porting contract:
# each has exactly one, and no row names an operation that is not there.
#
# usage: porting_rows.sh PLATFORM_FOLDER
set -eu
platform=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# A declaration begins in the first column with a type; comments and attributes are indented.
sed -nE 's/^[a-z][a-z0-9_ ]*[ *]+([A-Za-z0-9_]+)\(.*/\1/p' "$platform"/include/*.h |
    grep -v '^typedef' | sort > "$scratch/declared"
# The operations inside an allocator's record have rows under their field names.
sed -nE 's/^\| `([A-Za-z0-9_]+)` \|.*/\1/p' "$platform/README.md" | sort > "$scratch/rows"

echo "$(wc -l < "$scratch/declared") operations declared"
[ -s "$scratch/declared" ]
if ! diff "$scratch/declared" "$scratch/rows"; then
    echo "left: declared without a row; right: a row without a declaration, or a second one"
    exit 1
fi
