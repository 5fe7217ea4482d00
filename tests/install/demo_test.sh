#!/usr/bin/env bash
# demo_test.sh SOURCE_DIR: the demo script's standard output is the reports
# and nothing else: each "$ evpn_show_client ..." line followed by exactly
# what the client prints for it, then the closing hints. Its progress goes
# to standard error, the first line within 2 seconds.
set -euo pipefail
cd "$1"
t=$(mktemp -d)
trap 'rm -rf "$t"' EXIT
start=$(date +%s%N)
scripts/demo 2>&1 >"$t/out" |
  { IFS= read -r _ && echo $((($(date +%s%N) - start) / 1000000)) >"$t/first_ms"; cat >/dev/null; }
[ -s "$t/first_ms" ] || { echo "FAIL: scripts/demo shows no progress on standard error" >&2; exit 1; }
[ "$(cat "$t/first_ms")" -le 2000 ] ||
  { echo "FAIL: the demo's first progress line came after $(cat "$t/first_ms") ms" >&2; exit 1; }
out=$(cat "$t/out")
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
