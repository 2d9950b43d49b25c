#!/usr/bin/env bash
# The attached listing against the kernel's own, on the peers' table: `rova --attach=NAME show
# ip route` (text and JSON) against `ip route show` / `ip -j route show` on the same kernel
# table, read by `rova-agent --live` in a network namespace of its own. The table is the one of
# bench/live-listing.sh (bench/peers-table.sh): 1,000,000 IPv4 prefixes in no
# particular order over four uplinks, about 1.1 next hops a route, and 200,000 IPv6 /48s. The
# namespace, the agent and its store are removed on the way out, whatever happens; no packet is
# sent.
#
#   sudo bench/agent-peers.sh [BUILD]      (BUILD defaults to build/)
#
# ROUTES, ROUTES6 and RUNS (default 5) may be set in the environment. Figures are processor
# seconds (user + system), the mean of RUNS runs from perf stat -r, the peer run before ours.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/peers-table.sh"
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$(realpath "${1:-$root/build}")
ROUTES=${ROUTES:-1000000}
ROUTES6=${ROUTES6:-200000}
RUNS=${RUNS:-5}
NS=rova-peers-$$
name=peers-$$
tmp=$(mktemp -d)
agent_pid=""
cleanup() {
  if [ -n "$agent_pid" ]; then kill "$agent_pid" 2>/dev/null || true; wait "$agent_pid" 2>/dev/null || true; fi
  rm -f "/dev/shm/rova-agent.$name"
  ip netns del "$NS" 2>/dev/null || true
  rm -rf "$tmp"
}
trap cleanup EXIT

[ "$(id -u)" -eq 0 ] || { echo "agent-peers.sh: needs root (ip netns add)" >&2; exit 2; }

peers_namespace "$NS"
peers_table "$ROUTES" "$ROUTES6" >"$tmp/batch"
echo "building $ROUTES IPv4 and $ROUTES6 IPv6 routes in namespace $NS ..." >&2
ip -n "$NS" -batch "$tmp/batch"

ip netns exec "$NS" "$build/agent/rova-agent" --live --name "$name" \
  --static-config "$tmp/static.conf" >"$tmp/ready" 2>"$tmp/agent.log" &
agent_pid=$!
while ! grep -q ready "$tmp/ready" 2>/dev/null; do
  kill -0 "$agent_pid" || { cat "$tmp/agent.log"; exit 1; }
  sleep 0.1
done
# The agent makes its listing order again once the table is quiet: a moment for that.
sleep 1

# cpu CMD...: the mean processor seconds of RUNS runs, output to /dev/null.
cpu() {
  perf stat -r "$RUNS" -x, -e task-clock "$@" 2>&1 >/dev/null | awk -F, '/task-clock/ { printf "%.3f", $1 / 1000 }'
}
uptime
printf '%-34s %8s   %-24s %8s %8s\n' command 'cpu s' peer 'cpu s' ratio
row() {
  local label=$1 peer=$2 ours theirs
  shift 2
  theirs=$(cpu ip -n "$NS" $peer)
  ours=$(cpu "$build/cli/rova" --attach="$name" "$@")
  printf '%-34s %8s   %-24s %8s %8.2f\n' "$label" "$ours" "ip $peer" "$theirs" \
    "$(awk "BEGIN { print $ours / $theirs }")"
}
row "show ip route" "route show" show ip route
row "show ip route json" "-j route show" show ip route json
