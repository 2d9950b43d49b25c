"""Records with attributes, rova.routes, the route type names, the sources, verdicts and the
busy module, on the example device and on generated states."""

import json
import os
import subprocess
import sys
import tempfile

import pytest

import rova

PROGRAM = os.environ.get("ROVA_PROGRAM")
GENERATOR = os.environ.get("ROVA_GENERATOR")


@pytest.fixture
def state():
    return rova.State.load()


# ---- records ----

# State entities that are tables, read through rova.routes() and the commands rather than
# attribute by attribute.
TABLES = {"Brine::Fib::RouteStatus", "Brine::Fib::ForwardingStatus", "Brine::Fib6::RouteStatus",
          "Brine::Fib6::ForwardingStatus"}


def walk(value, seen, depth=0):
    """Every record reachable from `value` through attributes and collections, by type."""
    name = rova.type_name(value)
    if name not in rova.record_types() or depth > 4:
        return
    seen.setdefault(name, value)
    for attr in dir(value):
        child = getattr(value, attr)
        items = list(child) if isinstance(child, rova.Collection) else [(None, child)]
        for key, item in items:
            for part in (key, item):
                if isinstance(part, rova.Value):
                    walk(part, seen, depth + 1)


def test_every_record_type_reads_as_attributes_and_converts_to_a_dict(state):
    seen = {}
    for path in state.paths():
        walk(state[path], seen)
    for name in ("Rova::RouteSorter", "Rova::Route6Sorter"):
        _, route = next(iter(state.construct(name, vrfName="default").sortedRoute))
        walk(route, seen)
    # The RD inputs live in a directory, which holds entities of any type by name.
    assert sorted(seen) == sorted(set(rova.record_types()) - {"Ip::RouteDistinguisherInput"}), \
        "record types no state path reaches"
    for name, record in seen.items():
        d = record.to_dict()
        assert sorted(d) == sorted(a for a in dir(record) if not callable(getattr(record, a))), \
            name
        for attr, value in d.items():
            got = getattr(record, attr)
            if isinstance(got, rova.Value) and rova.type_name(got) in rova.record_types():
                assert value == got.to_dict(), (name, attr)
            elif isinstance(got, rova.Value):  # an enumeration: its word
                assert value == str(got).strip("'"), (name, attr)
            elif not isinstance(got, rova.Collection):
                assert value == got, (name, attr)
    # Every entity of the state is a record or one of the forwarding tables.
    kinds = {rova.type_name(state[p]) for p in state.paths()}
    assert kinds - set(rova.record_types()) - TABLES <= {"Mox::Dir", "Snapshot::DeviceInfo",
                                                        *unlisted(kinds)}


def unlisted(kinds):
    """Entities of the platform's own tables (ARP, tunnels, counters), which are read through
    the commands: the state holds no attribute list for them."""
    return {k for k in kinds if "Table" in k or k.startswith(("Arp::", "Tunnel::", "Vrf::",
                                                              "FlexCounters::", "Brine::Kernel",
                                                              "NexthopGroup::", "SrTePolicy::",
                                                              "Routing::NexthopGroup::Nexthop"))}


def test_record_attributes_by_name(state):
    config = state["ip/config"]
    eth3 = dict(config.intfConfig)["Ethernet3"]
    assert (eth3.addrWithMask, eth3.vrf) == ("10.2.3.1/24", "default")
    assert config.to_dict()["intfConfig"]["Ethernet3"]["secondaryWithMask"] == ["10.2.4.1/24"]
    _, route = next(iter(state.construct("Rova::RouteSorter", vrfName="default").sortedRoute))
    assert (route.prefix, route.routeType, route.preference) == ("0.0.0.0/0", "eBgp", 200)
    with pytest.raises(AttributeError):
        route.nothing


# ---- rova.routes ----


def test_routes_agree_with_the_listing(state):
    for vrf in state.vrfs():
        for family in (4, 6):
            routes = list(rova.routes(state, vrf=vrf, family=family))
            assert [r.prefix for r in routes] == sorted_prefixes(routes), "prefix order"
            doc = rova.run(state, f"show {'ip' if family == 4 else 'ipv6'} route vrf {vrf}",
                           json=True)
            by_prefix = {r.prefix: r for r in routes}
            for prefix, listed in doc.get("routes", {}).items():
                route = by_prefix[prefix]
                assert rova.route_type(route.routeType, family)["word"] == listed["routeType"]
                for attr in ("preference", "metric", "hardwareProgrammed"):
                    if attr in listed:
                        assert getattr(route, attr) == listed[attr], (prefix, attr)
                # Vias through a next hop are the FEC's own; the listing shows attached and
                # receive routes through the interface of the address instead.
                hops = {(v["nexthopAddr"], v.get("interface")) for v in listed["vias"]
                        if "nexthopAddr" in v and "interface" in v}
                mine = {(v.hop, v.interface) for v in route.fec.via} if route.fec else set()
                # A via through a tunnel is listed through the tunnel's own vias.
                if not any(interface.startswith("DynamicTunnel") for _, interface in mine):
                    assert hops <= mine, prefix


def sorted_prefixes(routes):
    import ipaddress
    return [r.prefix for r in sorted(routes, key=lambda r: (
        ipaddress.ip_network(r.prefix).network_address, ipaddress.ip_network(r.prefix).prefixlen))]


def test_a_route_record_and_its_dict(state):
    routes = list(rova.routes(state))
    route = next(r for r in routes if r.prefix == "10.3.0.0/16")
    assert len(route.fec.via) > 1
    # Routes of one FEC share its record within a walk.
    same = [r for r in routes if r.fecId == route.fecId]
    assert all(r.fec is route.fec for r in same)
    d = route.to_dict()
    assert d["prefix"] == "10.3.0.0/16" and d["fec"]["via"] == [v.to_dict() for v in route.fec.via]
    assert json.loads(json.dumps(d)) == d
    assert route.code == rova.route_type(route.routeType)["code"]
    assert "10.3.0.0/16" in repr(route)


def test_routes_refuse_what_the_command_line_refuses(state):
    with pytest.raises(rova.RangeError, match="VRF 'nope' does not exist"):
        rova.routes(state, vrf="nope")
    with pytest.raises(rova.RangeError, match="family 5"):
        rova.routes(state, family=5)
    with pytest.raises(rova.RangeError, match="bad VRF name"):
        rova.routes(state, vrf="a/b")
    with pytest.raises(rova.RangeError, match="VRF 'nope' does not exist"):
        state.construct("Rova::RouteSummary", vrfName="nope")
    # The VRF an RD is checked for may be one still to be made.
    assert state.construct("Rova::RdAssignmentChecker", vrfName="new",
                           routeDistinguisher="100:9").acceptable


# ---- route type names ----


def test_route_type_names():
    assert rova.route_type("eBgp") == {"name": "eBgp", "number": 22, "code": "B E",
                                       "word": "eBGP", "hostCode": "F", "hostWord": "FIB",
                                       "protocol": "B"}
    assert rova.route_type(12, family=6)["name"] == "bgp"
    assert rova.route_type("receive")["hostCode"] == "R"
    assert [t["name"] for t in rova.route_types(6)][:3] == ["invalid", "receive",
                                                          "receiveLoopback"]
    assert rova.protocol_code("ospfExternalType2") == "O E2"
    assert rova.protocol_code("OSPFv3") == "O"  # the "OSPF" row comes first
    for bad in (lambda: rova.route_type("eBgp", family=6), lambda: rova.route_type(30),
                lambda: rova.route_type(-1), lambda: rova.protocol_code("nothing"),
                lambda: rova.protocol_code("")):
        with pytest.raises(rova.RangeError):
            bad()


# ---- sources ----


def test_the_live_state_shows_and_refuses_configuration(state):
    try:
        live = rova.State.live()
    except rova.LoadError as e:
        pytest.skip(f"no kernel routing state here: {e}")
    assert live.is_live and not state.is_live and live.source == "live"
    assert rova.run(live, "show version").startswith("rova ")
    list(rova.routes(live))
    with pytest.raises(rova.CommandError, match="Configuration is refused in live mode"):
        rova.run(live, "clear static-routes interface Ethernet3")
    # The refusal belongs to the live state only.
    rova.run(state, "clear static-routes interface Ethernet3")
    assert "Ethernet3" not in rova.run(state, "show running-config static-routes")


# ---- verdicts and errors ----


@pytest.mark.parametrize("command,verdict", [
    ("check rd red 100:2", "RD 100:2 already in use by VRF blue"),
    ("check ip address Ethernet5 10.1.2.0/24",
     "Address 10.1.2.0 is already assigned to interface Ethernet2")])
def test_a_refusing_check_answers_with_its_verdict(state, command, verdict):
    assert rova.run(state, command) == verdict + "\n"
    doc = rova.run(state, command, json=True)
    assert doc["acceptable"] is False and verdict in doc.values()
    assert list(rova.run(state, command, lines=True)) == [verdict]
    # A check that cannot run is still an error.
    with pytest.raises(rova.CommandError, match="does not exist"):
        rova.run(state, "check ip nexthop 10.0.0.1 vrf nope")


def test_a_busy_module_says_so(state):
    lines = rova.run(state, "show ip route", lines=True)
    next(lines)
    for call in (lambda: rova.run(state, "show version"), lambda: rova.routes(state),
                 lambda: state.construct("Rova::RouteSummary", vrfName="red")):
        with pytest.raises(rova.BusyError, match="busy: another command is still running") as e:
            call()
        assert not isinstance(e.value, ValueError)
    lines.close()
    assert rova.run(state, "show version").startswith("rova ")


# ---- generated states ----


@pytest.fixture(scope="module")
def generated():
    if not GENERATOR:
        pytest.skip("ROVA_GENERATOR not set")
    with tempfile.TemporaryDirectory() as tmp:
        path = os.path.join(tmp, "gen.json")
        subprocess.run([GENERATOR, "--ipv4", "20000", "--ipv6", "2000", "-o", path], check=True,
                       capture_output=True)
        yield rova.State.load(path), path


def test_lines_across_many_reads_are_the_whole_output(generated):
    """Lines that straddle the pipe's reads come whole, in order, none lost or doubled."""
    state, _ = generated
    whole = rova.run(state, "show ip route detail")
    assert len(whole) > 4 * 65536
    assert "\n".join(rova.run(state, "show ip route detail", lines=True)) + "\n" == whole


@pytest.mark.skipif(not PROGRAM, reason="ROVA_PROGRAM not set")
def test_routes_of_a_generated_state_match_the_program(generated):
    state, path = generated
    listed = json.loads(subprocess.run([PROGRAM, "--state", path, "show", "ip", "route", "json"],
                                       capture_output=True, text=True, check=True).stdout)
    routes = {r.prefix: r for r in rova.routes(state)}
    assert set(listed["routes"]) <= set(routes)
    for prefix, r in listed["routes"].items():
        assert rova.route_type(routes[prefix].routeType)["word"] == r["routeType"], prefix


def test_version():
    assert rova.__version__ and rova.__version__[0].isdigit()
    assert rova.run(rova.State.load(), "show version").startswith("rova " + rova.__version__)


# ---- packaging ----


def public_callables():
    for name, v in vars(rova).items():
        if isinstance(v, type) and not issubclass(v, BaseException):
            for attr, member in vars(v).items():
                if not attr.startswith("_"):
                    yield f"{name}.{attr}", member
        elif callable(v) and not isinstance(v, type):
            yield name, v


def test_every_function_has_a_docstring():
    bare = []
    for name, member in public_callables():
        doc = member.__doc__ or ""
        # pybind11 puts the signature first: a docstring is text after it.
        text = doc.split("\n", 1)[1].strip() if "\n" in doc else (
            "" if callable(member) and "(" in doc.split("\n")[0] else doc)
        if not text:
            bare.append(name)
    assert bare == []


def test_the_stubs_describe_the_module():
    import ast
    stubs = os.path.join(os.path.dirname(rova.__file__), "rova.pyi")
    tree = ast.parse(open(stubs).read())
    defined = {n.name for n in tree.body if isinstance(n, (ast.ClassDef, ast.FunctionDef))}
    public = {n for n in vars(rova) if not n.startswith("_")}
    assert public - defined == set()
    classes = {n.name: {m.name for m in n.body if isinstance(m, ast.FunctionDef)}
               for n in tree.body if isinstance(n, ast.ClassDef)}
    assert {"prefix", "preference", "fec", "to_dict"} <= classes["Route"]
    assert {"load", "live", "construct"} <= classes["State"]


def test_the_stubs_satisfy_mypy():
    pytest.importorskip("mypy")
    with tempfile.TemporaryDirectory() as tmp:
        script = os.path.join(tmp, "use.py")
        with open(script, "w") as f:
            f.write("import rova\n"
                    "s = rova.State.load()\n"
                    "for r in rova.routes(s, vrf='red'):\n"
                    "    print(r.prefix, r.preference)\n"
                    "v: str = rova.__version__\n")
        done = subprocess.run([sys.executable, "-m", "mypy", "--cache-dir", tmp, script],
                              capture_output=True, text=True,
                              env={**os.environ, "MYPYPATH": os.path.dirname(rova.__file__)})
        assert done.returncode == 0, done.stdout + done.stderr


@pytest.mark.skipif(not os.environ.get("ROVA_BUILD_DIR"), reason="ROVA_BUILD_DIR not set")
def test_install_puts_the_tools_in_their_places():
    build = os.environ["ROVA_BUILD_DIR"]
    manifest = os.path.join(build, "install_manifest.txt")
    had_manifest = os.path.exists(manifest)
    try:
        with tempfile.TemporaryDirectory() as prefix:
            subprocess.run(["cmake", "--install", build, "--prefix", prefix], check=True,
                           capture_output=True)
            found = {os.path.relpath(os.path.join(d, f), prefix)
                     for d, _, files in os.walk(prefix) for f in files}
            python = {f for f in found if f.startswith("lib/python3")}
            assert {"bin/rova", "bin/rova-gen", "share/man/man1/rova.1",
                    "share/bash-completion/completions/rova"} <= found
            page = open(os.path.join(prefix, "share/man/man1/rova.1")).read()
            assert ".B show version" in page and "\\-\\-state" in page
            assert "complete -F _rova rova" in open(
                os.path.join(prefix, "share/bash-completion/completions/rova")).read()
            assert any(f.endswith("/rova.pyi") for f in python)
            assert any(os.path.basename(f).startswith("rova.") and f.endswith(".so")
                       for f in python)
            done = subprocess.run([os.path.join(prefix, "bin", "rova"), "show", "version"],
                                  capture_output=True, text=True)
            assert done.stdout.startswith("rova " + rova.__version__)
    finally:
        # cmake --install records what it installed in the build tree; only ours is removed.
        if not had_manifest and os.path.exists(manifest):
            os.remove(manifest)
