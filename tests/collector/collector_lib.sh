# Shared by the collector's integration tests: a temporary folder, free
# loopback ports, the collector under test, polling the show client, and
# stopping every program started here by its PID.
# Callers set: sysdb (evpn_sysdb), client (evpn_show_client).
set -euo pipefail
work=$(mktemp -d)
chmod 755 "$work"
pids=()
fail() {
  echo "FAIL: $*" >&2
  local f
  for f in "$work"/*.log; do echo "--- $(basename "$f"):" >&2; tail -15 "$f" >&2; done
  exit 1
}
cleanup() {
  local p
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  for p in "${pids[@]}"; do wait "$p" 2>/dev/null || true; done
  for f in "$work"/*.pid; do [ -f "$f" ] && kill "$(cat "$f")" 2>/dev/null || true; done
  sleep 0.2
  rm -rf "$work"
}
trap cleanup EXIT

# need PROGRAM...: fails, saying how to install, when one is missing.
need() {
  local p
  for p in "$@"; do
    command -v "$p" >/dev/null || [ -x "$p" ] ||
      fail "$p is not installed: apt-get install gobgpd frr (or scripts/install-deps --tests)"
  done
}

# A TCP port nobody listens on now.
free_port() {
  python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

# start_collector [ARGS...]: runs the collector on a free loopback port into
# $work/live.db; sets collector_pid and bmp_port. Run as an unprivileged user
# when the test runs as root, to show that it needs nothing more.
start_collector() {
  local as=()
  mkdir -p "$work/store"
  if [ "$(id -u)" -eq 0 ] && command -v setpriv >/dev/null; then
    as=(setpriv --reuid=nobody --regid=nogroup --clear-groups --)
    chown nobody:nogroup "$work/store"
  fi
  "${as[@]}" "$sysdb" collect --bmp 127.0.0.1:0 --db "$work/store/live.db" "$@" 2>"$work/collector.log" &
  collector_pid=$!
  pids+=("$collector_pid")
  local i
  for i in $(seq 50); do
    # The log appears when the background shell opens it: not yet is no error.
    bmp_port=$(sed -n 's/.*listening on 127\.0\.0\.1:\([0-9]*\)$/\1/p' "$work/collector.log" 2>/dev/null || true)
    [ -n "$bmp_port" ] && [ -f "$work/store/live.db" ] && return 0
    kill -0 "$collector_pid" 2>/dev/null || fail "the collector did not start"
    sleep 0.1
  done
  fail "the collector did not listen within 5 s"
}

# show ARGS...: the client's report from the live store.
show() { EVPN_SYSDB="$work/store/live.db" "$client" "$@"; }

now_ms() { echo $(($(date +%s%N) / 1000000)); }

# shows MS PATTERN ARGS...: within MS milliseconds the report of ARGS has a
# line matching PATTERN (grep -E); fails with the report otherwise.
shows() { poll_report yes "$@"; }
# lacks MS PATTERN ARGS...: within MS milliseconds no line matches any more.
lacks() { poll_report no "$@"; }
poll_report() {
  local want=$1 ms=$2 pattern=$3 deadline out has
  shift 3
  deadline=$(($(now_ms) + ms))
  while :; do
    out=$(show "$@" 2>&1) || true
    if grep -Eq -- "$pattern" <<<"$out"; then has=yes; else has=no; fi
    [ "$has" = "$want" ] && return 0
    [ "$(now_ms)" -lt "$deadline" ] ||
      fail "'evpn_show_client $*' $([ "$want" = yes ] && echo "lacks" || echo "still has") '$pattern' after $ms ms:
$out"
    sleep 0.05
  done
}

# logged PATTERN [SECONDS]: the collector's log holds a line matching PATTERN
# (grep -E) within SECONDS (default 5).
logged() {
  local i
  for i in $(seq $((${2:-5} * 20))); do
    grep -Eq "$1" "$work/collector.log" && return 0
    sleep 0.05
  done
  fail "the collector did not log '$1'"
}

# start_originator PORT: a gobgpd without BMP of its own, from 127.0.0.2 an
# iBGP peer of the router on 127.0.0.1:PORT, whose Peer Up the collector
# logs; add_routes and del_routes then work through it.
start_originator() {
  start_gobgpd "[global.config]
  as = 65000
  router-id = \"192.0.2.1\"
  port = -1
[[neighbors]]
  [neighbors.config]
    neighbor-address = \"127.0.0.1\"
    peer-as = 65000
  [neighbors.transport.config]
    local-address = \"127.0.0.2\"
    remote-port = $1
  [[neighbors.afi-safis]]
    [neighbors.afi-safis.config]
      afi-safi-name = \"l2vpn-evpn\""
  logged 'Peer Up: peer 127\.0\.0\.2 AS 65000' 30
}

# start_gobgpd CONFIG_TEXT: gobgpd with that configuration and its API on a
# free port; sets gobgpd_pid and api_port. g ARGS... runs "gobgp -p PORT ARGS".
start_gobgpd() {
  api_port=$(free_port)
  printf '%s\n' "$1" >"$work/gobgpd.toml"
  gobgpd -f "$work/gobgpd.toml" --api-hosts "127.0.0.1:$api_port" >"$work/gobgpd.log" 2>&1 &
  gobgpd_pid=$!
  pids+=("$gobgpd_pid")
  local i
  for i in $(seq 50); do
    gobgp -p "$api_port" global >/dev/null 2>&1 && return 0
    sleep 0.1
  done
  fail "gobgpd did not start: $(tail -5 "$work/gobgpd.log")"
}
g() { gobgp -p "$api_port" "$@" >/dev/null || fail "gobgp $*"; }

# The routes both tests add: one of each type, RT 65000:100 gives EVI 100.
esi="ARBITRARY 11:22:33:44:55:66:77:88:99"
add_routes() {
  g global rib -a evpn add macadv 02:00:5e:10:20:30 10.1.1.7 etag 0 label 10100 rd 192.0.2.1:100 rt 65000:100 encap vxlan nexthop 192.0.2.1
  g global rib -a evpn add multicast 192.0.2.1 etag 0 rd 192.0.2.1:100 rt 65000:100 encap vxlan pmsi ingress-repl 10100 192.0.2.1 nexthop 192.0.2.1
  g global rib -a evpn add a-d esi $esi etag 0 label 10100 rd 192.0.2.1:100 rt 65000:100 encap vxlan nexthop 192.0.2.1
  g global rib -a evpn add esi 192.0.2.1 esi $esi rd 192.0.2.1:1 rt 65000:100 encap vxlan nexthop 192.0.2.1
  g global rib -a evpn add prefix 10.20.0.0/24 gw 0.0.0.0 etag 0 label 10300 rd 192.0.2.1:300 rt 65000:300 encap vxlan nexthop 192.0.2.1
}
del_routes() {
  g global rib -a evpn del macadv 02:00:5e:10:20:30 10.1.1.7 etag 0 label 10100 rd 192.0.2.1:100
  g global rib -a evpn del multicast 192.0.2.1 etag 0 rd 192.0.2.1:100
  g global rib -a evpn del a-d esi $esi etag 0 label 10100 rd 192.0.2.1:100
  g global rib -a evpn del esi 192.0.2.1 esi $esi rd 192.0.2.1:1
  g global rib -a evpn del prefix 10.20.0.0/24 gw 0.0.0.0 etag 0 label 10300 rd 192.0.2.1:300
}
