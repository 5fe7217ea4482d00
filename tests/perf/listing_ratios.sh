#!/usr/bin/env bash
# Every generated listing against its floor, in instructions: callgrind counts
# the client's listing and bench_floor reading the same listing and writing
# the same bytes, each less its run over an empty database. Counts repeat on
# a busy machine, so the ratio is a check a timing could not be. Fails when
# a listing's ratio passes its budget in listing_budget beside this script.
#
#   listing_ratios.sh EVPN_SYSDB_BIN CLIENT_BIN FLOOR_BIN [KIND...]
set -euo pipefail
sysdb=$1 client=$2 floor=$3
shift 3
budget_file=$(dirname "$0")/listing_budget
command -v valgrind >/dev/null || { echo "valgrind is not installed (scripts/install-deps --tests)"; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# kind | records | generator options | client arguments | listing the floor reads
TABLE=(
  "mac|5000|--routes 5000 --evis 50|0|evpn_evi_detail/evi_child_container/evpn_mac"
  "teps|2000|--teps 2000|10|tep"
  "ac_ids|2000|--ac-ids 2000|a|evpn_atom_acid"
  "igmp|2000|--igmp 2000|d|igmp"
  "es|1000|--es 1000|-d 3|ethernet_segment"
  "imcast|2000|--imcast 2000|1|evpn_evi_detail/evi_child_container/evpn_imcast"
  "neighbors|2000|--neighbors 2000|-t 8|evpn_evi_detail/evi_child_container/evpn_neighbor"
  "labels|2000|--labels 2000|-d 2|evpn_label_detail"
  "pathlists|2000|--pathlists 2000|b|evpn_label_detail/label_child_container/evpn_pl"
  "ead|2000|--ead 2000|9|evpn_evi_detail/evi_child_container/evpn_ead"
)

# count DB CMD...: instructions of one run.
count() {
  local db=$1
  shift
  EVPN_SYSDB=$db valgrind --tool=callgrind --callgrind-out-file="$work/cg.out" "$@" \
    >"$work/out" 2>"$work/valgrind.err" || { cat "$work/valgrind.err"; exit 1; }
  awk '/^summary:/ {print $2}' "$work/cg.out"
}

"$sysdb" gen --routes 0 --evis 1 --seed 1 --db "$work/empty.db" 2>/dev/null
failed=0
printf '%-10s %8s %12s %12s %7s %7s\n' listing records client/rec floor/rec ratio budget
for row in "${TABLE[@]}"; do
  IFS='|' read -r kind n gen args path <<<"$row"
  if [ $# -gt 0 ] && [[ " $* " != *" $kind "* ]]; then continue; fi
  db=$work/$kind.db
  # shellcheck disable=SC2086  # the options are words
  "$sysdb" gen $gen --seed 1 --db "$db" 2>/dev/null
  # shellcheck disable=SC2086
  full=$(count "$db" "$client" $args)
  bytes=$(wc -c <"$work/out")
  # shellcheck disable=SC2086
  empty=$(count "$work/empty.db" "$client" $args)
  width=$(( (bytes + n / 2) / n > 0 ? (bytes + n / 2) / n : 1 ))
  ffull=$(count "$db" "$floor" "$db" "$width" "$path")
  fempty=$(count "$work/empty.db" "$floor" "$work/empty.db" "$width" "$path")
  per=$(( (full - empty) / n )) fper=$(( (ffull - fempty) / n ))
  ratio=$(awk -v a="$per" -v b="$fper" 'BEGIN {printf "%.2f", (b > 0 ? a / b : 0)}')
  budget=$(awk -v k="$kind" '$1 == k {print $2}' "$budget_file")
  printf '%-10s %8d %12d %12d %6sx %6sx\n' "$kind" "$n" "$per" "$fper" "$ratio" "${budget:--}"
  if [ -z "$budget" ]; then
    echo "  no budget for $kind in $budget_file"
    failed=1
  elif awk -v r="$ratio" -v b="$budget" 'BEGIN {exit !(r > b)}'; then
    echo "  over budget: $kind's listing costs more against its floor (or raise its budget in $budget_file, with the reason)"
    failed=1
  fi
done
exit $failed
