#!/usr/bin/env bash
# demo_test.sh SOURCE_DIR: the demo script's standard output is the reports
# and nothing else: each "$ evpn_show_client ..." line followed by exactly
# what the client prints for it, then the closing hints.
set -euo pipefail
cd "$1"
out=$(scripts/demo 2>/dev/null)
client=build/l2vpn/show/evpn_show_client
want=""
while IFS= read -r line; do
  case $line in
    '$ evpn_show_client '*)
      # shellcheck disable=SC2086  # options are words
      want+="$line"$'\n'"$("$client" ${line#\$ evpn_show_client })"$'\n\n' ;;
  esac
done <<<"$out"
got=$(sed '/^More: /,$d' <<<"$out")
want=$(printf '%s' "$want")  # without its trailing line ends, as got is
if [ "$got" != "$want" ]; then
  diff <(printf '%s\n' "$got") <(printf '%s\n' "$want") | head -20 >&2
  echo "FAIL: scripts/demo printed more than the reports" >&2
  exit 1
fi
grep -c '^\$ evpn_show_client' <<<"$out" | grep -qv '^0$' || { echo "FAIL: no reports" >&2; exit 1; }
echo "demo test: ok"
