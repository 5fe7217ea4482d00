#!/usr/bin/env bash
# bench_stream_test.sh EVPN_SYSDB EVPN_SHOW_CLIENT BENCH_BMP_MACS
# The benchmarks' stream packed K routes to an UPDATE holds the same routes as
# one route a message, an EVI's last, partly filled UPDATE included: both
# replay into the same MAC listing. The UPDATEs alone (--bgp) are the same
# messages without their BMP headers, and an UPDATE past BGP's 4096 bytes is
# refused, not written.
set -euo pipefail
sysdb=$1 client=$2 gen=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

# 1,050 routes over 10 EVIs: 105 an EVI, one UPDATE of 100 and one of 5 each.
"$gen" 1050 10 1 1 "$work/one.bmp"
"$gen" 1050 10 1 1 "$work/packed.bmp" --pack 100
"$gen" 1050 10 1 1 "$work/packed.bgp" --bgp --pack 100
for s in one packed; do
  "$sysdb" collect --bmp-file "$work/$s.bmp" --db "$work/$s.db" >"$work/$s.out" 2>"$work/$s.log" ||
    fail "$s: the replay failed: $(cat "$work/$s.log")"
  EVPN_SYSDB=$work/$s.db "$client" 0 >"$work/$s.macs" || fail "$s: the client failed"
done
grep -q ': 1052 messages, 1050 routes ' "$work/one.out" || fail "one a message: $(cat "$work/one.out")"
grep -q ': 22 messages, 1050 routes ' "$work/packed.out" || fail "packed: $(cat "$work/packed.out")"
[ "$(grep -c '^[0-9]' "$work/one.macs")" -eq 1050 ] || fail "the listing does not hold 1050 routes"
cmp -s "$work/one.macs" "$work/packed.macs" || fail "the packed stream lists other routes: $(diff "$work/one.macs" "$work/packed.macs" | head)"

# --bgp: the UPDATEs alone, 20 of them, none over 4089 bytes (bgp-feed adds
# 7), the 1,050 routes in their MP_REACH_NLRI, no two the same.
python3 - "$work/packed.bgp" <<'PY' || fail "--bgp: the UPDATEs are not as packed"
import struct, sys
data, at, updates, routes = open(sys.argv[1], "rb").read(), 0, 0, set()
while at < len(data):
    assert data[at:at + 16] == b"\xff" * 16, "no marker at byte %d" % at
    length, kind = struct.unpack(">HB", data[at + 16:at + 19])
    assert kind == 2 and length <= 4089, (kind, length)
    msg, at, updates = data[at:at + length], at + length, updates + 1
    p = 23 + struct.unpack(">H", msg[19:21])[0]
    end = p + struct.unpack(">H", msg[p - 2:p])[0]
    while p < end:
        flags, code = msg[p], msg[p + 1]
        size, head = (struct.unpack(">H", msg[p + 2:p + 4])[0], 4) if flags & 0x10 else (msg[p + 2], 3)
        if code == 14:
            v = msg[p + head:p + head + size]
            q = 5 + v[3]
            while q < len(v):
                routes.add(v[q:q + 2 + v[q + 1]])
                q += 2 + v[q + 1]
        p += head + size
assert updates == 20 and len(routes) == 1050, (updates, len(routes))
PY

# 300 routes of an EVI, 200 to an UPDATE: 8 KB, refused.
if "$gen" 3000 10 1 1 "$work/big.bmp" --pack 200 2>"$work/big.err"; then fail "an UPDATE over 4096 bytes was written"; fi
grep -q 'do not fit in one UPDATE' "$work/big.err" || fail "no reason given: $(cat "$work/big.err")"
echo "bench stream test: ok"
