#!/usr/bin/env bash
# Instructions per route of a snapshot load, counted by callgrind over a
# generated snapshot of 5,000 routes less an empty one: repeatable on a busy
# machine, unlike a timing. Fails when the count is over the budget in
# instruction_budget beside this script, so that a change that slows the
# loader (its parse, its conversion, or storing the index rows out of key
# order) shows in the test suite.
#
#   load_instructions.sh EVPN_SYSDB_BIN
set -euo pipefail
sysdb=$1
budget_file=$(dirname "$0")/instruction_budget
routes=5000
command -v valgrind >/dev/null || { echo "valgrind is not installed (scripts/install-deps --tests)"; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$sysdb" gen --routes "$routes" --evis $((routes / 100)) --seed 1 --db "$work/gen.db" --json "$work/full.json" 2>/dev/null
"$sysdb" gen --routes 0 --evis 1 --seed 1 --db "$work/gen0.db" --json "$work/empty.json" 2>/dev/null
count() {
  rm -f "$work/loaded.db"
  valgrind --tool=callgrind --callgrind-out-file="$work/cg.out" "$sysdb" load "$1" --db "$work/loaded.db" \
    >/dev/null 2>"$work/valgrind.err" || { cat "$work/valgrind.err"; exit 1; }
  awk '/^summary:/ {print $2}' "$work/cg.out"
}
full=$(count "$work/full.json")
empty=$(count "$work/empty.json")
per_route=$(( (full - empty) / routes ))
budget=$(awk '$1 == "load_per_route" {print $2}' "$budget_file")
echo "Snapshot load: $per_route instructions per route ($full over $routes routes, $empty empty); budget $budget"
if [ "$per_route" -gt "$budget" ]; then
  echo "over budget: a change made the loader slower (or raise the budget in $budget_file, with the reason)"
  exit 1
fi
