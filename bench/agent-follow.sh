#!/usr/bin/env bash
# Whether a live agent keeps up with the kernel: in a network namespace of its own, loads a
# table of 1,000,000 IPv4 and 200,000 IPv6 routes (the shape of bench/live-listing.sh) with
# `ip -batch`, starts `rova-agent --live` there, then has `ip -batch` replace every IPv4 route
# with one over another next hop while the agent follows. Reports:
#   - the agent's memory per route (its resident memory beyond the store, and the store's
#     pages), after the load and after the replacement;
#   - routes per second the agent applied, and how far behind the kernel it was at the end
#     (from the end of `ip -batch` until the agent's published state has the last route);
#   - whether `rova --attach NAME show ip route` then equals a fresh
#     `ip netns exec NS rova --live show ip route`, byte for byte (the status is 1 otherwise).
# The namespace, the agent and its store are removed on the way out, whatever happens.
#
#   bench/agent-follow.sh [BUILD]      (as root; BUILD defaults to build/)
#
# ROUTES (default 1000000) and ROUTES6 (default 200000) may be set in the environment.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/peers-table.sh"

BUILD=$(realpath "${1:-build}")
ROVA=$BUILD/cli/rova
AGENT=$BUILD/agent/rova-agent
ROUTES=${ROUTES:-1000000}
ROUTES6=${ROUTES6:-200000}
NS=rova-follow-$$
NAME=bench-follow-$$
TMP=$(mktemp -d)
agent_pid=""

cleanup() {
  if [ -n "$agent_pid" ]; then
    kill "$agent_pid" 2>/dev/null || true
    wait "$agent_pid" 2>/dev/null || true
  fi
  rm -f "/dev/shm/rova-agent.$NAME"
  ip netns del "$NS" 2>/dev/null || true
  rm -rf "$TMP"
}
trap cleanup EXIT

[ "$(id -u)" -eq 0 ] || { echo "agent-follow.sh: needs root (ip netns add)" >&2; exit 2; }
[ -x "$ROVA" ] && [ -x "$AGENT" ] || { echo "agent-follow.sh: build rova and rova-agent in $BUILD" >&2; exit 2; }

peers_namespace "$NS"

# SHIFT 1: the second batch replaces each IPv4 route with one over another uplink. The last
# IPv4 prefix goes to $TMP/last.
table() { PEERS_LAST="$TMP/last" peers_table "$ROUTES" "$@"; }
table "$ROUTES6" 0 > "$TMP/load"
table 0 1 > "$TMP/replace"
read -r last_prefix last_gateway < "$TMP/last"
last_address=${last_prefix%/*}

now() { date +%s.%N; }
secs() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", b - a }'; }
cpu_of() { awk '{ print ($14 + $15) / 100 }' "/proc/$1/stat"; }
# The agent's memory per route: resident memory beyond the store's pages, and those pages.
memory() {
  local anon shm store routes=$((ROUTES + ROUTES6))
  anon=$(awk '/^RssAnon:/ { print $2 }' "/proc/$agent_pid/status")
  shm=$(awk '/^RssShmem:/ { print $2 }' "/proc/$agent_pid/status")
  store=$(du -k "/dev/shm/rova-agent.$NAME" | cut -f1)
  printf '%-22s agent %4d MB private (%5.1f B/route) + store %4d MB of pages (%5.1f B/route) = %5.1f B/route (%d MB of the store mapped)\n' \
    "$1" $((anon / 1024)) "$(awk -v a="$anon" -v r="$routes" 'BEGIN { print a * 1024 / r }')" \
    $((store / 1024)) "$(awk -v a="$store" -v r="$routes" 'BEGIN { print a * 1024 / r }')" \
    "$(awk -v a="$anon" -v s="$store" -v r="$routes" 'BEGIN { print (a + s) * 1024 / r }')" $((shm / 1024))
}

echo "machine load: $(uptime | sed 's/.*load average/load average/')"
t0=$(now)
ip -n "$NS" -batch "$TMP/load"
t1=$(now)
echo "loaded $ROUTES IPv4 + $ROUTES6 IPv6 routes into the kernel in $(secs "$t0" "$t1") s"

ip netns exec "$NS" "$AGENT" --live --name "$NAME" > "$TMP/ready" 2> "$TMP/agent.log" &
agent_pid=$!
t0=$(now)
while ! grep -q ready "$TMP/ready" 2>/dev/null; do
  kill -0 "$agent_pid" 2>/dev/null || { cat "$TMP/agent.log"; exit 1; }
  sleep 0.05
done
echo "agent ready in $(secs "$t0" "$(now)") s: $(grep -o 'following.*' "$TMP/agent.log")"
sleep 3  # the store's regions given back by growth are freed after their grace period
memory "after the load:"

# The replacement: every IPv4 route over another uplink.
cpu0=$(cpu_of "$agent_pid")
t0=$(now)
ip -n "$NS" -batch "$TMP/replace"
t1=$(now)
until "$ROVA" --attach="$NAME" show ip route "$last_address" 2>/dev/null | grep -q "$last_prefix.*via 10.255.$last_gateway.2"; do
  kill -0 "$agent_pid" 2>/dev/null || { cat "$TMP/agent.log"; exit 1; }
  sleep 0.01
done
t2=$(now)
cpu1=$(cpu_of "$agent_pid")
rereads=$(grep -c 'notifications were lost' "$TMP/agent.log" || true)
echo "replaced $ROUTES IPv4 routes: ip -batch took $(secs "$t0" "$t1") s" \
  "($(awk -v n="$ROUTES" -v a="$t0" -v b="$t1" 'BEGIN { printf "%.0f", n / (b - a) }') routes/s);"
echo "  the agent applied $(awk -v n="$ROUTES" -v a="$t0" -v b="$t2" 'BEGIN { printf "%.0f", n / (b - a) }') routes/s" \
  "($(awk -v a="$cpu0" -v b="$cpu1" 'BEGIN { printf "%.2f", b - a }') s of processor time)," \
  "$(secs "$t1" "$t2") s behind the kernel at the end; $rereads whole re-reads after lost notifications"
sleep 3
memory "after the replacement:"

"$ROVA" --attach="$NAME" show ip route > "$TMP/attached"
ip netns exec "$NS" "$ROVA" --live show ip route > "$TMP/fresh"
if cmp -s "$TMP/attached" "$TMP/fresh"; then
  echo "attached show ip route equals a fresh --live read, byte for byte ($(wc -l < "$TMP/fresh") lines)"
else
  echo "attached show ip route DIFFERS from a fresh --live read:"
  diff "$TMP/attached" "$TMP/fresh" | head -20
  exit 1
fi
