#!/usr/bin/env bash
# That the packages come out the same to the byte wherever the source tree lies, and whatever times and permissions its
# files have: makes them of a copy in another folder.
# rebuild_check.sh PROJECT_FOLDER PACKAGES_FOLDER
source "$(dirname "$0")/checks.sh"
project=$1
packages=$2

temporary=$(mktemp -d)
trap 'rm -rf "$temporary"' EXIT
copy=$temporary/a/folder/whose/name/has/another/length
mkdir -p "$copy"
tar --create --directory "$project" --exclude ./build . | tar --extract --touch --directory "$copy"
chmod -R g+w,o-rx "$copy"
(
    umask 077
    "$copy/scripts/package"
)

same=0
for package in "$packages"/*.{deb,dsc,tar.gz}; do
    cmp "$package" "$copy/build/packages/${package##*/}" || fail "${package##*/} is not the same when made elsewhere"
    same=$((same + 1))
done
echo "files of the packages that are the same when made elsewhere: $same"
