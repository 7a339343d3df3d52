#!/usr/bin/env bash
# That the libraries come out the same to the byte wherever the source tree lies: builds a copy of it in another folder.
# rebuild_check.sh PROJECT_FOLDER FLAVOUR LIBRARY_FOLDER
source "$(dirname "$0")/checks.sh"
project=$1
flavour=$2
libraries=$3

temporary=$(mktemp -d)
trap 'rm -rf "$temporary"' EXIT
copy=$temporary/a/folder/whose/name/has/another/length
mkdir -p "$copy"
tar --create --directory "$project" --exclude ./build --exclude ./.git . | tar --extract --directory "$copy"
(
    source "$copy/scripts/common.sh"
    build "$flavour" zel-core-term
)

same=0
for library in "$copy/build/$flavour"/lib/*.so; do
    cmp "$library" "$libraries/${library##*/}" || fail "${library##*/} is not the same when built elsewhere"
    same=$((same + 1))
done
echo "libraries that are the same when built elsewhere: $same"
