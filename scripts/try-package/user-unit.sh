#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# usage: user-unit.sh ROOT USER
# Checks the user unit by a service manager of that user's in ROOT, in namespaces of its own. Exits with 77
# where none can run.
set -eu
root=$1
user=$2
if [ -z "${IN_NAMESPACE_OF_UNIT:-}" ]; then
    result=0
    IN_NAMESPACE_OF_UNIT=yes unshare --mount --cgroup --net --pid --fork --kill-child "$0" "$@" || result=$?
    # Control groups stay when their processes have ended.
    # shellcheck disable=SC2016 # for the other shell
    unshare --mount --cgroup bash -c 'mount -t cgroup2 cgroup "$0" && find "$0" -depth -path "$0/user-unit-*" -type d \
        -exec rmdir {} +' "$root/sys"
    exit "$result"
fi

ip link set lo up
id=$(chroot "$root" id -u "$user")
mount -t proc proc "$root/proc"
mount -t tmpfs run "$root/run"
mkdir -p "$root/run/systemd/system" "$root/run/user" # the manager takes this for a system booted by systemd
install -d -o "$id" -m 700 "$root/run/user/$id"
mount -t tmpfs sys "$root/sys"
mkdir -p "$root/sys/fs/cgroup"
mount -t cgroup2 cgroup "$root/sys/fs/cgroup" || exit 77
group=$(mktemp -d "$root/sys/fs/cgroup/user-unit-XXXXXX") || exit 77
chown -R "$id" "$group"
echo $$ >"$group/cgroup.procs"

as_user() {
    chroot --userspec="$user:$user" "$root" env -i HOME="/home/$user" PATH=/usr/bin:/bin LC_ALL=C.UTF-8 \
        XDG_RUNTIME_DIR="/run/user/$id" "$@"
}

# wait_for COMMAND...: for at most 20 s.
wait_for() {
    for _ in $(seq 100); do
        ! "$@" >/dev/null 2>&1 || return 0
        sleep 0.2
    done
    echo "in vain: $*" >&2
    cat "$root/tmp/manager.log" >&2
    return 1
}
main_process() { as_user systemctl --user show --property=MainPID --value rvowebsocketserver; }
is_another() { [ "$(main_process)" -gt 0 ] && [ "$(main_process)" != "$1" ] && as_user devicectl status; }
is_gone() { ! as_user devicectl status; }

as_user systemd-analyze --user --man=no verify /usr/lib/systemd/user/rvowebsocketserver.service
as_user /lib/systemd/systemd --user >"$root/tmp/manager.log" 2>&1 &
wait_for as_user systemctl --user show-environment || exit 77
as_user systemctl --user set-environment QT_QPA_PLATFORM=offscreen
as_user systemctl --user --quiet enable --now rvowebsocketserver
wait_for as_user devicectl status
first=$(main_process)
as_user bash -c "kill -SEGV $first"
wait_for is_another "$first"
echo "the unit has started the server again after a crash"
as_user systemctl --user --quiet disable --now rvowebsocketserver
wait_for is_gone
