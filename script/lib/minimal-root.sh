# shellcheck shell=sh
# A minimal Debian of this machine's release, from this machine's sources, in a directory: what the tests in one share.
#
# Each sources it with these variables set, in mount and process namespaces of its own, so that whatever is mounted or
# started ends with them:
#
#   name    what its messages begin with
#   work    where its logs go
#   root    where the system is unpacked
#   store   where the system is kept as an archive, with what was downloaded for it
#
# shellcheck disable=SC2154
set -eu

base=$store/base.tar
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8

step() {
    echo "$name: $*"
}

fail() {
    echo "$name: $*" >&2
    exit 1
}

# This machine's sources of its own release, one "URI SUITE COMPONENT" per line.
sources() {
    apt-get indextargets --format "\$(ORIGIN) \$(REPO_URI) \$(RELEASE) \$(COMPONENT)" "Created-By: Packages" |
        sed -n 's/^Debian //p' | sort -u
}

# Makes the archive, once.
make_base() {
    [ ! -e "$base" ] || return 0
    [ -n "$(sources)" ] || apt-get update -q >"$work/apt.log" 2>&1  # a machine whose lists were cleaned away
    release=$(. /etc/os-release && echo "$VERSION_CODENAME")
    mirror=$(sources | awk -v release="$release" '$2 == release && $3 == "main" { print $1; exit }')
    [ -n "$mirror" ] || fail "apt knows no source of $release"
    step "make a minimal $release, once"
    mkdir -p "$root" "$store"
    mount --bind "$root" /mnt  # debootstrap wants a path without blanks
    debootstrap --variant=minbase "$release" /mnt "$mirror" >"$work/debootstrap.log" 2>&1 || {
        tail -n 20 "$work/debootstrap.log" >&2
        fail "debootstrap failed"
    }
    umount --recursive /mnt
    rm -f "$root"/var/cache/apt/archives/*.deb
    tar -C "$root" --one-file-system -cf "$base.new" .
    mv "$base.new" "$base"
    rm -rf --one-file-system "$root"
}

# Unpacks the system with the processes seen from here, and with this machine's way to the sources.
unpack_base() {
    mkdir -p "$root" "$store/archives/partial"
    mount --bind "$root" "$root"  # a mount namespace can be made only where the root is a mount point
    tar -C "$root" -xpf "$base"
    mount -t proc proc "$root/proc"
    mount --bind "$store/archives" "$root/var/cache/apt/archives"
    sources | sed 's/^/deb /' >"$root/etc/apt/sources.list"
    apt-config dump Acquire >"$root/etc/apt/apt.conf.d/90machine"
    for file in /etc/resolv.conf /etc/hosts /etc/ssl/certs/ca-certificates.crt; do
        [ ! -e "$file" ] || install -D -m 644 "$file" "$root$file"
    done
    printf '#!/bin/sh\nexit 101\n' >"$root/usr/sbin/policy-rc.d"  # no service starts
    chmod 755 "$root/usr/sbin/policy-rc.d"
    inside apt-get update -q >"$work/apt.log" 2>&1 || {
        cat "$work/apt.log" >&2
        fail "the sources cannot be reached"
    }
}

inside() {
    chroot "$root" "$@"
}

# Installs packages and no more than they depend on.
install_inside() {
    inside apt-get install -y -q --no-install-recommends "$@" >"$work/apt.log" 2>&1 || {
        cat "$work/apt.log" >&2
        fail "cannot install $*"
    }
}
