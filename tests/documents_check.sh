#!/usr/bin/env bash
# Checks the documents: documents_check.sh PROJECT_FOLDER BIN_FOLDER
#   links and named files exist;
#   blocks show what their commands print, tracing.md lists what the sources fire, and Doxygen understands the headers;
#   the ```sh blocks of README.md and docs/ work, those of a document as one script.
source "$(dirname "$0")/checks.sh"
project=$1
bin=$2
cd "$project"
temporary=$(mktemp -d)
trap '[ -z "${home:-}" ] || end_processes; rm -rf "$temporary"' EXIT

folders='bench|cmake|docs|examples|include|platform|scripts|shell|src|tests|trace'
check_links ./*.md docs/*.md
for document in *.md docs/*.md; do
    while read -r path; do
        compgen -G "$path" >/dev/null || fail "$document names $path, which does not exist"
    done < <(prose "$document" | grep -oE "\`($folders)/[^\` ]*" | tr -d '`' | sort -u)
done

for document in README.md docs/*.md; do
    awk '/^<!-- (made|measured) by: /{ at = NR } /^```$/ && NR == at + 2 { exit 1 }' "$document" ||
        fail "$document: a block is empty"
    with_blocks made "$document" >"$temporary/renewed"
    diff -u --label "$document" --label "what its commands print" "$document" "$temporary/renewed" ||
        fail "$document: scripts/test renew $document"
done

# first_cells PATTERN: of the rows of tracing.md's tables whose first cell is such a word.
first_cells() { sed -nE "s/^\| \`($1)\` \|.*/\1/p" docs/tracing.md | sort; }
level=LTTNG_UST_TRACEPOINT_LOGLEVEL
diff -u --label docs/tracing.md --label "the providers' headers" \
    <(sed -nE "s/^\| \`(tn_zel_[a-z]+:[A-Z_]+)\` \| ([A-Z_]+) \|.*/\1 \2/p" docs/tracing.md | sort) \
    <(sed -nE "s/.*EVENT\((tn_.*), (.*), ${level}_([A-Z_]*)\).*/\1:\2 TRACE_\3/p" trace/tn_zel_events.h | sort) ||
    fail "the table of events"
diff -u --label docs/tracing.md --label src/term/zel_trace.h <(first_cells '[A-Z0-9]+(_[A-Z0-9]+)*') \
    <(sed -n 's/^inline constexpr char [a-z0-9_]*\[\] = "\(.*\)";/\1/p' src/term/zel_trace.h | sort) ||
    fail "the table of categories"

# What the reports of refusals, failures and inconsistencies say, up to the first value in it; names of functions aside.
texts=$(cat src/*/*.cpp | tr '\n' ' ' | grep -oE '(report\(|EXCEPTION,|TRACE_ERROR\(|ERROR,)[^;]*;' |
    grep -oE '"[^"]*"' | sed 's/^"//; s/"$//; s/%[a-z].*//' |
    grep '[^a-z0-9_]' | grep -v '^(): ' | sort -u)
while read -r text; do
    grep -qF -- "$text" docs/tracing.md || fail "docs/tracing.md does not tell what '$text' means"
done <<<"$texts"
[ "$(wc -l <<<"$texts")" -gt 10 ] || fail "the texts of the reports were not found"

# The comments of the headers, as Doxygen reads them. One code can have two reasons, each with what it leaves.
printf '%s\n' '@INCLUDE = packaging/Doxyfile' "OUTPUT_DIRECTORY = $temporary" 'GENERATE_MAN = YES' | doxygen - 2>&1 |
    sed '/has multiple documentation sections/d' >"$temporary/warnings"
[ ! -s "$temporary/warnings" ] || { cat "$temporary/warnings"; fail "the comments of the headers"; }

# The commands run in a copy of the sources, whose build/release is the one that is there; each document's as a user
# with a home of their own, whose processes are ended after it.
processes() { grep -lszx "HOME=$home" /proc/[0-9]*/environ | sed 's|/proc/\([0-9]*\)/.*|\1|'; }
end_processes() {
    local process
    for _ in {1..100}; do
        [ -n "$(processes)" ] || return 0
        for process in $(processes); do kill "$process" 2>/dev/null || true; done
        sleep 0.1
    done
    fail "processes that do not end: $(processes)"
}
chmod 755 "$temporary"
copy=$temporary/project
mkdir -p "$copy/build"
tar --create --exclude ./build --exclude ./.git . | tar --extract --directory "$copy"
ln -s "$(dirname "$bin")" "$copy/build/release"
if [ "$(id -u)" -eq 0 ]; then
    setpriv --reuid 65534 --clear-groups test -r "$project/CMakeLists.txt" ||
        fail "the commands are tried as a user without rights, who cannot read $project: put it where all can"
    chown -R 65534:65534 "$copy"
    install -m 666 /dev/null "$(dirname "$bin")/install_manifest.txt" # cmake --install notes there what it does
    install -m 666 /dev/null "$(dirname "$bin")/install_manifest_stand-ins.txt"
fi
for document in README.md docs/*.md; do
    { echo 'set -euo pipefail'
      awk '/^```$/ { commands = 0 } commands { print } /^```sh$/ { commands = 1 }' "$document"; } >"$temporary/commands"
    [ "$(wc -l <"$temporary/commands")" -gt 1 ] || continue
    ! sed "s/'[^']*'//g" "$temporary/commands" | grep -E '^ *!|&&|\|\|' ||
        fail "a command of $document whose failure would not be seen"
    home=$temporary/home.${document##*/}
    mkdir "$home"
    as_private_user "$home"
    (cd "$copy" && exec "${as_user[@]}" timeout 120 bash -x "$temporary/commands") </dev/null >"$temporary/log" 2>&1 ||
        { tail -n 40 "$temporary/log"; fail "a command of $document"; }
    ! grep -F 'cannot be preloaded' "$temporary/log" || fail "a library of $document"
    echo "commands of $document that work: $(grep -c '^+ ' "$temporary/log")"
    end_processes
    home=
done
