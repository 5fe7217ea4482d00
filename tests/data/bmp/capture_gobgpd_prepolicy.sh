#!/bin/sh
# Records gobgpd_prepolicy.bmp: gobgpd B (127.0.0.1) learns EVPN routes over
# iBGP from gobgpd A (127.0.0.2) and exports them pre-policy (peer type 0)
# with a Statistics Report every 15 s; then A stops and B reports the peer
# down. Needs gobgpd, gobgp and python3; everything on loopback in a
# temporary directory, each daemon stopped by its PID.
#   capture_gobgpd_prepolicy.sh OUT
# What it holds, in order: Initiation; Peer Up; four Route Monitoring
# announcements (type 2 MPLS label 16001 10.1.1.20, RT 65000:11; type 2
# 2001:db8::41 with labels 10011 and 50011 and router's MAC
# 02:00:5e:00:00:02; type 3 192.0.2.1 with PMSI ingress replication 10011;
# type 5 2001:db8:5::/64 label 50011, RD 192.0.2.1:12), all with next hop
# 127.0.0.2; a Statistics Report; the withdraw of the first route; Peer Down
# (reason 3, a NOTIFICATION from the peer).
set -eu
out=$(realpath "$1")
dir=$(mktemp -d)
bmp_port=22019 bgp_port=22179
cleanup() {
    for f in "$dir"/*.pid; do [ -f "$f" ] && kill "$(cat "$f")" 2>/dev/null || true; done
    rm -rf "$dir"
}
trap cleanup EXIT

python3 - "$bmp_port" "$out" <<'PY' &
import socket, sys
s = socket.socket(); s.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
s.bind(("127.0.0.1", int(sys.argv[1]))); s.listen(1)
c, _ = s.accept()
with open(sys.argv[2], "wb") as f:
    while True:
        d = c.recv(65536)
        if not d: break
        f.write(d); f.flush()
PY
echo $! > "$dir/listen.pid"
sleep 0.5

cat > "$dir/a.toml" <<CONF
[global.config]
  as = 65000
  router-id = "192.0.2.1"
  port = -1
[[neighbors]]
  [neighbors.config]
    neighbor-address = "127.0.0.1"
    peer-as = 65000
  [neighbors.transport.config]
    local-address = "127.0.0.2"
    remote-port = $bgp_port
  [[neighbors.afi-safis]]
    [neighbors.afi-safis.config]
      afi-safi-name = "l2vpn-evpn"
CONF
cat > "$dir/b.toml" <<CONF
[global.config]
  as = 65000
  router-id = "192.0.2.9"
  port = $bgp_port
  local-address-list = ["127.0.0.1"]
[[neighbors]]
  [neighbors.config]
    neighbor-address = "127.0.0.2"
    peer-as = 65000
  [neighbors.transport.config]
    passive-mode = true
  [[neighbors.afi-safis]]
    [neighbors.afi-safis.config]
      afi-safi-name = "l2vpn-evpn"
[[bmp-servers]]
  [bmp-servers.config]
    address = "127.0.0.1"
    port = $bmp_port
    route-monitoring-policy = "pre-policy"
    statistics-timeout = 15
CONF
gobgpd -f "$dir/b.toml" --api-hosts 127.0.0.1:22051 --pprof-disable >"$dir/b.log" 2>&1 &
echo $! > "$dir/b.pid"
gobgpd -f "$dir/a.toml" --api-hosts 127.0.0.1:22050 --pprof-disable >"$dir/a.log" 2>&1 &
echo $! > "$dir/a.pid"
for _ in $(seq 50); do
    gobgp -p 22051 neighbor 2>/dev/null | grep -q Establ && break
    sleep 0.2
done

g() { gobgp -p 22050 global rib -a evpn "$@"; }
g add macadv 02:00:5e:10:20:40 10.1.1.20 etag 0 label 16001 rd 192.0.2.1:11 rt 65000:11 encap mpls
g add macadv 02:00:5e:10:20:41 2001:db8::41 etag 0 label 10011,50011 rd 192.0.2.1:11 rt 65000:11 encap vxlan \
    router-mac 02:00:5e:00:00:02
g add multicast 192.0.2.1 etag 0 rd 192.0.2.1:11 rt 65000:11 encap vxlan pmsi ingress-repl 10011 192.0.2.1
g add prefix 2001:db8:5::/64 172.16.0.1 etag 0 label 50011 rd 192.0.2.1:12 rt 65000:12 encap vxlan \
    router-mac 02:00:5e:00:00:02
sleep 16  # one Statistics Report
g del macadv 02:00:5e:10:20:40 10.1.1.20 etag 0 label 16001 rd 192.0.2.1:11
sleep 1
kill "$(cat "$dir/a.pid")"; rm "$dir/a.pid"
sleep 3
kill "$(cat "$dir/b.pid")"; rm "$dir/b.pid"
sleep 1
