#!/usr/bin/env bash
# Builds the Debian package from the build tree (what `make deb` does) into a folder of
# its own, then looks inside it and runs the program it holds.
#   check-deb.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$1
source=$2
work=$(mktemp -d)
program_pid=
cleanup() {
    [[ -n "$program_pid" ]] && kill "$program_pid" 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

(cd "$build" && cpack -G DEB -B "$work/out" >"$work/cpack.log" 2>&1) ||
    { cat "$work/cpack.log"; fail "cpack did not build the package"; }
debs=("$work"/out/lumidrop_*.deb)
[[ -f "${debs[0]}" ]] || fail "no lumidrop_*.deb in $(ls "$work/out")"
deb=${debs[0]}

contents=$(dpkg-deb -c "$deb")
for file in ./usr/bin/lumidrop ./usr/share/man/man1/lumidrop.1.gz \
        ./usr/share/applications/lumidrop.desktop ./usr/lib/systemd/user/lumidrop.service \
        ./usr/share/doc/lumidrop/README.md ./usr/share/doc/lumidrop/manual.md \
        ./usr/share/doc/lumidrop/plugins.md ./usr/include/lumidrop/plugin.h; do
    grep -q " $file\$" <<<"$contents" || fail "$file is not in the package: $contents"
done
grep -q -- '-rwxr-xr-x root/root .* ./usr/bin/lumidrop$' <<<"$contents" ||
    fail "the program is not an executable owned by root"

version=$(sed -n 's/.*kVersionText\[\] = "\([^"]*\)".*/\1/p' "$source/src/core/Version.h")
[[ "$(dpkg-deb -f "$deb" Package)" == lumidrop ]] || fail "Package is not lumidrop"
[[ "$(dpkg-deb -f "$deb" Version)" == "$version" ]] || fail "Version is not $version"
[[ "$(dpkg-deb -f "$deb" Depends)" == *libc6* ]] || fail "Depends does not name libc6"
[[ "$(dpkg-deb -f "$deb" Description)" != *";"* ]] || fail "the description was cut into a list"
[[ -n "$(dpkg-deb -f "$deb" Maintainer)" ]] || fail "no Maintainer"
[[ "$(dpkg-deb -f "$deb" Architecture)" == "$(dpkg --print-architecture)" ]] ||
    fail "Architecture is not this machine's"

root=$work/root
dpkg-deb -x "$deb" "$root"
cmp "$root/usr/lib/systemd/user/lumidrop.service" "$source/packaging/lumidrop.service" ||
    fail "the packaged unit differs from packaging/lumidrop.service"
zcat "$root/usr/share/man/man1/lumidrop.1.gz" | cmp - "$source/docs/lumidrop.1" ||
    fail "the packaged man page differs from docs/lumidrop.1"
"$root/usr/bin/lumidrop" --version | grep -qx "Korvel Lumidrop $version (revision [0-9]*)" ||
    fail "--version of the packaged program: $("$root/usr/bin/lumidrop" --version)"

# The packaged program on a home of its own: it must come up and listen, with the skin
# and the English texts it carries inside.
mkfifo "$work/lines"
"$root/usr/bin/lumidrop" --home "$work/home" --port 0 >"$work/lines" 2>"$work/stderr" &
program_pid=$!
line=
read -r -t 20 line <"$work/lines" || true
[[ "$line" =~ ^Korvel\ Lumidrop\ listening\ on\ http://.*:([0-9]+)/$ ]] ||
    fail "no listening line, but '$line'; stderr: $(cat "$work/stderr")"
port=${BASH_REMATCH[1]}
page=$(curl -s "http://127.0.0.1:$port/") || fail "nothing answered on port $port"
[[ "$page" == *"<html"* || "$page" == *"<HTML"* ]] || fail "the root page is not a page: $page"
kill "$program_pid"
wait "$program_pid" || true
program_pid=
[[ -f "$work/home/Language/English.wul" ]] || fail "the English texts were not installed"
echo "package $(basename "$deb") checked"
