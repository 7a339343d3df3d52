#!/usr/bin/env bash
# What the Debian packages hold and say: package_check.sh PROJECT_FOLDER VERSION PACKAGES_FOLDER
source "$(dirname "$0")/checks.sh"
project=$1
version=$2
packages=$3

temporary=$(mktemp -d)
trap 'rm -rf "$temporary"' EXIT

# Fields, control files and paths of each, a folder's own line and the documents under docs/ aside.
for package in "$packages"/*.deb; do
    dpkg-deb --field "$package" Package Version Section Depends Suggests Provides Conflicts Replaces Maintainer
    dpkg-deb --ctrl-tarfile "$package" | tar --list | sort
    dpkg-deb --fsys-tarfile "$package" | tar --list --verbose |
        sed -nE '/\/$|\.(md|svg|png)$/d; s|^([^ ]+) ([^ ]+) .* \./|  \1 \2 /|p' | sort
done | sed "s/${version//./\\.}/VERSION/g" | compare "packages" "$project/tests/expected/packages.txt"

for package in "$packages"/*.deb; do
    dpkg-deb --fsys-tarfile "$package" | tar --list | grep -v '/$'
    dpkg-deb --extract "$package" "$temporary/all"
done | sort | uniq --repeated >"$temporary/shared"
[ ! -s "$temporary/shared" ] || fail "in more than one package: $(cat "$temporary/shared")"
documents=$temporary/all/usr/share/doc/libzel-core-term-dev
diff --recursive "$project/docs" "$documents/docs" || fail "the documents are not in the packages"
check_links "$documents"/*.md "$documents"/docs/*.md

while read -r binary; do
    readelf --sections --dynamic --wide "$binary" >"$temporary/binary"
    grep -q 'NEEDED\|SONAME' "$temporary/binary" || fail "${binary##*/} is not dynamic"
    ! grep -E 'RPATH|RUNPATH' "$temporary/binary" || fail "${binary##*/} has a run path"
    ! grep -E ' \.(symtab|debug_)' "$temporary/binary" || fail "${binary##*/} is not stripped"
done < <(find "$temporary/all" -type f \( -name '*.so*' -o -path '*/bin/*' \))

dpkg-deb --control "$packages/libzel-core-term1_${version}_"*.deb "$temporary/control"
[ "$(cat "$temporary/control/triggers")" = "activate-noawait ldconfig" ] || fail "ldconfig is not triggered"
mkdir "$temporary/debian"
printf 'Source: libzel-core-term\n\nPackage: libzel-core-term1\nArchitecture: any\n' >"$temporary/debian/control"
(cd "$temporary" && dpkg-gensymbols -c4 -plibzel-core-term1 "-v$version" -Pall -Icontrol/symbols -O/dev/null \
    -eall/usr/lib/libzel-core-term.so.1) || fail "packaging/debian/symbols is not what the library exports"

lintian --allow-root --fail-on error,warning "$packages"/*.deb || fail "lintian"
all=("$packages"/*.deb)
echo "packages: ${#all[@]}"
