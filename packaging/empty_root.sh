#!/usr/bin/env bash
# Installs the packages as a newcomer would and does what the README says: empty_root.sh PACKAGES FOLDER makes an empty
# Debian below FOLDER, installs all packages of the folder PACKAGES with apt, runs the console blocks of the README and
# of the tutorial as a user without rights, and takes the packages away again. Needs root and the mirror that apt on this
# machine uses; the empty system is kept as FOLDER/base.tar for the next time.
set -euo pipefail

project="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
packages="$(realpath "$1")"
mkdir -p "$2"
folder="$(realpath "$2")"
root="$folder/root"

say() { printf '== %s\n' "$*"; }
die()
{
    printf 'empty_root: %s\n' "$*" >&2
    exit 1
}

# Where apt gets Debian from here: "ADDRESS SUITE COMPONENT" on each line, the release itself first.
Sources()
{
    # The dollars are apt's.
    # shellcheck disable=SC2016
    apt-get indextargets --format '$(CREATED_BY) $(ORIGIN) $(SITE) $(CODENAME) $(COMPONENT)' |
        awk '$1 == "Packages" && $2 == "Debian" { print $3, $4, $5 }' | sort -u | sort -s -k 2,2
}

MakeBase()
{
    say "making an empty $suite, for this time and the next"
    rm -rf "$root" "$folder/base.tar"
    debootstrap --variant=minbase "$suite" "$root" "$mirror" >"$folder/debootstrap.log" 2>&1 ||
        die "debootstrap failed, see $folder/debootstrap.log"
    awk '{ print "deb", $0 }' <<<"$sources" >"$root/etc/apt/sources.list"
    rm -f "$root"/var/cache/apt/archives/*.deb
    tar -C "$root" -cf "$folder/base.tar.part" .
    mv "$folder/base.tar.part" "$folder/base.tar"
}

# In COMMAND...: runs it in the empty system, with processes and devices of its own that end with it.
In()
{
    # The dollars are the inner shell's.
    # shellcheck disable=SC2016
    unshare --mount --pid --fork --kill-child bash -c '
        mount -t proc proc "$0/proc" && mount --rbind /dev "$0/dev" && exec chroot "$0" "$@"' "$root" \
        env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
        ${proxy:+http_proxy="$proxy"} "$@"
}

((EUID == 0)) || die "making an empty system takes root"
sources="$(Sources)"
[[ -n "$sources" ]] || die "apt knows no Debian mirror: run apt-get update"
read -r mirror suite _ <<<"$sources"
eval "$(apt-config shell proxy Acquire::http::Proxy)"
proxy="${proxy:-}"

if [[ -e "$folder/base.tar" ]]; then
    rm -rf "$root"
    mkdir -p "$root"
    tar -C "$root" -xf "$folder/base.tar"
else
    http_proxy="$proxy" MakeBase
fi
cp /etc/resolv.conf /etc/hosts "$root/etc/"

say "installing the packages with apt"
mkdir "$root/packages"
cp "$packages"/*.deb "$root/packages/"
mapfile -t names < <(for package in "$packages"/*.deb; do dpkg-deb -f "$package" Package; done)
In apt-get -q update >"$folder/install.log" 2>&1 || die "apt-get update failed, see $folder/install.log"
In sh -c 'apt-get -q -y install /packages/*.deb g++ pkg-config' >>"$folder/install.log" 2>&1 ||
    die "apt-get install failed, see $folder/install.log"

say "every program finds its libraries and has its manual page"
files="$(In dpkg -L "${names[@]}")"
programs="$(grep '^/usr/bin/' <<<"$files")"
for program in $programs; do
    if In ldd "$program" | grep 'not found'; then
        die "$program lacks a library"
    fi
    grep -q "/man[18]/${program##*/}[.][18][.]gz\$" <<<"$files" || die "$program has no manual page"
done

say "the README and the tutorial, as a newcomer runs them"
cp "$project/README.md" "$project/docs/tutorial.md" "$project/packaging/run_console.sh" "$root/packages/"
In useradd --create-home --home-dir /tmp/newcomer newcomer
# The dollar is the newcomer's.
# shellcheck disable=SC2016
In runuser -u newcomer -- env HOME=/tmp/newcomer MRL_PATH=/usr/libexec/rfm sh -c 'rfm doctor &&
    /packages/run_console.sh /packages/README.md "$HOME" && mkdir "$HOME/tutorial" &&
    /packages/run_console.sh /packages/tutorial.md "$HOME/tutorial"'

say "taking the packages away again"
In apt-get -q -y purge "${names[@]}" >>"$folder/install.log" 2>&1 || die "apt-get purge failed, see $folder/install.log"
while IFS= read -r file; do
    if [[ ! -d "$root$file" && (-e "$root$file" || -L "$root$file") ]]; then
        die "$file is left"
    fi
done <<<"$files"
rm -rf "$root"
say "installed, tried and removed in an empty $suite"
