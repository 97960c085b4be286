# shellcheck shell=bash
# other_system.sh - a minimal Debian system of a release, and what runs in it. For scripts that source it.

# make_system 12|13 FOLDER LOG: makes the system there, unless there is one; its packages come from the
# archive that this machine's own come from.
make_system() {
    local suite mirror
    case $1 in 12) suite=bookworm ;; 13) suite=trixie ;; esac
    mirror=$(apt-get indextargets --format '$(REPO_URI) $(ORIGIN)/$(LABEL)' 'Created-By: Packages' |
        awk '$2 == "Debian/Debian" { print $1; exit }')
    if [ -z "$mirror" ]; then
        echo "the apt sources here name no Debian archive" >&2
        return 1
    fi
    if [ ! -e "$2/etc/debian_version" ]; then
        debootstrap --variant=minbase "$suite" "$2" "$mirror" >>"$3" 2>&1 || { tail "$3" >&2; return 1; }
        echo "deb $mirror $suite main" >"$2/etc/apt/sources.list"
    fi
    cp /etc/resolv.conf "$2/etc/resolv.conf"
    # npm there trusts whom this machine's trusts.
    [ -z "${NODE_EXTRA_CA_CERTS:-}" ] || cp -L "$NODE_EXTRA_CA_CERTS" "$2/root/npm-ca.crt"
}

# inside SYSTEM DIRECTORY COMMAND...: runs a command there. It is in namespaces of its own: the mounts and the
# processes of the other system end with it. Its devices are the few that programs need.
inside() {
    # shellcheck disable=SC2016 # the inner shell expands these
    unshare --mount --pid --fork --kill-child bash -euc '
        system=$1 directory=$2
        shift 2
        mount --make-rprivate /
        mount --bind "$system" "$system"
        mount -t tmpfs -o mode=755 dev "$system/dev"
        for device in null zero full random urandom tty fuse; do
            [ -e "/dev/$device" ] || continue
            touch "$system/dev/$device"
            mount --bind "/dev/$device" "$system/dev/$device"
        done
        ln -s /proc/self/fd "$system/dev/fd"
        for stream in 0:stdin 1:stdout 2:stderr; do
            ln -s "/proc/self/fd/${stream%%:*}" "$system/dev/${stream#*:}"
        done
        mkdir "$system/dev/shm" "$system/dev/pts"
        mount -t devpts -o newinstance,ptmxmode=0666 devpts "$system/dev/pts"
        ln -s pts/ptmx "$system/dev/ptmx"
        mount -t tmpfs -o mode=1777 shm "$system/dev/shm"
        mount -t proc proc "$system/proc"
        mount -t sysfs -o ro sysfs "$system/sys"
        exec chroot "$system" /usr/bin/env -i HOME=/root TERM=dumb LANG=C.UTF-8 \
            PATH=/usr/sbin:/usr/bin:/sbin:/bin ${http_proxy:+http_proxy="$http_proxy"} \
            ${NODE_EXTRA_CA_CERTS:+NODE_EXTRA_CA_CERTS=/root/npm-ca.crt} \
            bash -c "cd \"\$0\" && exec \"\$@\"" "$directory" "$@"
    ' bash "$@" </dev/null
}
