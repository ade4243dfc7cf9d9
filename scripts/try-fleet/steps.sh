#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# usage: steps.sh ROOT VERSION
# The steps of scripts/try-fleet.sh, in a network namespace of its own, with the packages of the chroot ROOT.
cd "$(dirname "$0")/../.."
. scripts/common.sh
root=$1
version=$2
examples=docs/examples/fleet
begin=$(date +%s)

step() { printf '\n'; say "$* ($(($(date +%s) - begin)) s)"; }
# check WHAT COMMAND...: fails with the text if the command does.
check() {
    local what=$1
    shift
    "$@" >"$root/tmp/check.log" 2>&1 || { tail -n 20 "$root/tmp/check.log" >&2; fail "$what"; }
    say "  ok: $what"
}
# eventually COMMAND...: tries for half a minute.
eventually() {
    for _ in $(seq 60); do
        ! "$@" || return 0
        sleep 0.5
    done
    return 1
}
refused() { ! "$@"; }
inside() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"; }
# shellcheck disable=SC2016 # for dpkg-query
installed() { [ "$(inside dpkg-query -W -f='${Version}' "$1")" = "$2" ]; }
contains() { grep -q "$1" "$2"; }

ip link set lo up
echo '127.0.0.1 localhost packages.bank.example logs.bank.example terminal-001.bank.example' >"$root/etc/hosts"
rm -rf "$root"/etc/apt/sources.list "$root"/etc/apt/sources.list.d/* # what isn't the bank's can't be reached

step "a signed repository"
repository=$root/srv/counter
mkdir -p "$repository/conf" "$root/srv/playbook"
cp "$examples/distributions" "$repository/conf/"
inside gpg --quiet --batch --passphrase '' --quick-generate-key 'Counter Bank <packages@bank.example>' rsa3072 sign never
inside gpg --quiet --export packages@bank.example >"$root/srv/playbook/counter.gpg"
include() { inside bash -c "for file in $2; do reprepro -b /srv/counter includedeb $1 \$file || exit; done"; }
promotion=$(sed -n 's/^    \(reprepro .* copymatched .*\)/\1/p' docs/fleet.md)
promote() { inside bash -c "${promotion:?}"; }
check "reprepro takes the packages for the pilot" include pilot '/packages/rvo*.deb'
check "and they are promoted" promote
inside python3 -m http.server --bind 127.0.0.1 --directory /srv 80 >"$root/tmp/http.log" 2>&1 &
eventually inside curl -sf http://packages.bank.example/counter/dists/stable/InRelease -o /dev/null || fail "the repository can't be reached"
inside gpg --quiet --batch --passphrase '' --quick-generate-key 'Somebody <somebody@example.org>' rsa3072 sign never
inside gpg --quiet --export somebody@example.org >"$root/usr/share/keyrings/counter.gpg"
cp "$examples/counter.sources" "$root/etc/apt/sources.list.d/"
check "a repository that another key has signed is refused" refused inside apt-get -q update -o APT::Update::Error-Mode=any
rm "$root/etc/apt/sources.list.d/counter.sources"

step "a terminal set up by Ansible"
playbook=$root/srv/playbook
cp "$examples"/* "$playbook/"
sed 's/^mode=report.*/mode=enforce/' docs/examples/access.ini >"$playbook/access.ini"
echo '[simulation]' >"$playbook/devices.ini"
mkdir "$playbook/certificates"
inside openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj '/CN=Counter Bank' -keyout /srv/ca.key \
    -out /srv/playbook/counter-ca.pem 2>/dev/null
for name in logs terminal-001; do
    host=$name.bank.example
    echo "subjectAltName=DNS:$host" >"$root/srv/names"
    inside openssl req -newkey rsa:2048 -nodes -subj "/CN=$host" -keyout "/srv/playbook/certificates/$host.key" -out /srv/request 2>/dev/null
    inside openssl x509 -req -in /srv/request -CA /srv/playbook/counter-ca.pem -CAkey /srv/ca.key -CAcreateserial -days 2 \
        -extfile /srv/names -out "/srv/playbook/certificates/$host.pem" 2>/dev/null
done
cp "$playbook/certificates/logs.bank.example.pem" "$root/etc/rsyslog.d/collector.pem"
cp "$playbook/certificates/logs.bank.example.key" "$root/etc/rsyslog.d/collector.key"
printf '[terminals]\nterminal-001.bank.example ansible_connection=local ansible_python_interpreter=/usr/bin/python3\n' >"$playbook/inventory"
set_up() { inside ansible-playbook -i /srv/playbook/inventory /srv/playbook/terminal.yml; }
check "the playbook installs and configures" set_up
check "the server is the repository's" installed rvowebsocketserver "$version"
check "a second run changes nothing" eval 'set_up | tee /dev/stderr | grep -q "changed=0 "'
echo 'nonsense' >>"$playbook/access.ini"
check "a faulty access policy is refused" refused set_up
check "and the one before stays" refused contains nonsense "$root/etc/rvowebsocketserver/access.ini"
check "the units are valid" inside systemd-analyze verify /etc/systemd/system/counter-figures.service /etc/systemd/system/counter-figures.timer

step "an unattended upgrade"
include pilot '/packages/later/*.deb'
inside apt-get -q update >/dev/null
inside unattended-upgrade >"$root/tmp/check.log" 2>&1
check "a version of the pilot isn't for the others" installed rvowebsocketserver "$version"
promote >/dev/null
inside apt-get -q update >/dev/null
sed '/force-conf/d' "$examples/52counter-upgrades" >"$root/etc/apt/apt.conf.d/52counter-upgrades"
inside unattended-upgrade >"$root/tmp/check.log" 2>&1
check "without --force-confold a package with changed settings is held back" installed rvowebsocketserver "$version"
cp "$examples/52counter-upgrades" "$root/etc/apt/apt.conf.d/"
check "it upgrades" inside unattended-upgrade --verbose
for package in rvowebsocketserver{,-imgcodecs,-video}; do
    check "with it, to the version that was promoted: $package" installed "$package" "$version+later"
done
check "the settings of the bank are kept" refused contains 'a later default' "$root/etc/rvowebsocketserver/devices.ini"
check "the others are the new ones" contains 'a later default' "$root/etc/rvowebsocketserver/server.ini"

step "a server of the terminal's user"
install -d -m 0700 -o "$(inside id -u clerk)" -g "$(inside id -g clerk)" "$root/run/user/$(inside id -u clerk)"
start_server() {
    chroot --userspec=clerk:clerk "$root" env -i HOME=/home/clerk PATH=/usr/bin:/bin LC_ALL=C.UTF-8 QT_QPA_PLATFORM=offscreen \
        XDG_RUNTIME_DIR="/run/user/$(inside id -u clerk)" /usr/lib/rvowebsocketserver/rvowebSocketServer --simulate >/dev/null 2>&1 &
    server=$!
}
start_server
listens() { grep -qs 'listening on port' "$root"/home/clerk/.local/state/rvowebsocketserver/log/vx_log_*.txt; }
eventually listens || fail "the server doesn't listen"

step "its log at the collector"
mv "$root/etc/rsyslog.d/60-counter-terminal.conf" "$root/etc/counter-terminal.conf"
cp "$examples/60-counter-collector.conf" "$root/etc/counter-collector.conf"
install -d "$root/var/spool/rsyslog"
sed -i '1i global(workDirectory="/var/spool/rsyslog" localHostname="terminal-001")' "$root/etc/counter-terminal.conf"
collect() { inside rsyslogd -n -i /run/collector.pid -f /etc/counter-collector.conf >"$root/tmp/collector.log" 2>&1 & collector=$!; }
check "the terminal's configuration is valid" inside rsyslogd -N1 -f /etc/counter-terminal.conf
check "the collector's, too" inside rsyslogd -N1 -f /etc/counter-collector.conf
inside rsyslogd -n -i /run/terminal.pid -f /etc/counter-terminal.conf >"$root/tmp/terminal.log" 2>&1 &
sleep 2 # nobody listens yet
collect
received() { grep -qsr "$1" "$root/var/log/terminals/terminal-001"; }
check "lines that were written while it was away arrive" eventually received 'listening on port'
kill "$(cat "$root/run/collector.pid")"
wait "$collector" || true
clerk() { chroot --userspec=clerk:clerk "$root" env -i HOME=/home/clerk PATH=/usr/bin:/bin XDG_RUNTIME_DIR="/run/user/$(inside id -u clerk)" "$@"; }
clerk devicectl call --origin https://counter.bank.example sGetTempPath >/dev/null || fail "a command"
collect
check "and those of an interruption" eventually received 'sGetTempPath'
kill "$(cat "$root/run/collector.pid")"
wait "$collector" || true
sed -i 's/"\*\.bank\.example"/"*.example.org"/' "$root/etc/counter-collector.conf"
collect
clerk devicectl call --origin https://counter.bank.example isRecording >/dev/null || true
sleep 15 # more than its pause between two attempts
check "a terminal with a certificate that isn't named can't send" refused received isRecording

step "its figures in Prometheus"
figures() {
    sed -n '/^ExecStart=/,/[^\\]$/p' "$root/etc/systemd/system/counter-figures.service" \
        | sed -e 's/^ExecStart=//' -e 's/\$\$/$/g' | inside bash
}
figures || fail "counter-figures.service"
inside prometheus-node-exporter --web.listen-address=127.0.0.1:9100 \
    --collector.textfile.directory=/var/lib/prometheus/node-exporter >"$root/tmp/exporter.log" 2>&1 &
mkdir "$root/srv/prometheus"
cp "$examples"/{prometheus.yml,counter-rules.yml,terminals.yml} "$root/srv/prometheus/"
sed -i 's/scrape_interval: 1m/scrape_interval: 1s/' "$root/srv/prometheus/prometheus.yml"
check "the configuration and the rules are valid" inside promtool check config /srv/prometheus/prometheus.yml
inside prometheus --config.file=/srv/prometheus/prometheus.yml --storage.tsdb.path=/srv/prometheus/data \
    --web.listen-address=127.0.0.1:9090 >"$root/tmp/prometheus.log" 2>&1 &
# value QUERY: its value; nothing without one.
value() {
    inside curl -sf --get --data-urlencode "query=$1" http://127.0.0.1:9090/api/v1/query \
        | python3 -c 'import json, sys; print(*[each["value"][1] for each in json.load(sys.stdin)["data"]["result"]])'
}
is() { [ "$(value "$2" 2>/dev/null)" = "$1" ]; }
check "the server is up" eventually is 1 'rvowebsocketserver_up{instance="terminal-001.bank.example:9100",branch="0042"}'
check "the policy is in force" eventually is 1 'rvowebsocketserver_build_info{policy="enforce"}'
kill "$server"
wait "$server" || true
figures 2>"$root/tmp/check.log" || fail "counter-figures.service without a server"
check "and down, once it has ended" eventually is 0 rvowebsocketserver_up
cp "$PWD/scripts/try-fleet/rules-test.yml" "$root/srv/prometheus/"
check "the alerts fire when they should" inside promtool test rules /srv/prometheus/rules-test.yml
step "everything holds"
