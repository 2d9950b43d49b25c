#!/usr/bin/env bash
# The peers' table from a state file against the same routes in a kernel: `rova --state FILE
# show ipv6 route` beside `ip -6 route show` on its 200,000 IPv6 routes, loaded with `ip -batch`
# into a network namespace of the script's own (removed afterwards whatever happens; no packet
# is sent), and the commands that load only part of the state: `check ip address` and the
# peaks of memory. The state is `rova-gen --profile internet --seed 1` (1,000,000 IPv4 routes at
# about 1.14 next hops and 200,000 IPv6). Each row is the median of ROUNDS rounds, the commands
# run in turn with their order rotated each round, whole process, output to /dev/null.
#
#   sudo bench/peer-listing.sh            # uses build/ (run ./rova once first)
#   ROUNDS=11 STATE=/tmp/mine.json sudo -E bench/peer-listing.sh
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD:-$root/build}
rova=$build/cli/rova
rounds=${ROUNDS:-7}
NS=rova-peer-$$
tmp=$(mktemp -d)
cleanup() {
  ip netns del "$NS" 2>/dev/null || true
  rm -rf "$tmp"
}
trap cleanup EXIT
[ "$(id -u)" -eq 0 ] || { echo "peer-listing.sh: needs root (ip netns add)" >&2; exit 2; }

state=${STATE:-$tmp/internet.json}
[ -f "$state" ] || "$build/snapshot/rova-gen" --profile internet --seed 1 -o "$state"

# The namespace: the state's interfaces as veth ends, then every IPv6 route of the state's
# listing with its next hops on link (several: one multipath route).
ip netns add "$NS"
ip -n "$NS" link set lo up
"$rova" --state "$state" show ipv6 route json | python3 -c '
import json, sys
doc = json.load(sys.stdin)
intfs, lines = set(), []
for prefix, r in doc["routes"].items():
    vias = [v for v in r.get("vias", []) if "nexthopAddr" in v and "interface" in v]
    if not vias:
        continue
    intfs.update(v["interface"] for v in vias)
    hops = ["via %s dev %s onlink" % (v["nexthopAddr"], v["interface"]) for v in vias]
    if len(hops) > 1:
        hops = ["nexthop " + h for h in hops]
    lines.append("route add %s proto bgp %s" % (prefix, " ".join(hops)))
with open(sys.argv[1], "w") as f:
    f.write("\n".join(sorted(intfs)) + "\n")
with open(sys.argv[2], "w") as f:
    f.write("\n".join(lines) + "\n")
' "$tmp/intfs" "$tmp/batch"
i=0
while read -r intf; do
  ip -n "$NS" link add "$intf" type veth peer name "peer$i"
  ip -n "$NS" link set "$intf" up
  ip -n "$NS" link set "peer$i" up
  i=$((i + 1))
done < "$tmp/intfs"
ip -n "$NS" -batch "$tmp/batch"
echo "namespace: $(ip -n "$NS" -6 route show | grep -c .) IPv6 routes; state: $state" >&2

# time CMD...: "wall cpu" seconds of one run (cpu: user + system, steadier than the wall clock
# on a shared machine), output thrown away.
time1() {
  local t0 t1 u s
  t0=$(date +%s%N)
  /usr/bin/time -f "%U %S" -o "$tmp/cpu" "$@" > /dev/null
  t1=$(date +%s%N)
  read -r u s < "$tmp/cpu"
  awk "BEGIN{printf \"%.4f %.2f\", ($t1 - $t0) / 1e9, $u + $s}"
}
median() { sort -n | awk '{a[NR]=$1} END{print a[int((NR+1)/2)]}'; }

cmds=(
  "ip netns exec $NS ip -6 route show"
  "$rova --state $state show ipv6 route"
  "$rova --state $state check ip address Ethernet1 10.99.0.1/24"
  "$rova --state $state show ip route"
)
for r in $(seq "$rounds"); do
  for k in "${!cmds[@]}"; do
    j=$(( (k + r) % ${#cmds[@]} ))
    # shellcheck disable=SC2086
    echo "$(time1 ${cmds[$j]})" >> "$tmp/t$j"
  done
done
peer=$(cut -d' ' -f1 < "$tmp/t0" | median)
peerCpu=$(cut -d' ' -f2 < "$tmp/t0" | median)
printf '%-70s %8s %6s %6s %6s\n' command 'wall s' ratio 'cpu s' ratio
for j in "${!cmds[@]}"; do
  m=$(cut -d' ' -f1 < "$tmp/t$j" | median)
  c=$(cut -d' ' -f2 < "$tmp/t$j" | median)
  printf '%-70s %8.3f %6.2f %6.2f %6.2f\n' "${cmds[$j]/$state/STATE}" "$m" \
    "$(awk "BEGIN{print $m / $peer}")" "$c" "$(awk "BEGIN{print $c / $peerCpu}")"
done
for args in "show ip route" "show ipv6 route" "check ip address Ethernet1 10.99.0.1/24" "show version"; do
  # shellcheck disable=SC2086
  /usr/bin/time -f "%M" -o "$tmp/peak" "$rova" --state "$state" $args > /dev/null
  printf 'peak %-50s %6d MB\n' "$args" "$(( $(cat "$tmp/peak") / 1024 ))"
done
