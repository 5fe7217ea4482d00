#!/usr/bin/env bash
# Instructions of the client's shortest runs, whole processes counted by
# callgrind: a filtered MAC listing (-M 64 0, about 100 routes) and a single
# route, over a generated database of 10,000 routes, beside the static
# do-nothing program they are timed against. Start-up work (SQLite's open and
# schema parse, statement compiles, the capability lookup, the close) shows
# whole in these counts, and counts repeat on a busy machine where a timing
# would not. Fails when a count passes its budget in startup_budget beside
# this script.
#
#   startup.sh EVPN_SYSDB_BIN CLIENT_BIN NOTHING_BIN
set -euo pipefail
sysdb=$1 client=$2 nothing=$3
budget_file=$(dirname "$0")/startup_budget
command -v valgrind >/dev/null || { echo "valgrind is not installed (scripts/install-deps --tests)"; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$sysdb" gen --routes 10000 --evis 100 --seed 1 --db "$work/store.db" 2>/dev/null
export EVPN_SYSDB=$work/store.db
count() {
  valgrind --tool=callgrind --callgrind-out-file="$work/cg.out" "$@" >"$work/out" 2>"$work/valgrind.err" ||
    { cat "$work/valgrind.err"; exit 1; }
  awk '/^summary:/ {print $2}' "$work/cg.out"
}

# The single route: the first MAC+IPv4 route of the filtered listing, by its
# EVI, MAC (three groups) and address.
"$client" -M 64 0 >"$work/listing"
read -r _ _ mac ip _ < <(awk '$4 ~ /^[0-9]+\.[0-9.]+$/ {print; exit}' "$work/listing")
[ -n "${ip:-}" ] || { echo "no MAC+IPv4 route in EVI 0x64 of the generated store"; exit 1; }
IFS=. read -r m1 m2 m3 <<<"$mac"
single=(-M 64 -O "$m1" -P "$m2" -Q "$m3" -N "$ip" 0)

# The code a short run runs stands first in the text (scripts/hot-text and
# the client's static link): the store's open and cursors, the walk and the
# MAC printer lie in the section that gathers it.
hot=$(readelf -SW "$client" | sed -n 's/.* \.text\.evpn_hot  *PROGBITS  *\([0-9a-f]*\)  *[0-9a-f]*  *\([0-9a-f]*\) .*/\1 \2/p')
hot_start=${hot% *} hot_size=${hot#* }
if [ -z "$hot" ]; then
  echo "no .text.evpn_hot section in $client: its link did not gather the code a run runs"
  exit 1
fi
nm "$client" >"$work/symbols"
for fn in main btr_seek_ge btr_next _sysdb_bind print_evpn_mac_bag; do
  addr=$(awk -v f="$fn" '$3 == f || $3 ~ "^" f "\\." || $3 ~ "^_Z[0-9]+" f "P" {print $1; exit}' "$work/symbols")
  if [ -z "$addr" ] || (( 16#$addr < 16#$hot_start || 16#$addr >= 16#$hot_start + 16#$hot_size )); then
    echo "$fn (${addr:-not found}) lies outside .text.evpn_hot ($hot_start + $hot_size)"
    exit 1
  fi
done

reference=$(count "$nothing")
failed=0
printf '%-18s %12s %12s %s\n' run instructions budget command
printf '%-18s %12d %12s %s\n' reference "$reference" - "bench_nothing"
check() {
  local name=$1
  shift
  local n budget
  n=$(count "$client" "$@")
  [ -s "$work/out" ] || { echo "$name: no output from evpn_show_client $*"; failed=1; return; }
  budget=$(awk -v k="$name" '$1 == k {print $2}' "$budget_file")
  printf '%-18s %12d %12s %s\n' "$name" "$n" "${budget:--}" "evpn_show_client $*"
  if [ -z "$budget" ]; then
    echo "  no budget for $name in $budget_file"
    failed=1
  elif [ "$n" -gt "$budget" ]; then
    echo "  over budget: the client's start-up costs more (or raise the budget in $budget_file, with the reason)"
    failed=1
  fi
}
check filtered_listing -M 64 0
check single_route "${single[@]}"
exit $failed
