#!/usr/bin/env bash
# Instructions per route of the MAC listing (show command 0), counted by
# callgrind over a generated database of 10,000 routes less an empty one:
# repeatable on a busy machine, unlike a timing. Fails when the count is over
# the budget in instruction_budget beside this script, so that a change that
# slows the hot path shows in the test suite.
#
#   instructions.sh EVPN_SYSDB_BIN CLIENT_BIN
set -euo pipefail
sysdb=$1 client=$2
budget_file=$(dirname "$0")/instruction_budget
routes=10000
command -v valgrind >/dev/null || { echo "valgrind is not installed (scripts/install-deps --tests)"; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$sysdb" gen --routes "$routes" --evis $((routes / 100)) --seed 1 --db "$work/full.db" 2>/dev/null
"$sysdb" gen --routes 0 --evis 1 --seed 1 --db "$work/empty.db" 2>/dev/null
count() {
  EVPN_SYSDB=$1 valgrind --tool=callgrind --callgrind-out-file="$work/cg.out" "$client" 0 \
    >/dev/null 2>"$work/valgrind.err" || { cat "$work/valgrind.err"; exit 1; }
  awk '/^summary:/ {print $2}' "$work/cg.out"
}
full=$(count "$work/full.db")
empty=$(count "$work/empty.db")
per_route=$(( (full - empty) / routes ))
budget=$(awk '$1 == "mac_listing_per_route" {print $2}' "$budget_file")
echo "MAC listing: $per_route instructions per route ($full over $routes routes, $empty empty); budget $budget"
if [ "$per_route" -gt "$budget" ]; then
  echo "over budget: a change made the listing's hot path slower (or raise the budget in $budget_file, with the reason)"
  exit 1
fi
