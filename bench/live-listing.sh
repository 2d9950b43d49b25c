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
source "$(dirname "${BASH_SOURCE[0]}")/peers-table.sh"

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

peers_namespace "$NS"
peers_table "$ROUTES" "$ROUTES6" >"$BATCH"
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
