#!/usr/bin/env bash
# Reading and listing a full kernel table: `rova --live show ip route` against `ip route show`
# (text and JSON), and `rova --live show ipv6 route` against `ip -6 route show`, on the same
# kernel table. The table has the peers' shape: 1,000,000 IPv4 prefixes in no particular order
# (a permutation of the /24s, one in sixteen a /22), over four uplinks, one route in ten over two
# of them (about 1.1 next hops a route), and 200,000 IPv6 /48s likewise. It is built in a
# network namespace of its own (ip -batch), which is removed afterwards whatever happens; no
# packet is sent.
#
#   bench/live-listing.sh [ROVA]        (as root; ROVA defaults to build/cli/rova)
#
# ROUTES (default 1000000), ROUTES6 (default 200000) and RUNS (default 3, the best is
# reported) may be set in the environment. Each run writes to /dev/null; the table gives the
# wall-clock seconds and the processor seconds (user + system, kernel time spent dumping
# included; steadier than the wall clock on a busy machine) of the run with the least
# processor time, from /usr/bin/time, with the peak resident memory, the one-minute load
# average when that run ended, and each rova command's processor time against its peer's.
#
# The table takes a while to build. KEEP_NS=NAME builds it in namespace NAME and keeps it;
# when NAME exists already, its table is used as it is (for profiling rounds against one
# table). Remove it afterwards with `ip netns del NAME`.
set -euo pipefail

ROVA=$(realpath "${1:-build/cli/rova}")
ROUTES=${ROUTES:-1000000}
ROUTES6=${ROUTES6:-200000}
RUNS=${RUNS:-3}
NS=${KEEP_NS:-rova-bench-$$}
BATCH=$(mktemp)
TIMES=$(mktemp)

cleanup() {
  [ -n "${KEEP_NS:-}" ] || ip netns del "$NS" 2>/dev/null || true
  rm -f "$BATCH" "$TIMES"
}
trap cleanup EXIT

[ "$(id -u)" -eq 0 ] || { echo "live-listing.sh: needs root (ip netns add)" >&2; exit 2; }
[ -x "$ROVA" ] || { echo "live-listing.sh: no program at $ROVA" >&2; exit 2; }

if [ -n "${KEEP_NS:-}" ] && ip netns list | grep -qx "$NS\( .*\)\?"; then
  echo "using the table already in namespace $NS" >&2
else

ip netns add "$NS"
ip netns exec "$NS" sysctl -q -w net.ipv6.conf.all.accept_dad=0 net.ipv6.conf.default.accept_dad=0
ip -n "$NS" link set lo up
for i in 1 2 3 4; do
  ip -n "$NS" link add "eth$i" type veth peer name "peer$i"
  ip -n "$NS" link set "eth$i" up
  ip -n "$NS" link set "peer$i" up
  ip -n "$NS" addr add "10.255.$i.1/24" dev "eth$i"
  ip -n "$NS" addr add "fd00:$i::1/64" dev "eth$i" nodad
done

# The prefixes come from a multiplicative permutation, so that neither the kernel's trie nor
# rova's tables see them in order; `route replace`, since a widened /22 may meet another.
awk -v v4="$ROUTES" -v v6="$ROUTES6" 'BEGIN {
  n = 0
  for (j = 0; n < v4; j++) {
    idx = (j * 2654435761) % 16777216
    o = int(idx / 65536)
    if (o == 0 || o == 10 || o == 127 || o >= 224) continue
    b = int(idx / 256) % 256; c = idx % 256; len = 24
    if (n % 16 == 7) { c = c - c % 4; len = 22 }
    g = n % 4 + 1
    p = sprintf("%d.%d.%d.0/%d", o, b, c, len)
    if (n % 10 == 3)
      printf "route replace %s proto bgp nexthop via 10.255.%d.2 nexthop via 10.255.%d.2\n", p, g, g % 4 + 1
    else if (n % 50 == 1)
      printf "route replace %s via 10.255.%d.2 proto static\n", p, g
    else
      printf "route replace %s via 10.255.%d.2 proto bgp\n", p, g
    n++
  }
  for (j = 0; j < v6; j++) {
    idx = (j * 2654435761) % 16777216
    g = j % 4 + 1
    p = sprintf("2a%02x:%x:%x::/48", int(idx / 65536), idx % 65536, j % 65536)
    if (j % 10 == 3)
      printf "route replace %s proto bgp nexthop via fd00:%d::2 dev eth%d nexthop via fd00:%d::2 dev eth%d\n", p, g, g, g % 4 + 1, g % 4 + 1
    else
      printf "route replace %s via fd00:%d::2 dev eth%d proto bgp\n", p, g, g
  }
}' >"$BATCH"
echo "building $ROUTES IPv4 and $ROUTES6 IPv6 routes in namespace $NS ..." >&2
start=$(date +%s)
ip -n "$NS" -batch "$BATCH"
echo "built in $(( $(date +%s) - start )) s" >&2
fi

# best of RUNS (by processor time): "wall-s cpu-s peak-MB load"; its processor time in BEST_CPU
best() {
  local best_cpu="" best_line="" out cpu load
  for _ in $(seq "$RUNS"); do
    /usr/bin/time -o "$TIMES" -f '%e %U %S %M' "$@" >/dev/null
    load=$(cut -d' ' -f1 /proc/loadavg)
    out=$(tail -1 "$TIMES")
    cpu=$(awk '{ print $2 + $3 }' <<<"$out")
    if [ -z "$best_cpu" ] || awk -v a="$cpu" -v b="$best_cpu" 'BEGIN { exit !(a < b) }'; then
      best_cpu=$cpu
      best_line=$(awk -v l="$load" '{ printf "%8.2f s %8.2f s %8d MB %6s", $1, $2 + $3, $4 / 1024, l }' <<<"$out")
    fi
  done
  BEST_CPU=$best_cpu
  BEST_LINE=$best_line
}

# row LABEL [PEER-CPU] COMMAND...: one line of the table, with the ratio to PEER-CPU when given
row() {
  local label=$1 peer=$2
  shift 2
  best "$@"
  local ratio=""
  [ -n "$peer" ] && ratio=$(awk -v a="$BEST_CPU" -v b="$peer" 'BEGIN { printf "%7.2fx", a / b }')
  printf '%-44s %s %s\n' "$label" "$BEST_LINE" "$ratio"
}

printf '%-44s %s\n' "command (best of $RUNS)" "    wall        cpu       peak   load    ratio"
row "ip route show" "" ip -n "$NS" route show
ip_text=$BEST_CPU
row "rova --live show ip route" "$ip_text" ip netns exec "$NS" "$ROVA" --live show ip route
row "ip -json route show" "" ip -n "$NS" -json route show
ip_json=$BEST_CPU
row "rova --live show ip route json" "$ip_json" ip netns exec "$NS" "$ROVA" --live show ip route json
row "ip -6 route show" "" ip -n "$NS" -6 route show
ip_6=$BEST_CPU
row "rova --live show ipv6 route" "$ip_6" ip netns exec "$NS" "$ROVA" --live show ipv6 route
row "rova --live show version (the whole read)" "" ip netns exec "$NS" "$ROVA" --live show version
