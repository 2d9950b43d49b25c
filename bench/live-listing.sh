#!/usr/bin/env bash
# Reading and listing a full kernel table: `rova --live show ip route` against `ip route show`
# on the same 1,000,000 routes, side by side. The table is built in a network namespace of its
# own (ip -batch), which is removed afterwards whatever happens; no packet is sent.
#
#   bench/live-listing.sh [ROVA]        (as root; ROVA defaults to build/cli/rova)
#
# ROUTES (default 1000000) and RUNS (default 3, the best is reported) may be set in the
# environment. Each run writes to /dev/null; times are wall-clock seconds from /usr/bin/time,
# with the peak resident memory.
set -euo pipefail

ROVA=$(realpath "${1:-build/cli/rova}")
ROUTES=${ROUTES:-1000000}
RUNS=${RUNS:-3}
NS=rova-bench-$$
BATCH=$(mktemp)
TIMES=$(mktemp)

cleanup() {
  ip netns del "$NS" 2>/dev/null || true
  rm -f "$BATCH" "$TIMES"
}
trap cleanup EXIT

[ "$(id -u)" -eq 0 ] || { echo "live-listing.sh: needs root (ip netns add)" >&2; exit 2; }
[ -x "$ROVA" ] || { echo "live-listing.sh: no program at $ROVA" >&2; exit 2; }

ip netns add "$NS"
ip -n "$NS" link set lo up
for i in 1 2 3 4; do
  ip -n "$NS" link add "eth$i" type veth peer name "peer$i"
  ip -n "$NS" link set "eth$i" up
  ip -n "$NS" link set "peer$i" up
  ip -n "$NS" addr add "10.255.$i.1/24" dev "eth$i"
done

# An Internet-like table: distinct /24s from 11.0.0.0 on, most learnt by BGP over one of four
# uplinks, one in five over two of them (ECMP), one in twenty static.
awk -v n="$ROUTES" 'BEGIN {
  for (i = 0; i < n; i++) {
    p = sprintf("%d.%d.%d.0/24", 11 + int(i / 65536), int(i / 256) % 256, i % 256)
    g = i % 4 + 1
    if (i % 20 == 0) {
      printf "route add %s via 10.255.%d.2 proto static\n", p, g
    } else if (i % 5 == 0) {
      printf "route add %s proto bgp nexthop via 10.255.%d.2 nexthop via 10.255.%d.2\n", p, g, g % 4 + 1
    } else {
      printf "route add %s via 10.255.%d.2 proto bgp\n", p, g
    }
  }
}' >"$BATCH"
echo "building $ROUTES routes in namespace $NS ..." >&2
start=$(date +%s)
ip -n "$NS" -batch "$BATCH"
echo "built in $(( $(date +%s) - start )) s; $(ip -n "$NS" route show | grep -c '^[0-9d]') routes in the main table" >&2

# best of RUNS: "seconds peak-kB"
best() {
  local best_s="" best_kb="" out s kb
  for _ in $(seq "$RUNS"); do
    /usr/bin/time -o "$TIMES" -f '%e %M' "$@" >/dev/null
    out=$(tail -1 "$TIMES")
    s=${out% *}
    kb=${out#* }
    if [ -z "$best_s" ] || awk -v a="$s" -v b="$best_s" 'BEGIN { exit !(a < b) }'; then
      best_s=$s
      best_kb=$kb
    fi
  done
  printf '%8s s %8d MB' "$best_s" $(( best_kb / 1024 ))
}

printf '%-44s %s\n' "command (best of $RUNS, $ROUTES routes)" "   wall     peak"
printf '%-44s %s\n' "ip route show" "$(best ip -n "$NS" route show)"
printf '%-44s %s\n' "rova --live show ip route" "$(best ip netns exec "$NS" "$ROVA" --live show ip route)"
printf '%-44s %s\n' "ip -json route show" "$(best ip -n "$NS" -json route show)"
printf '%-44s %s\n' "rova --live show ip route json" \
  "$(best ip netns exec "$NS" "$ROVA" --live show ip route json)"
printf '%-44s %s\n' "rova --live show version (the read alone)" \
  "$(best ip netns exec "$NS" "$ROVA" --live show version)"
