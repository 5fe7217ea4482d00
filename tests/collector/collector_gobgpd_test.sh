#!/usr/bin/env bash
# collector_gobgpd_test.sh EVPN_SYSDB EVPN_SHOW_CLIENT
# gobgpd exports its own EVPN routes (Loc-RIB) to the collector; the show
# commands list them within a second of the gobgp CLI adding them, and lose
# them after the withdraw and after gobgpd stops. A second gobgpd learns the
# routes over BGP and exports them pre-policy, as a route reflector would.
sysdb=$1 client=$2
source "$(dirname "$0")/collector_lib.sh"
need gobgpd gobgp

start_collector
start_gobgpd "[global.config]
  as = 65000
  router-id = \"192.0.2.1\"
  port = -1
[[bmp-servers]]
  [bmp-servers.config]
    address = \"127.0.0.1\"
    port = $bmp_port
    route-monitoring-policy = \"local-rib\""
logged '127\.0\.0\.1:[0-9]+: connected'
logged 'Initiation: sysName'

# Announced: each display within a second.
add_routes
shows 1000 '0200\.5e10\.2030' 0
shows 1000 '^100 .* 192\.0\.2\.1 *$' 1
shows 1000 '^0011\.2233\.4455\.6677\.8899 ' 3
shows 1000 '^100 ' 5
shows 1000 '0011\.2233\.4455\.6677\.8899 0x0 ' 9
shows 1000 'Number of EVIs +: 1$' 7

# Withdrawn: gone within a second.
del_routes
lacks 1000 '0200\.5e10\.2030' 0
lacks 1000 '192\.0\.2\.1 *$' 1
lacks 1000 '0011\.2233\.4455\.6677\.8899' 9
lacks 1000 '^0011\.2233\.4455\.6677\.8899 ' 3

# The router goes away: its session ends and everything it sent with it.
add_routes
shows 1000 '0200\.5e10\.2030' 0
kill "$gobgpd_pid"
wait "$gobgpd_pid" 2>/dev/null || true
logged 'closed \(session [0-9]+\)'
lacks 1000 '0200\.5e10\.2030' 0
lacks 1000 '^0011\.2233\.4455\.6677\.8899 ' 3
lacks 1000 '0011\.2233\.4455\.6677\.8899' 9

# Routes a peer sent, exported pre-policy by a gobgpd that learns them:
# the originator has no BMP of its own.
bgp_port=$(free_port)
start_gobgpd "[global.config]
  as = 65000
  router-id = \"192.0.2.2\"
  port = $bgp_port
  local-address-list = [\"127.0.0.1\"]
[[neighbors]]
  [neighbors.config]
    neighbor-address = \"127.0.0.2\"
    peer-as = 65000
  [neighbors.transport.config]
    passive-mode = true
  [[neighbors.afi-safis]]
    [neighbors.afi-safis.config]
      afi-safi-name = \"l2vpn-evpn\"
[[bmp-servers]]
  [bmp-servers.config]
    address = \"127.0.0.1\"
    port = $bmp_port"
start_originator "$bgp_port"
add_routes
shows 3000 '0200\.5e10\.2030' 0
shows 1000 '^0011\.2233\.4455\.6677\.8899 ' 3
del_routes
lacks 3000 '0200\.5e10\.2030' 0
cat "$work/collector.log"
echo "gobgpd test: ok"
