#!/usr/bin/env bash
# Makes the package for this Debian release: make.sh WINE_FOLDER VERSION PACKAGES, out of the unpacked package for
# Wine. SOURCE_DATE_EPOCH is the time of everything in it.
set -euo pipefail
here=$(dirname "$(readlink -f "$0")")
wine=$(readlink -f "$1") version=$2 packages=$(readlink -f "$3")

release=$(sed -n 's/^VERSION_ID="\?\([0-9.]*\)"\?$/\1/p' /etc/os-release)
[ -n "$release" ] || { echo "make.sh: this is no Debian release" >&2; exit 1; }
version="$version~deb$release"
date=$(date -u -d "@$SOURCE_DATE_EPOCH" +%Y-%m-%d)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
root="$work/root"
umask 022

lib="$root/usr/lib/kestro" doc="$root/usr/share/doc/kestro"
mkdir -p "$root/usr/bin" "$lib" "$doc" "$root/usr/share/man/man1" "$root/usr/share/bash-completion/completions"
install -m 755 "$here/kestro" "$root/usr/bin/kestro"
cp -r "$wine/bin" "$wine/wine" "$lib/"
find "$lib" -type f -name '*.debug' -delete
find "$lib" -type f -exec chmod 644 {} +
chmod 755 "$lib/bin/kestro-wine" "$lib/wine/x86_64-unix/kestro-imagefs"
cp -r "$wine/docs" "$wine/licences" "$wine/LICENCES.md" "$doc/"
mkdir "$doc/examples"
cp -r "$here"/../../../examples/{fleet,container} "$doc/examples/"
{ cat "$wine/LICENSE"; printf '\nWhat is linked in has licences of its own: see LICENCES.md and licences/.\n'; } >"$doc/copyright"
printf 'kestro (%s) stable; urgency=medium\n\n  * What is new: CHANGELOG.md.gz.\n\n -- %s  %s\n' "$version" \
    "The Kestro developers <kestro@users.noreply.example>" "$(date -u -R -d "@$SOURCE_DATE_EPOCH")" |
    gzip -9n >"$doc/changelog.gz"
gzip -9nc "$wine/CHANGELOG.md" >"$doc/CHANGELOG.md.gz"

# The installed command tells what it can do.
export KESTRO_PREFIX="${WINEPREFIX:-$work/prefix}" WINEDEBUG=-all
python3 -B "$here/from_help.py" man "$version" "$date" "$root/usr/bin/kestro" |
    gzip -9n >"$root/usr/share/man/man1/kestro.1.gz"
python3 -B "$here/from_help.py" bash "$version" "$date" "$root/usr/bin/kestro" \
    >"$root/usr/share/bash-completion/completions/kestro"
[ -n "${WINEPREFIX:-}" ] || WINEPREFIX="$KESTRO_PREFIX" "$lib/bin/kestro-wine" --stop

# What the native parts link with, in this release's packages.
mkdir "$work/debian"
printf 'Source: kestro\n\nPackage: kestro\nArchitecture: amd64\n' >"$work/debian/control"
depends=$(cd "$work" && dpkg-shlibdeps -O --ignore-missing-info -l/usr/lib/x86_64-linux-gnu/wine/x86_64-unix \
    "$lib/wine/x86_64-unix/dismapi.dll.so" "$lib/wine/x86_64-unix/kestro-imagefs" 2>/dev/null |
    sed -n 's/^shlibs:Depends=//p')
[ -n "$depends" ] || { echo "make.sh: dpkg-shlibdeps finds nothing that the programs need" >&2; exit 1; }

mkdir "$root/DEBIAN"
sed -e "s/@VERSION@/$version/" -e "s/@DEPENDS@/$depends/" \
    -e "s/@SIZE@/$(du -sk --apparent-size "$root/usr" | cut -f1)/" "$here/control.in" >"$root/DEBIAN/control"
(cd "$root" && find usr -type f -print0 | LC_ALL=C sort -z | xargs -0 md5sum) >"$root/DEBIAN/md5sums"
find "$root" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
dpkg-deb --root-owner-group -Zxz --build "$root" "$packages" >/dev/null
cd "$packages"
sha256sum "kestro_${version}_amd64.deb" >"kestro_${version}_amd64.deb.sha256"
