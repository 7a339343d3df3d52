#!/usr/bin/env bash
# What the Debian packages hold and say, and when apt installs them: package_check.sh PROJECT_FOLDER PACKAGES_FOLDER
source "$(dirname "$0")/checks.sh"
project=$1
packages=$2

temporary=$(mktemp -d)
trap 'rm -rf "$temporary"' EXIT
all=$temporary/all
libraries=/usr/lib/$(dpkg-architecture --query DEB_HOST_MULTIARCH)
mapfile -t files < <(find "$packages" -name '*.deb' ! -name '*-dbgsym_*' | sort)
version=$(dpkg-deb --field "${files[0]}" Version)

# Fields, control files and paths of each, a folder's own line, manual pages and the documents under docs/ aside.
for package in "${files[@]}"; do
    dpkg-deb --field "$package" \
        Package Version Section Priority Multi-Arch Depends Suggests Provides Conflicts Replaces Maintainer
    dpkg-deb --ctrl-tarfile "$package" | tar --list | sort
    dpkg-deb --fsys-tarfile "$package" | tar --list --verbose |
        sed -nE '/\/$|\/man3\/|\.(md|svg|png)$/d; s#[^/]*\.(zel|py)$#*.\1#; s|^([^ ]+) ([^ ]+) .* \./|  \1 \2 /|p' |
        sort -u
done | sed "s/${version//./\\.}/VERSION/g; s|$libraries|LIBDIR|g" |
    compare "packages" "$project/tests/expected/packages.txt"

for package in "${files[@]}"; do
    dpkg-deb --fsys-tarfile "$package" | tar --list | grep -v '/$'
    dpkg-deb --extract "$package" "$all"
done | sort | uniq --repeated >"$temporary/shared"
[ ! -s "$temporary/shared" ] || fail "in more than one package: $(cat "$temporary/shared")"
documents=$all/usr/share/doc/libzel-core-term-dev
for folder in docs examples; do
    diff --recursive "$project/$folder" "$documents/$folder" || fail "$folder/ is not in the packages"
done
diff --recursive --exclude=__pycache__ "$project"/report/zel_report "$all"/usr/share/zel-term-report/zel_report ||
    fail "the report is not whole"
"$all"/usr/bin/zel-term-report --help >/dev/null || fail "the report does not run"
check_links "$documents"/*.md "$documents"/docs/*.md

while read -r binary; do
    readelf --sections --dynamic --wide "$binary" >"$temporary/binary"
    grep -q 'NEEDED\|SONAME' "$temporary/binary" || fail "${binary##*/} is not dynamic"
    ! grep -E 'RPATH|RUNPATH' "$temporary/binary" || fail "${binary##*/} has a run path"
    ! grep -E ' \.(symtab|debug_)' "$temporary/binary" || fail "${binary##*/} is not stripped"
done < <(find "$all" -type f \( -name '*.so*' -o -path '*/bin/*' \))

# Each exported name has a page that is about it, and pages tell what results leave.
page() { MANPATH=$all/usr/share/man MANWIDTH=200 man --pager=cat "$@" | col -bx; }
while read -r name; do
    [[ $(page 3 "$name") == *"$name"* ]] || fail "there is no manual page of $name"
done < <(sed -n 's/^ \(.*\)@Base .*/\1/p' "$project/debian/libzel-core-term1.symbols")
grep -q '^ *13 a data-plane call failed\. What was made' <<<"$(page 3 zel_core_term_udp_session_add)" ||
    fail "the page of an operation"
[[ $(page 3 libzel-core-term) == *zel_udp_session.h* ]] || fail "the page of the whole"
if grep -rE "$project|/build/" "$all/usr/share/man" "$all$libraries/pkgconfig" "$all$libraries/cmake"; then
    fail "the packages know where they were built"
fi

export PKG_CONFIG_LIBDIR=$all$libraries/pkgconfig
[[ $version == "$(pkg-config --modversion zel-core-term)"-* ]] || fail "debian/changelog has another version"
flags=$(pkg-config --cflags --libs zel-core-term | xargs)
[ "$flags" = "-I/usr/include/zel_platform -lzel-core-term" ] || fail "pkg-config says $flags"

# apt takes a platform's own package before the stand-ins, and those with the shell. It sees these packages only, and
# one that stands for the machine's.
repository=$temporary/repository
mkdir -p "$repository" "$temporary/apt"/{lists/partial,archives/partial,preferences.d}
cp "${files[@]}" "$repository"
dummy() { # NAME PROVIDES
    mkdir -p "$temporary/$1/DEBIAN"
    printf '%s\n' "Package: $1" "Version: 1" "Architecture: all" "Multi-Arch: foreign" "Maintainer: n <n@n.invalid>" \
        "Provides: $2" "Description: dummy" >"$temporary/$1/DEBIAN/control"
    dpkg-deb --build "$temporary/$1" "$repository" >"$temporary/log"
}
dummy a-platform zel-platform
dummy machine "$(dpkg-query --show --showformat='${binary:Package} (= ${Version}), ' \
    libc6 libcgraph6 libgcc-s1 libgvc6 liblttng-ust1 libreadline8 libstdc++6 python3 python3-bt2 |
    sed 's/:[a-z0-9]*//g; s/, $//')"
(cd "$repository" && dpkg-scanpackages --multiversion . >Packages 2>"$temporary/log")
true >"$temporary/apt/status"
echo "deb [trusted=yes] file:$repository ./" >"$temporary/apt/sources.list"
apt() {
    apt-get -o Dir="$temporary/apt" -o Dir::Etc="$temporary/apt" -o Dir::State="$temporary/apt" \
        -o Dir::State::status="$temporary/apt/status" -o Dir::Cache="$temporary/apt" -o APT::Sandbox::User=root "$@"
}
apt -qq update
installs() { apt --simulate install "$1" | sed -n 's/^Inst \([^ ]*\) .*/\1/p' | grep -v '^machine$' | sort | xargs; }
seen=$(installs libzel-core-term-dev)
[ "$seen" = "a-platform libzel-core-term-dev libzel-core-term1 zel-term-probes" ] || fail "apt installs $seen"
seen=$(installs zel-term-tools)
[ "$seen" = "libzel-core-term1 zel-term-probes zel-term-stand-ins zel-term-tools" ] || fail "apt installs $seen"

lintian --allow-root --fail-on error,warning,pedantic --pedantic --suppress-tags very-long-line-length-in-source-file \
    "$packages"/*.changes || fail "lintian"
echo "packages: ${#files[@]}"
