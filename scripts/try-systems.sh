#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds, starts and tests the source tree in minimal systems of several releases of Debian.
cd "$(dirname "$0")/.."
. scripts/common.sh
. scripts/minimal-system.sh

usage() {
    cat <<'TEXT'
usage: scripts/try-systems.sh [option] [suite...]

Makes a minimal Debian of each suite (default: bullseye bookworm trixie) in a folder of its own, clones
the latest commit there and runs ./run.sh and ./test.sh; a page connects to the server meanwhile. Says
what each system has and what passed, and compares what the page was answered. The output is in
build/systems/SUITE.*.txt. Needs root.

  --mirror URL    where the systems come from (default: http://deb.debian.org/debian)
  --build-only    build and start only, without the tests
  --ccache        keep what was compiled, in build/systems/SUITE.ccache, for the next time
  --no-install    do not install packages on this machine
  --help          show this text
TEXT
}

install=yes
tests=yes
ccache=no
mirror=http://deb.debian.org/debian
suites=()
arguments=("$@")
while [ $# -gt 0 ]; do
    case "$1" in
    --mirror) [ $# -ge 2 ] || { usage >&2; exit 2; }; mirror=$2; shift ;;
    --build-only) tests=no ;;
    --ccache) ccache=yes ;;
    --no-install) install=no ;;
    --help | -h) usage; exit 0 ;;
    -*) usage >&2; exit 2 ;;
    *) suites+=("$1") ;;
    esac
    shift
done
[ ${#suites[@]} -gt 0 ] || suites=(bullseye bookworm trixie)
enter_namespace "$install" systems "${arguments[@]}"

results=$PWD/build/systems
work=$(mktemp -d --tmpdir rvo-systems-XXXXXX)
trap 'remove_system "$work"' EXIT
tree=/srv/server

# alone COMMAND...: inside, on a network of its own, for only one server can have the port.
alone() {
    unshare --net bash -c 'ip link set lo up; "$@"' alone "$@"
}

# step WHAT COMMAND...: runs it, says how long it took. The output goes into a file.
step() {
    local what=$1 begin result=0
    shift
    begin=$(date +%s)
    "$@" >"$results/$suite.$what.txt" 2>&1 || result=$?
    if [ "$result" -ne 0 ]; then
        say "$suite: $what FAILED after $(($(date +%s) - begin)) s, see build/systems/$suite.$what.txt"
        tail -n 15 "$results/$suite.$what.txt"
        return 1
    fi
    say "$suite: $what, $(($(date +%s) - begin)) s"
}

# versions: those of compiler and libraries, in a few words.
versions() {
    # shellcheck disable=SC2016 # for dpkg-query
    inside dpkg-query -W -f='${db:Status-Status} ${source:Package} ${source:Upstream-Version}\n' \
        g++-[0-9]* qtbase5-dev libopencv-core-dev 'libzxing*-dev' libcurl4-openssl-dev nodejs 2>/dev/null \
        | awk '$1 == "installed" { printf "%s%s %s", comma, $2, $3; comma = ", " } END { print "" }'
}

# serve: the server as run.sh starts it, and a page that uses it.
serve() {
    # shellcheck disable=SC2016 # for the other shell
    unshare --net bash -eu -c '
        root=$1 tree=$2 scripts=$3 answers=$4
        ip link set lo up
        chroot "$root" env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 \
            bash -c "exec $tree/run.sh --no-install" >"$root/tmp/output.txt" 2>&1 &
        server=$!
        result=0
        python3 "$scripts/page.py" 60 /tmp || result=1
        python3 "$scripts/answers.py" 60 "$root" /tmp >"$answers" || result=1
        kill "$server"
        wait "$server" || true
        cat "$root/tmp/output.txt"
        last=$(tail -n 1 "$root/tmp/output.txt")
        case "$last" in "listening on ws://127.0.0.1:1818, "*) ;; *) echo "the last line: $last"; result=1 ;; esac
        exit "$result"
    ' serve "$root" "$tree" "$PWD/scripts/try-package" "$results/$suite.answers.txt"
}

# try_suite: everything, in the system at $root.
try_suite() {
    mkdir -p "$root/srv"
    git clone --quiet --depth 1 "file://$PWD" "$root$tree" || return 1
    inside apt-get -q -q update || return 1
    # What a clone has needed.
    inside apt-get -q -q -y install --no-install-recommends git ca-certificates >/dev/null 2>&1 || return 1
    # A proxy's certificate may be among what this machine trusts.
    cp /etc/ssl/certs/ca-certificates.crt "$root/etc/ssl/certs/" || return 1
    [ "$ccache" = no ] || use_ccache "$suite" || return 1
    # sh: not every user knows that it is bash's.
    step run inside sh "$tree/run.sh" --build-only || return 1
    say "$suite: $(versions)"
    step server serve || return 1
    [ "$tests" = yes ] || return 0
    step build-tests inside "$tree/test.sh" --build-only || return 1
    step tests alone chroot "$root" env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 \
        "$tree/test.sh" --no-install || return 1
}

# same_answers SUITE SUITE: whether pages were answered the same, where both could read a code.
same_answers() {
    local first=$results/$1.answers.txt second=$results/$2.answers.txt unread
    unread=$(grep -hE "$not_everywhere" "$first" "$second" | sed 's/ $//')
    diff -u --label "$1" --label "$2" <(grep -vF "${unread:-no such line}" "$first") \
        <(grep -vF "${unread:-no such line}" "$second")
}

failed=''
mkdir -p "$results"
for suite in "${suites[@]}"; do
    root=$work/$suite
    environment=(NODE_EXTRA_CA_CERTS=/etc/ssl/certs/ca-certificates.crt)
    minimal_system "$suite" "$mirror" "$root"
    mount --rbind /dev "$root/dev"
    try_suite || failed="$failed $suite"
    if [ -e "$results/$suite.tests.txt" ]; then
        grep -E 'tests passed|tests failed|Not Run|skipped' "$results/$suite.tests.txt" || true
    fi
    remove_system "$root"
done

first=${suites[0]}
for suite in "${suites[@]:1}"; do
    same_answers "$first" "$suite" || failed="$failed answers:$suite"
done
[ -z "$failed" ] || fail "not everything passed:$failed"
say "everything passed on ${suites[*]}, with the same answers to pages"
