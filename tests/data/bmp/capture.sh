#!/bin/sh
# Records the BMP byte stream a router sends while EVPN routes are added and deleted.
#   capture.sh gobgpd OUT   gobgpd exports its own routes (Loc-RIB, peer type 3)
#   capture.sh frr OUT      gobgpd originates, FRR's bgpd learns them over iBGP and exports pre-policy
# Needs gobgpd, gobgp and FRR (/usr/lib/frr); everything runs on loopback in a temporary directory.
set -eu
mode=$1 out=$(realpath "$2")
dir=$(mktemp -d); chmod 755 "$dir"
bmp_port=21019 api_port=21050 bgp_port=21179
cleanup() {
    for f in "$dir"/*.pid; do [ -f "$f" ] && kill "$(cat "$f")" 2>/dev/null || true; done
    sleep 1; rm -rf "$dir"
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

if [ "$mode" = gobgpd ]; then
    cat > "$dir/gobgpd.toml" <<CONF
[global.config]
  as = 65000
  router-id = "192.0.2.1"
  port = -1
[[bmp-servers]]
  [bmp-servers.config]
    address = "127.0.0.1"
    port = $bmp_port
    route-monitoring-policy = "local-rib"
CONF
else
    cat > "$dir/gobgpd.toml" <<CONF
[global.config]
  as = 65000
  router-id = "192.0.2.1"
  port = $bgp_port
  local-address-list = ["127.0.0.2"]
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
    cat > "$dir/zebra.conf" <<CONF
ip nht resolve-via-default
CONF
    cat > "$dir/bgpd.conf" <<CONF
router bgp 65000
 bgp router-id 192.0.2.2
 no bgp default ipv4-unicast
 neighbor 127.0.0.2 remote-as 65000
 neighbor 127.0.0.2 port $bgp_port
 neighbor 127.0.0.2 update-source lo
 address-family l2vpn evpn
  neighbor 127.0.0.2 activate
  neighbor 127.0.0.2 soft-reconfiguration inbound
 exit-address-family
 bmp targets collector
  bmp monitor l2vpn evpn pre-policy
  bmp connect 127.0.0.1 port $bmp_port min-retry 100 max-retry 1000
 exit
CONF
    chown -R frr:frr "$dir"
    /usr/lib/frr/zebra -d -f "$dir/zebra.conf" -i "$dir/zebra.pid" --vty_socket "$dir" -P 0 -z "$dir/zserv.api"
    sleep 1
    /usr/lib/frr/bgpd -d -M bmp -f "$dir/bgpd.conf" -i "$dir/bgpd.pid" --vty_socket "$dir" -P 0 \
        -z "$dir/zserv.api" -l 127.0.0.1 -p $bgp_port
fi
gobgpd -f "$dir/gobgpd.toml" --api-hosts 127.0.0.1:$api_port > "$dir/gobgpd.log" 2>&1 &
echo $! > "$dir/gobgpd.pid"
sleep 3
if [ "$mode" = frr ]; then
    i=0
    until vtysh --vty_socket "$dir" -c 'show bgp neighbor 127.0.0.2' | grep -q 'state = Established'; do
        i=$((i + 1)); [ $i -lt 60 ] || { echo "capture.sh: BGP session did not come up" >&2; exit 1; }
        sleep 0.5
    done
fi

g() { gobgp -p $api_port global rib -a evpn "$@"; }
esi="ARBITRARY 11:22:33:44:55:66:77:88:99"
# Type 2: MAC/IP with IPv4, MAC only on a LACP segment with the router's MAC, IPv6, default gateway.
g add macadv 02:00:5e:10:20:30 10.1.1.7 etag 0 label 10100 rd 192.0.2.1:100 rt 65000:100 encap vxlan nexthop 192.0.2.1
g add macadv 02:00:5e:10:20:31 0.0.0.0 esi LACP 02:00:5e:00:00:aa 100 etag 0 label 10100 rd 192.0.2.1:100 rt 65000:100 encap vxlan router-mac 02:00:5e:00:00:01 nexthop 192.0.2.1
g add macadv 02:00:5e:10:20:32 2001:db8::7 etag 0 label 10200 rd 192.0.2.1:200 rt 65000:200 encap vxlan nexthop 192.0.2.1
g add macadv 02:00:5e:10:20:34 10.1.1.10 etag 0 label 10100 rd 192.0.2.1:100 rt 65000:100 default-gateway nexthop 192.0.2.1
# Type 3 with and without a PMSI tunnel attribute.
g add multicast 192.0.2.1 etag 0 rd 192.0.2.1:100 rt 65000:100 encap vxlan pmsi ingress-repl 10100 192.0.2.1 nexthop 192.0.2.1
g add multicast 192.0.2.1 etag 0 rd 192.0.2.1:200 rt 65000:200 encap vxlan nexthop 192.0.2.1
# Type 1: per-EVI and per-ES (with the ESI label community).
g add a-d esi $esi etag 0 label 10100 rd 192.0.2.1:100 rt 65000:100 encap vxlan nexthop 192.0.2.1
g add a-d esi $esi etag 4294967295 label 0 rd 192.0.2.1:1 rt 65000:100 esi-label 100 nexthop 192.0.2.1
# Type 4 and type 5.
g add esi 192.0.2.1 esi $esi rd 192.0.2.1:1 rt 65000:100 encap vxlan nexthop 192.0.2.1
g add prefix 10.20.0.0/24 gw 0.0.0.0 etag 0 label 10300 rd 192.0.2.1:300 rt 65000:300 encap vxlan router-mac 02:00:5e:00:00:01 nexthop 192.0.2.1
sleep 2
# Withdraws: one of each type.
g del macadv 02:00:5e:10:20:30 10.1.1.7 etag 0 label 10100 rd 192.0.2.1:100
g del multicast 192.0.2.1 etag 0 rd 192.0.2.1:200
g del a-d esi $esi etag 0 label 10100 rd 192.0.2.1:100
g del esi 192.0.2.1 esi $esi rd 192.0.2.1:1
g del prefix 10.20.0.0/24 gw 0.0.0.0 etag 0 label 10300 rd 192.0.2.1:300
sleep 2
if [ "$mode" = frr ]; then
    vtysh --vty_socket "$dir" -c 'show bgp l2vpn evpn' >&2
    kill "$(cat "$dir/bgpd.pid")"; rm "$dir/bgpd.pid"
else
    g >&2
    kill "$(cat "$dir/gobgpd.pid")"; rm "$dir/gobgpd.pid"
fi
# The listener ends when the router closes the connection.
i=0; while kill -0 "$(cat "$dir/listen.pid")" 2>/dev/null && [ $i -lt 20 ]; do sleep 0.25; i=$((i + 1)); done
ls -l "$out" >&2
