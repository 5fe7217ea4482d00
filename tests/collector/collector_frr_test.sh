#!/usr/bin/env bash
# collector_frr_test.sh EVPN_SYSDB EVPN_SHOW_CLIENT
# FRR's bgpd learns EVPN routes from gobgpd over iBGP and reports them
# pre-policy to the collector; the show commands list them within a second,
# and lose them after the withdraw, after the peer goes down (Peer Down) and
# after bgpd itself stops.
sysdb=$1 client=$2
source "$(dirname "$0")/collector_lib.sh"
frr=/usr/lib/frr
need gobgpd gobgp vtysh $frr/bgpd $frr/zebra

start_collector
bgp_port=$(free_port)
# The daemons drop to user frr, whose files these become.
frr_user=()
if [ "$(id -u)" -ne 0 ]; then
  frr_user=(-u "$(id -un)" -g "$(id -gn)")
else
  chown frr:frr "$work"
fi
cat >"$work/zebra.conf" <<CONF
ip nht resolve-via-default
CONF
cat >"$work/bgpd.conf" <<CONF
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
[ "$(id -u)" -eq 0 ] && chown frr:frr "$work"/*.conf
$frr/zebra -d "${frr_user[@]}" -f "$work/zebra.conf" -i "$work/zebra.pid" --vty_socket "$work" -P 0 \
  -z "$work/zserv.api" >"$work/zebra.log" 2>&1 || fail "zebra did not start: $(cat "$work/zebra.log")"
for i in $(seq 50); do [ -S "$work/zserv.api" ] && break; sleep 0.1; done
$frr/bgpd -d "${frr_user[@]}" -M bmp -f "$work/bgpd.conf" -i "$work/bgpd.pid" --vty_socket "$work" -P 0 \
  -z "$work/zserv.api" -l 127.0.0.1 -p "$bgp_port" >"$work/bgpd.log" 2>&1 ||
  fail "bgpd did not start: $(cat "$work/bgpd.log")"
for i in $(seq 50); do [ -s "$work/bgpd.pid" ] && break; sleep 0.1; done
logged 'Initiation: sysName'

start_originator "$bgp_port"

add_routes
shows 1000 '0200\.5e10\.2030' 0
shows 1000 '^100 .* 192\.0\.2\.1 *$' 1
shows 1000 '^0011\.2233\.4455\.6677\.8899 ' 3
shows 1000 '^100 ' 5
shows 1000 '0011\.2233\.4455\.6677\.8899 0x0 ' 9
shows 1000 'Number of EVIs +: 1$' 7

del_routes
lacks 1000 '0200\.5e10\.2030' 0
lacks 1000 '192\.0\.2\.1 *$' 1
lacks 1000 '0011\.2233\.4455\.6677\.8899' 9
lacks 1000 '^0011\.2233\.4455\.6677\.8899 ' 3

# The peer goes down: bgpd says so (Peer Down) and its routes go.
add_routes
shows 1000 '0200\.5e10\.2030' 0
kill "$gobgpd_pid"
logged 'Peer Down: peer 127\.0\.0\.2'
lacks 1000 '0200\.5e10\.2030' 0
lacks 1000 '0011\.2233\.4455\.6677\.8899' 9

# bgpd itself stops: the session ends.
kill "$(cat "$work/bgpd.pid")"
logged 'closed \(session [0-9]+\)'
cat "$work/collector.log"
echo "FRR test: ok"
