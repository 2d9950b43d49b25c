#!/usr/bin/env bash
# End-to-end timing of commands attached to a state agent, against the same commands on the
# state file: generates (once per run) a state of 1,000,000 IPv4 and 200,000 IPv6 routes (the
# spine table of bench/route-listing.sh), starts rova-agent on it under a name of its own, and
# times whole rova processes with the output thrown away. The agent and its store are removed
# on the way out, whatever happens.
#
#   bench/agent-attach.sh                     # uses build/ (ninja -C build rova rova-agent rova-gen)
#   RUNS=5 STATE=/tmp/mine.json bench/agent-attach.sh
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD:-$root/build}
rova=$build/cli/rova
agent=$build/agent/rova-agent
runs=${RUNS:-5}
name=bench-$$
tmp=$(mktemp -d)
agent_pid=""
cleanup() {
  if [ -n "$agent_pid" ]; then kill "$agent_pid" 2>/dev/null || true; wait "$agent_pid" 2>/dev/null || true; fi
  rm -f "/dev/shm/rova-agent.$name"
  rm -rf "$tmp"
}
trap cleanup EXIT

state=${STATE:-}
if [ -z "$state" ]; then
  state=$tmp/spine.json
  "$build/snapshot/rova-gen" --ipv4 1000000 --ipv6 200000 --seed 1 -o "$state"
fi

# run ARGS...: the best wall time (s) of $runs runs, and that run's peak RSS (KiB).
run() {
  local best="" w r
  for _ in $(seq "$runs"); do
    local t0 t1
    t0=$(date +%s%N)
    /usr/bin/time -f "%M" -o "$tmp/time" "$rova" "$@" > /dev/null
    t1=$(date +%s%N)
    w=$(awk "BEGIN{printf \"%.4f\", ($t1 - $t0) / 1e9}")
    read -r r < "$tmp/time"
    if [ -z "$best" ] || awk "BEGIN{exit !($w < $best)}"; then best=$w rss=$r; fi
  done
  wall=$best
}

t0=$(date +%s%N)
"$agent" --state "$state" --name "$name" > "$tmp/ready" 2> "$tmp/agent.log" &
agent_pid=$!
while ! grep -q ready "$tmp/ready" 2>/dev/null; do
  kill -0 "$agent_pid" || { cat "$tmp/agent.log"; exit 1; }
  sleep 0.05
done
t1=$(date +%s%N)
printf 'state: %s (%s); agent ready in %.2f s, store %s MB of pages\n' "$state" \
  "$(du -h "$state" | cut -f1)" "$(awk "BEGIN{print ($t1 - $t0) / 1e9}")" \
  "$(du -m "/dev/shm/rova-agent.$name" | cut -f1)"

# The 100,000th route's address: a lookup in the middle of the table.
address=$("$rova" --attach="$name" show ip route |
  awk '{ for (i = 1; i <= NF; i++) if ($i ~ /^[0-9.]+\/[0-9]+$/) { if (++n == 100000) { split($i, a, "/"); print a[1]; exit } break } }' || true)
printf '%-44s %9s %9s %9s %9s\n' command 'attached' 'peak MB' '--state' 'peak MB'
row() {
  local label=$1
  shift
  run --attach="$name" "$@"
  local aw=$wall ar=$rss
  run --state "$state" "$@"
  printf '%-44s %9.4f %9.0f %9.3f %9.0f\n' "$label" "$aw" "$((ar / 1024))" "$wall" "$((rss / 1024))"
}
row "show version (attach only)" show version
row "show ip route $address" show ip route "$address"
row "show ip route" show ip route
row "show ip route json" show ip route json
