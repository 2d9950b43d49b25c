#!/usr/bin/env bash
# Writes cli/rova.order, the order in which the linker lays out the program's functions: first
# those a lookup attached to an agent runs (start, command table, attach, the lookup, its
# printing), then those each further short command adds, by name within a command: what
# matters is that they lie together. A short command then touches some tens of code pages fewer
# than with its functions scattered over the whole program. Run it again
# after large changes to the start, attach or printing code (the order-file test says when);
# a stale file only costs speed, since names it lists that are gone are skipped.
#
#   scripts/function-order.sh            # profiles build/cli/rova (needs valgrind)
#   BUILD=/tmp/other-build scripts/function-order.sh
#
# Everything it runs (a small state, an agent publishing it, the profiles) lives in a temporary
# directory and is removed on the way out, the agent and its store included.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD:-$root/build}
rova=$build/cli/rova
command -v valgrind > /dev/null || { echo "function-order.sh: needs valgrind" >&2; exit 1; }
name=order-$$
tmp=$(mktemp -d)
agent_pid=""
cleanup() {
  if [ -n "$agent_pid" ]; then
    kill "$agent_pid" 2> /dev/null || true
    wait "$agent_pid" 2> /dev/null || true
  fi
  rm -f "/dev/shm/rova-agent.$name" "/dev/shm/rova-changes.$name"
  rm -rf "$tmp"
}
trap cleanup EXIT

"$build/snapshot/rova-gen" --seed 1 -o "$tmp/state.json"
# A store of 1 GiB rather than 64: valgrind cannot map that much.
"$build/agent/rova-agent" --state "$tmp/state.json" --name "$name" --reserve 1G > "$tmp/ready" 2> "$tmp/agent.log" &
agent_pid=$!
for _ in $(seq 300); do
  grep -q ready "$tmp/ready" 2> /dev/null && break
  kill -0 "$agent_pid" 2> /dev/null || { cat "$tmp/agent.log" >&2; exit 1; }
  sleep 0.1
done
grep -q ready "$tmp/ready" || { echo "function-order.sh: the agent did not start" >&2; exit 1; }

# An address inside the state's first IPv4 route other than the default, for the lookup.
# (grep rather than awk: Debian's mawk takes no "{3}" in a pattern, and without an address the
# first profile would be a whole listing.)
"$rova" --attach="$name" show ip route > "$tmp/routes"
prefix=$(grep -oE '[0-9]+(\.[0-9]+){3}/[0-9]+' "$tmp/routes" | grep -vxF 0.0.0.0/0 | head -1 || true)
[ -n "$prefix" ] || { echo "function-order.sh: no route to look up in the state" >&2; exit 1; }
address=${prefix%/*}

# The commands, most important first: attached, then on the built-in example and a file.
attach=--attach=$name
commands=(
  "$attach show ip route $address"
  "$attach show version"
  "--version"
  "$attach show ip route $address json"
  "$attach show ip route summary"
  "$attach show ip route"
  "$attach show ip route json"
  "$attach show ipv6 route"
  "show ip route"
  "--state $tmp/state.json show ip route"
)
: > "$tmp/order"
k=0
for c in "${commands[@]}"; do
  k=$((k + 1))
  read -ra args <<< "$c"
  valgrind --tool=callgrind --demangle=no --compress-strings=no --compress-pos=no \
    --dump-instr=no --callgrind-out-file="$tmp/profile.$k" "$rova" "${args[@]}" \
    > /dev/null 2> "$tmp/valgrind.$k" || { cat "$tmp/valgrind.$k" >&2; exit 1; }
  # The functions this command adds to those before it, sorted by name: the profile lists
  # them in no fixed order, and the file should change only when the functions do.
  sed -n 's/^fn=//p' "$tmp/profile.$k" | sed "s/'[0-9]*\$//" |
    awk 'NF == 1 && $1 !~ /^0x/' | LC_ALL=C sort -u > "$tmp/functions"
  LC_ALL=C comm -23 "$tmp/functions" <(LC_ALL=C sort -u "$tmp/order") > "$tmp/added"
  cat "$tmp/added" >> "$tmp/order"
done
cp "$tmp/order" "$root/cli/rova.order"
echo "function-order.sh: $(wc -l < "$root/cli/rova.order") functions in cli/rova.order" >&2
