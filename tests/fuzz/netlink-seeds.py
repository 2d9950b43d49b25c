#!/usr/bin/env python3
"""Writes the netlink fuzz target's seeds (tests/fuzz/corpus/netlink/): what the kernel answers
the live source's dumps with, on a network namespace set up with links, a VRF (where the kernel has them), addresses,
nexthop objects, routes of every kind the source reads, and neighbours. Run as root:

    sudo tests/fuzz/netlink-seeds.py

The namespace is made for the run and removed on the way out, whatever happens.
"""
import os
import socket
import struct
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
OUT = os.path.join(HERE, "corpus", "netlink")

NLM_F_REQUEST, NLM_F_DUMP = 0x1, 0x300
NLMSG_ERROR, NLMSG_DONE = 2, 3
# (name, request type, family header: format and family position)
DUMPS = [
    ("netconf", 82, "B3x", [socket.AF_INET, socket.AF_INET6]),
    ("links", 18, "BxHiII", [socket.AF_UNSPEC]),
    ("addresses", 22, "BBBBI", [socket.AF_INET, socket.AF_INET6]),
    ("nexthops", 106, "BBBBI", [socket.AF_UNSPEC]),
    ("routes", 26, "BBBBBBBBI", [socket.AF_INET, socket.AF_INET6]),
    ("neighbours", 30, "BxxxiHBB", [socket.AF_INET, socket.AF_INET6]),
]


def header(fmt, family):
    n = len(struct.unpack(fmt, bytes(struct.calcsize(fmt))))
    return struct.pack(fmt, family, *([0] * (n - 1)))


def dump(kind, fmt, family):
    s = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 0)
    try:
        body = header(fmt, family)
        s.send(struct.pack("=IHHII", 16 + len(body), kind, NLM_F_REQUEST | NLM_F_DUMP, 1, 0) + body)
        messages = b""
        while True:
            data = s.recv(1 << 20)
            at = 0
            while at + 16 <= len(data):
                length, mtype = struct.unpack_from("=IH", data, at)
                if mtype == NLMSG_DONE or mtype == NLMSG_ERROR:
                    return messages
                messages += data[at:at + ((length + 3) & ~3)]
                at += (length + 3) & ~3
    finally:
        s.close()


SETUP = """
link set lo up
link add d0 type veth peer name p0
link add d1 type veth peer name p1
link add d2 type veth peer name p2
link set d0 up
link set d1 up
link set d2 up
link set p0 up
link set p1 up
link set p2 up
link set d1 alias uplink-1
addr add 10.0.0.1/24 dev d0
addr add 10.0.0.9/24 dev d0
addr add 10.0.1.1/31 dev d1
addr add 10.2.0.1/24 dev d2
addr add 2001:db8::1/64 dev d0 nodad
addr add 2001:db8:1::1/64 dev d1 nodad
neigh add 10.0.0.2 lladdr 02:00:00:00:00:02 dev d0 nud permanent
neigh add 10.0.1.0 lladdr 02:00:00:00:00:03 dev d1 nud reachable
neigh add 2001:db8::2 lladdr 02:00:00:00:00:04 dev d0 nud permanent
nexthop add id 1 via 10.0.0.2 dev d0
nexthop add id 2 via 10.0.1.0 dev d1
nexthop add id 3 blackhole
nexthop add id 10 group 1/2
nexthop add id 11 group 1,3/2,5
route add 192.0.2.0/24 via 10.0.0.2
route add 198.51.100.0/24 nexthop via 10.0.0.2 weight 1 nexthop via 10.0.1.0 weight 3
route add 203.0.113.0/25 nhid 10
route add 203.0.113.128/25 nhid 1
route add blackhole 192.0.2.128/25
route add unreachable 198.18.0.0/15
route add prohibit 198.19.0.0/16
route add 100.64.0.0/10 dev d1 proto static metric 20
route add 172.16.0.0/12 via 10.2.0.2 table 10
route add default via 10.0.0.2
route add 2001:db8:f::/48 via 2001:db8::2
route add 2001:db8:e::/48 nexthop via 2001:db8::2 dev d0 nexthop via 2001:db8:1::2 dev d1
route add blackhole 2001:db8:d::/48
route add ::/0 via 2001:db8::2 dev d0
"""
MPLS = "route add 10.9.0.0/16 encap mpls 100/200 via 10.0.0.2 dev d0"
# A VRF, where the kernel has them: d2 and table 10 become its.
VRF = ["link add red type vrf table 10", "link set red up", "link set d2 master red"]


def attr(kind, payload):
    return struct.pack("=HH", 4 + len(payload), kind) + payload + bytes(-len(payload) % 4)


def mplsRoute():
    """A route with a label stack as the kernel sends one, made by hand (always: a kernel
    without MPLS cannot make one)."""
    labels = struct.pack(">II", 100 << 12, (200 << 12) | 0x100)
    body = struct.pack("=BBBBBBBBI", socket.AF_INET, 16, 0, 0, 254, 4, 0, 1, 0)
    body += attr(15, struct.pack("=I", 254)) + attr(1, socket.inet_aton("10.9.0.0"))
    body += attr(4, struct.pack("=I", socket.if_nametoindex("d0")))
    body += attr(5, socket.inet_aton("10.0.0.2")) + attr(21, struct.pack("=H", 1))
    body += attr(22, attr(1, labels))
    return struct.pack("=IHHII", 16 + len(body), 24, 2, 1, 0) + body


def vrfLink():
    """A VRF link of table 10 as the kernel sends one, made by hand for a kernel without VRFs."""
    body = struct.pack("=BxHiII", socket.AF_UNSPEC, 65535, 100, 0x10041, 0xffffffff)
    body += attr(3, b"red\0")
    body += attr(18, attr(1, b"vrf\0") + attr(2, attr(1, struct.pack("=I", 10))))
    return struct.pack("=IHHII", 16 + len(body), 16, 2, 1, 0) + body


def main():
    if os.geteuid() != 0:
        sys.exit("netlink-seeds.py: needs root (a network namespace)")
    if len(sys.argv) == 3 and sys.argv[1] == "--dump":
        out = sys.argv[2]
        everything = b""
        for name, kind, fmt, families in DUMPS:
            got = b"".join(dump(kind, fmt, f) for f in families)
            if name == "routes":
                got += mplsRoute()
            if name == "links" and os.environ.get("ROVA_SEEDS_NO_VRF"):
                got += vrfLink()
            with open(os.path.join(out, name), "wb") as f:
                f.write(got)
            everything += got
        with open(os.path.join(out, "everything"), "wb") as f:
            f.write(everything)
        return
    ns = "rova-seeds-%d" % os.getpid()
    subprocess.run(["ip", "netns", "add", ns], check=True)
    try:
        run = lambda line, **kw: subprocess.run(["ip", "-n", ns] + line.split(), **kw)
        env = dict(os.environ)
        if any(run(line, stderr=subprocess.DEVNULL).returncode != 0 for line in VRF):
            print("netlink-seeds.py: no VRF links here; the seeds have one made by hand",
                  file=sys.stderr)
            env["ROVA_SEEDS_NO_VRF"] = "1"
        for line in SETUP.strip().splitlines():
            run(line, check=True)
        if run(MPLS, stderr=subprocess.DEVNULL).returncode != 0:
            print("netlink-seeds.py: no MPLS encapsulation here; the seeds have a route made by hand",
                  file=sys.stderr)
        for family in ("ipv4", "ipv6"):
            subprocess.run(["ip", "netns", "exec", ns, "sysctl", "-qw",
                            "net.%s.conf.all.forwarding=1" % family], check=True)
        os.makedirs(OUT, exist_ok=True)
        subprocess.run(["ip", "netns", "exec", ns, sys.executable, __file__, "--dump", OUT],
                       check=True, env=env)
    finally:
        subprocess.run(["ip", "netns", "del", ns], check=False)
    print("netlink-seeds.py: seeds in %s" % OUT)


if __name__ == "__main__":
    main()
