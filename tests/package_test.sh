#!/usr/bin/env bash
# Installs the packages in a root of their own, where there is no source tree, no compiler and no
# shell, and lets them work there; then takes them away again.
# usage: tests/package_test.sh BUILD_FOLDER
set -euo pipefail
build=$(realpath "$1")
# A namespace's root may install and mount; where there are none, there is no test.
if [ "${2:-}" != inside ]; then
    unshare --user --map-root-user --mount true 2>/dev/null || exit 77
    exec unshare --user --map-root-user --mount "$0" "$build" inside
fi

fail() {
    echo "package_test: $*" >&2
    exit 1
}

"$(dirname "$0")/../scripts/package" "$build" >/dev/null
package=$(echo "$build"/package/*.deb)
archive=$(echo "$build"/package/*.tar.gz)
folder=${archive%.tar.gz}
[ "$(tar -tzf "$archive" | wc -l)" -eq "$(find "$folder" -printf '%p\n' | wc -l)" ] ||
    fail "the tar is not the folder"

root=$(mktemp -d)
trap 'umount -l "$root/proc"; rm -rf "$root"' EXIT
mkdir -p "$root"/{proc,tmp,var/lib/dpkg/{info,updates}}
touch "$root/var/lib/dpkg/status"
mount --rbind /proc "$root/proc"
# What the packages that it depends on bring: the libraries that the loader asks for.
find "$folder/bin" "$folder/lib" -type f -exec ldd {} + |
    grep -o '/[^ ]* (0x' | sed 's/ (0x//' | grep -v "^$build" | sort -u |
    xargs -I FILE cp --parents -L FILE "$root"

installed() {
    (cd "$root" && find . -path ./proc -prune -o -path ./var -prune -o -path ./tmp -prune -o -print) |
        sort
}
lab() {
    local code=$1
    shift
    set +e
    chroot "$root" "$@" >"$root/tmp/out" 2>&1
    local returned=$?
    set -e
    [ "$returned" -eq "$code" ] || fail "'$*' returned $returned: $(cat "$root/tmp/out")"
}
says() {
    grep -qF -- "$1" "$root/tmp/out" || fail "nothing of '$1' in: $(cat "$root/tmp/out")"
}

before=$(installed)
dpkg --root="$root" --force-depends --force-script-chrootless --log=/dev/null -i "$package" \
    >"$root/tmp/dpkg" 2>&1 || fail "$(cat "$root/tmp/dpkg")"
lab 0 /usr/bin/tarquel-lab run first_seconds --report /tmp/run.html --trace /tmp/run.json
says "Nothing leaked"
[ -s "$root/tmp/run.html" ] && [ -s "$root/tmp/run.json" ] || fail "no pictures"
lab 0 /usr/bin/tarquel-lab check /usr/lib/tarquel-lab/share/tarquel-lab/scenes/sm8450.xml
lab 0 /usr/bin/tarquel-lab why thermal_breakthrough big_max --at 5.200 --device sm4450
lab 0 /usr/bin/tarquel-lab logcat hot_game
[ -e "$root/usr/include/tarquel/action.h" ] || fail "no headers"
zcat "$root/usr/share/man/man1/tarquel-lab.1.gz" | grep -q '^\.B \\-\\-report FILE.html' ||
    fail "the manual page does not tell of --report"

# What a shell offers; of the others it is seen that they name the same.
completions() {
    (
        source "$root/usr/share/bash-completion/completions/tarquel-lab"
        COMP_WORDS=("$@")
        COMP_CWORD=$(($# - 1))
        cd "$root/tmp"
        _tarquel_lab
        echo "${COMPREPLY[*]}"
    )
}
[ "$(completions tarquel-lab ex)" = explain ] || fail "explain is not completed"
[ "$(completions tarquel-lab run --device sm44)" = sm4450 ] || fail "sm4450 is not completed"
[ "$(completions tarquel-lab run run.h)" = run.html ] || fail "a file is not completed"
[ "$(completions tarquel-lab why --hi)" = --history ] || fail "--history is not completed"
for page in zsh/vendor-completions/_tarquel-lab fish/vendor_completions.d/tarquel-lab.fish; do
    grep -q thermal_breakthrough "$root/usr/share/$page" || fail "$page names no scenario"
done

dpkg --root="$root" --force-script-chrootless --log=/dev/null --purge tarquel-lab \
    >"$root/tmp/dpkg" 2>&1 || fail "$(cat "$root/tmp/dpkg")"
[ "$(installed)" = "$before" ] || fail "left behind: $(diff <(installed) - <<<"$before")"

# The tar anywhere; the build folder, and the program alone, where there are no sources.
tar -C "$root/tmp" -xzf "$archive"
lab 0 "/tmp/$(basename "$folder")/bin/tarquel-lab" run -q thermal_breakthrough
mkdir "$root/tmp/copy"
cp -a "$build/bin" "$build/lib" "$root/tmp/copy"
lab 2 /tmp/copy/bin/tarquel-lab run first_seconds
says "./dev package"
"$root/tmp/copy/bin/tarquel-lab" run -q first_seconds >/dev/null || fail "no copy of the build runs"
mv "$root/tmp/copy/bin/tarquel-lab" "$root/tmp"
! "$root/tmp/tarquel-lab" run first_seconds 2>"$root/tmp/out" || fail "the program alone runs"
says "cmake --install"
