#!/bin/sh
# The Debian part of this machine's own apt settings: no address stands in this repository.
#
#   tools/debian_sources.sh mirror    the mirror of this release, for debootstrap
#   tools/debian_sources.sh sources   its source packages, as an apt list of deb-src lines
#
# apt itself reads the settings, whichever of its two formats they are in, and knows by the signed
# Release files which entries are Debian's own; it needs to have run 'apt-get update' once.
set -eu

. /etc/os-release
entries=$(apt-get indextargets --format '$(ORIGIN)|$(RELEASE)|$(COMPONENT)|$(REPO_URI)' \
              'Created-By: Packages' 2>/dev/null |
          awk -F'|' -v codename="${VERSION_CODENAME:-none}" '
              $1 == "Debian" && $3 == "main" &&
              ($2 == codename || index($2, codename "-") == 1 || index($2, codename "/") == 1) {
                  print $4, $2
              }' | sort -u)
if [ -z "$entries" ]; then
    echo "$0: apt knows no Debian ${VERSION_CODENAME:-} mirror on this machine;" \
         "has 'apt-get update' run?" >&2
    exit 1
fi

case "${1:-}" in
mirror)
    echo "$entries" | awk -v codename="$VERSION_CODENAME" '$2 == codename { print $1; exit }' |
        grep . || { echo "$0: no mirror of Debian $VERSION_CODENAME itself" >&2; exit 1; }
    ;;
sources)
    keyring=/usr/share/keyrings/debian-archive-keyring.gpg
    options=
    [ ! -r "$keyring" ] || options="[signed-by=$keyring] "
    echo "$entries" | while read -r address suite; do
        echo "deb-src $options$address $suite main"
    done
    ;;
*)
    echo "usage: $0 mirror | sources" >&2
    exit 2
    ;;
esac
