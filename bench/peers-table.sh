# The peers' table in a network namespace, for the benchmarks that read a kernel table
# (live-listing.sh, agent-follow.sh, agent-peers.sh, agent-attach.sh). Sourced, not run:
#
#   source bench/peers-table.sh
#   peers_namespace NS                  # NS with lo and four uplinks eth1-4, DAD off
#   peers_table V4 V6 [SHIFT] > BATCH   # `ip -batch` lines of V4 IPv4 and V6 IPv6 routes
#   ip -n NS -batch BATCH
#
# The prefixes come from a multiplicative permutation, so that neither the kernel's trie nor
# rova's tables see them in order: the /24s, one in sixteen widened to a /22 (hence `route
# replace`, since a /22 may meet another), over the four uplinks, one route in ten over two of
# them (about 1.1 next hops a route), one in fifty `proto static`; the IPv6 routes are /48s
# likewise. SHIFT moves every IPv4 route to the next uplink, so that a second table replaces
# each route with one over another next hop. With PEERS_LAST=FILE set, the last IPv4 prefix
# and its uplink go to FILE ("P G"); with PEERS_PROBE=FILE, an address inside the 100,000th
# IPv4 prefix (or the last, in a smaller table).
# Nothing here removes the namespace: its caller's trap does.

peers_namespace() {
  local ns=$1 i
  ip netns add "$ns"
  ip netns exec "$ns" sysctl -q -w net.ipv6.conf.all.accept_dad=0 net.ipv6.conf.default.accept_dad=0
  ip -n "$ns" link set lo up
  for i in 1 2 3 4; do
    ip -n "$ns" link add "eth$i" type veth peer name "peer$i"
    ip -n "$ns" link set "eth$i" up
    ip -n "$ns" link set "peer$i" up
    ip -n "$ns" addr add "10.255.$i.1/24" dev "eth$i"
    ip -n "$ns" addr add "fd00:$i::1/64" dev "eth$i" nodad
  done
}

peers_table() {
  awk -v v4="$1" -v v6="$2" -v shift="${3:-0}" -v last="${PEERS_LAST:-}" \
    -v probe="${PEERS_PROBE:-}" 'BEGIN {
    n = 0
    for (j = 0; n < v4; j++) {
      idx = (j * 2654435761) % 16777216
      o = int(idx / 65536)
      if (o == 0 || o == 10 || o == 127 || o >= 224) continue
      b = int(idx / 256) % 256; c = idx % 256; len = 24
      if (n % 16 == 7) { c = c - c % 4; len = 22 }
      g = (n + shift) % 4 + 1
      p = sprintf("%d.%d.%d.0/%d", o, b, c, len)
      if (n % 10 == 3)
        printf "route replace %s proto bgp nexthop via 10.255.%d.2 nexthop via 10.255.%d.2\n", p, g, g % 4 + 1
      else if (n % 50 == 1)
        printf "route replace %s via 10.255.%d.2 proto static\n", p, g
      else
        printf "route replace %s via 10.255.%d.2 proto bgp\n", p, g
      n++
      if (probe != "" && (n == 100000 || n == v4 && n < 100000)) printf "%d.%d.%d.1\n", o, b, c > probe
    }
    if (last != "" && n > 0) print p, g > last
    for (j = 0; j < v6; j++) {
      idx = (j * 2654435761) % 16777216
      g = j % 4 + 1
      p = sprintf("2a%02x:%x:%x::/48", int(idx / 65536), idx % 65536, j % 65536)
      if (j % 10 == 3)
        printf "route replace %s proto bgp nexthop via fd00:%d::2 dev eth%d nexthop via fd00:%d::2 dev eth%d\n", p, g, g, g % 4 + 1, g % 4 + 1
      else
        printf "route replace %s via fd00:%d::2 dev eth%d proto bgp\n", p, g, g
    }
  }'
}
