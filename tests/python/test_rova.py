"""The rova Python module on the example device: every registered type driven through it, the
commands run from Python against the rova program's own output, and the errors a script sees."""

import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile

import pytest

import rova

PROGRAM = os.environ.get("ROVA_PROGRAM")
EXAMPLES = os.environ.get("ROVA_EXAMPLES", "")


@pytest.fixture
def state():
    return rova.State.load()


def printed(op, *args):
    """What an operation that prints to a file descriptor writes there."""
    with tempfile.TemporaryFile() as f:
        op(f.fileno(), *args)
        f.seek(0)
        return f.read().decode()


def round_trip(v, state=None):
    text = str(v)
    back = rova.Value.parse(text, state)
    assert str(back) == text
    return back


# ---- every registered type, once ----
# Each exercise constructs the type, reads an attribute, calls an operation where it has one
# and takes the value text form there and back where the type has one.

# Value types: constructor inputs, attributes written after, each read back and the value
# taken through its text form.
VALUES = {
    "Rova::CounterIndex": ({"counterIndex": 7, "chipMask": 3}, {}),
    "Rova::CounterEntry": ({"packets": 1, "bytes": 64}, {"packets": 2**64 - 1}),
    "Rova::RouteSortKey": ({"prefix": "10.0.0.0/8", "preference": 200}, {}),
    "Rova::CachedVia": ({}, {"hop": "10.1.1.1", "intfId": "Ethernet1", "isBackup": True}),
    "Rova::CachedLspVia": ({}, {"tunnelIndex": 4}),
    "Rova::AddressQueryResult": ({}, {"acceptable": True, "msg": "x"}),
    "Rova::RovaConsts": ({}, {"defaultStaticRouteName": "core"}),
    "Rova::NexthopInfo": ({}, {"nexthopCmd": "10.0.0.1 Ethernet1"}),
}


def ex_value(type_name):
    def exercise(s):
        inputs, attrs = VALUES[type_name]
        v = rova.construct(type_name, **inputs)
        for name, value in attrs.items():
            setattr(v, name, value)
        for name, value in {**inputs, **attrs}.items():
            assert getattr(v, name) == value, name
        assert round_trip(v) == v
    return exercise


def ex_address_query_params(s):
    params = s.construct("Rova::AddressQueryParams", intfName="Ethernet5",
                         mgmtPrefix="Management", primaryMatch="allowNoMatch",
                         secondaryMatch="allowNoMatch", addrWithMask="10.1.2.0/24")
    assert params.intfName == "Ethernet5"
    assert rova.type_name(params.ipConfig) == "Ip::Config"
    result = rova.construct("Rova::AddressAssignmentChecker").check(params)
    assert (result.acceptable, result.msg) == (
        False, "Address 10.1.2.0 is already assigned to interface Ethernet2")
    params.addrWithMaskIs("10.99.0.1/24")
    assert params.addrWithMask == "10.99.0.1/24"
    assert rova.construct("Rova::AddressAssignmentChecker").check(params).acceptable


def ex_address6_query_params(s):
    params = s.construct("Rova::Address6QueryParams", intfName="Ethernet5",
                         mgmtPrefix="Management", addrWithMask="2001:db8:1:1::1/64")
    result = rova.construct("Rova::Address6AssignmentChecker").check(params=params)
    assert not result.acceptable and "2001:db8:1:1::1" in result.msg
    params.intfNameIs("Ethernet1")
    assert params.intfName == "Ethernet1"


def ex_invalid_next_hop(v6, config, own, free):
    def exercise(s):
        checker = rova.construct("Rova::InvalidNextHop6Checker" if v6 else
                                 "Rova::InvalidNextHopChecker")
        assert checker.check(s[config], own, "default") is True
        by_name = {"ip6Config" if v6 else "ipConfig": s[config], "nexthop": free}
        assert checker.check(vrfName="default", **by_name) is False
    return exercise


def ex_rd_checker(s):
    checker = s.construct("Rova::RdAssignmentChecker", vrfName="red",
                          routeDistinguisher="100:2")
    assert (checker.acceptable, checker.errorMessage) == (
        False, "RD 100:2 already in use by VRF blue")
    checker.handleInitialized()
    assert not checker.acceptable
    # The parsed checker checks again; its input directory reads back from the state.
    back = rova.Value.parse(str(checker), s)
    assert back.errorMessage == "RD 100:2 already in use by VRF blue"
    assert rova.type_name(back.routeDistinguisherInputDir) == "Mox::Dir"


def ex_addr_match_type(s):
    by_name = rova.construct("Rova::AddrMatchType", "allowAddressMatch")
    assert by_name == rova.construct("Rova::AddrMatchType", value=2)
    assert str(by_name) == "'allowAddressMatch'"
    with pytest.raises(rova.RangeError):
        rova.construct("Rova::AddrMatchType", 3)


def sorter(s, v6=False, **inputs):
    inputs.setdefault("vrfName", "red")
    return s.construct("Rova::Route6Sorter" if v6 else "Rova::RouteSorter", **inputs)


def ex_route_sorter(s):
    r = sorter(s)
    prefixes = [prefix for prefix, _ in r.sortedRoute]
    assert "10.23.0.0/16" in prefixes
    assert r.protocolString("10.23.0.0/16") == "B E"
    # Printed by hand, the listing is the command's, byte for byte.
    assert printed(r.printRoutes, 1) == rova.run(s, "show ip route vrf red")
    fec = r.viasForPrefix("10.23.0.0/16")
    assert rova.type_name(fec) == "Rova::CachedFec"


def ex_route6_sorter(s):
    r = sorter(s, v6=True, vrfName="default")
    assert printed(r.printRoutes, 1) == rova.run(s, "show ipv6 route")
    assert r.protocolString("2001:db8:5::/64") == "O3"
    assert r.printCount > 0


def ex_cached_fec(s):
    fec = sorter(s, vrfName="default").viasForPrefix("10.8.0.0/16")
    assert [(via.hop, via.intfId) for via, _ in fec.via] == [("10.2.3.10", "Ethernet3")]
    made = rova.construct("Rova::CachedFec", fecId=fec.fecId)
    assert made.fecId == fec.fecId
    # Printing's own operations: a via, the per-entry columns, the facts.
    via = next(v for v, _ in fec.via)
    assert made.newVia(via, True) and not made.newVia(via, True)
    assert made.newLabel(0, "3000")
    made.labelIs(0, "16")
    made.nexthopAddrIs(1, "10.2.3.10")
    made.numEntriesIs(2)
    assert ([str(v.hop) for v, _ in made.via], [(k, str(v)) for k, v in made.label],
            [k for k, _ in made.nexthopAddr], made.numEntries) == (["10.2.3.10"], [(0, "16")],
                                                                    [1], 2)
    assert made.labelDel(0) and not made.labelDel(0)
    made.viaDelAll()
    assert list(made.via) == []


def summary(s, v6, vrf):
    return s.construct("Rova::Route6Summary" if v6 else "Rova::RouteSummary", vrfName=vrf)


def ex_summary(v6, vrf):
    def exercise(s):
        sm = summary(s, v6, vrf)
        sm.loadInternalStructures()
        sm.loadAttachedRoutes()
        doc = rova.run(s, f"show {'ipv6' if v6 else 'ip'} route vrf {vrf} summary", json=True)
        assert dict(sm.routeCountByType) == doc["routeCountByType"]
        assert {str(k): n for k, n in sm.routeCountByMask} == doc["routeCountByMask"]
        assert sm.totalNumRoutes == doc["totalNumRoutes"]
    return exercise


def ex_static_routes_saver(s):
    saver = rova.construct("Rova::StaticRoutesCliSaver")
    text = saver.save(s["vrf/default/routing/config"], False, "ip route ",
                      rova.construct("Rova::RovaConsts"))
    assert text.startswith("ip route ")
    assert text.strip() in rova.run(s, "show running-config static-routes")


def ex_static_routes_rib(s):
    rib = s.construct("Rova::StaticRoutesRibCommon")
    assert rib.newRouteInputConf(s["vrf/default/routing/config"], False)
    rib.fmt = 1
    assert "10.8.0.0/16" in printed(lambda fd: (setattr(rib, "fd", fd),
                                                rib.dump(rova.construct("Rova::RovaConsts"))))
    assert rib.legend()


def ex_clear_intf_routes(s):
    before = rova.run(s, "show running-config static-routes")
    assert "Ethernet3" in before
    helper = rova.construct("Rova::ClearIntfRoutesAndViasHelper")
    helper.clearIntfRoutesAndViasHelper(s["vrf/default/routing/config"], "Ethernet3")
    after = rova.run(s, "show running-config static-routes")
    assert "Ethernet3" not in after and after != before


def nexthop_group_counters(s):
    c = rova.construct("Rova::NexthopGroupCounterHelper")
    c.mountCounterBrines(s.entity_manager)
    c.counterEnabled = True
    return c


def ex_nexthop_group_counter_helper(s):
    c = nexthop_group_counters(s)
    # Entry 0 of NHG-A: 1000 packets now, 400 at the last clear.
    e = c.getCounters(1, 0)
    assert (e.packets, e.bytes) == (600, 76800)
    assert (c.getCounters(1, 3).packets, c.getCounters(99, 0).bytes) == (0, 0)


def ex_nexthop_group_cli_counter_interface(s):
    base = rova.construct("Rova::NexthopGroupCliCounterInterface")
    assert str(base) == "Value('Rova::NexthopGroupCliCounterInterface', ** {})"
    with pytest.raises(rova.InternalError):
        base.getCounters(rova.construct("Rova::CounterIndex", counterIndex=1, chipMask=1))


def ex_nexthop_group_summary_helper(s):
    summary = s.construct("Rova::NexthopGroupSummaryHelper")
    summary.vrfName = "default"
    assert printed(summary.render, 1) == rova.run(s, "show nexthop-group summary")
    summary.processNexthopGroups()
    assert sum(count for _, count in summary.nhgPerSize) > 0


def ex_nexthop_group_helper(s):
    helper = s.construct("Rova::NexthopGroupHelper", counterHelper=nexthop_group_counters(s),
                         nhgName="NHG-A")
    helper.vrfName = "default"
    helper.processNexthopVias()
    assert printed(helper.render, 1) == rova.run(s, "show nexthop-group NHG-A")


EXERCISES = {
    "Rova::NexthopGroupCounterHelper": ex_nexthop_group_counter_helper,
    "Rova::NexthopGroupCliCounterInterface": ex_nexthop_group_cli_counter_interface,
    "Rova::NexthopGroupSummaryHelper": ex_nexthop_group_summary_helper,
    "Rova::NexthopGroupHelper": ex_nexthop_group_helper,
    "Rova::Address6QueryParams": ex_address6_query_params,
    "Rova::Route6Sorter": ex_route6_sorter,
    "Rova::StaticRoutesRibCommon": ex_static_routes_rib,
    "Rova::AddressAssignmentChecker": ex_address_query_params,
    "Rova::AddressQueryParams": ex_address_query_params,
    "Rova::InvalidNextHop6Checker": ex_invalid_next_hop(True, "ip6/config", "2001:db8:100::2",
                                                        "2001:db8:100::9"),
    "Rova::Address6AssignmentChecker": ex_address6_query_params,
    "Rova::StaticRoutesCliSaver": ex_static_routes_saver,
    "Rova::RouteSummary": ex_summary(False, "red"),
    "Rova::InvalidNextHopChecker": ex_invalid_next_hop(False, "ip/config", "10.2.3.1",
                                                       "10.2.3.77"),
    "Rova::AddrMatchType": ex_addr_match_type,
    "Rova::RouteSorter": ex_route_sorter,
    "Rova::RdAssignmentChecker": ex_rd_checker,
    "Rova::Route6Summary": ex_summary(True, "default"),
    "Rova::CachedFec": ex_cached_fec,
    "Rova::ClearIntfRoutesAndViasHelper": ex_clear_intf_routes,
    **{type_name: ex_value(type_name) for type_name in VALUES},
}


def test_every_registered_type_has_an_exercise():
    missing = [t for t in rova.types() if t not in EXERCISES]
    assert missing == [], "registered types the Python suite does not drive"


@pytest.mark.parametrize("type_name", sorted(EXERCISES))
def test_type_through_the_module(type_name, state):
    EXERCISES[type_name](state)


# ---- type descriptions ----


def test_type_info_matches_show_type(state):
    for name in ("Rova::RouteSorter", "Rova::AddrMatchType", "Rova::CachedFec"):
        assert rova.type_info(name) == rova.run(state, f"show type {name}", json=True)


def test_inputs_the_constructor_does_not_take_are_written_after_it(state):
    assert str(state.construct("Rova::NexthopGroupSummaryHelper", vrfName="red").vrfName) == "red"
    assert rova.construct("Rova::NexthopGroupCounterHelper", counterEnabled=True).counterEnabled
    with pytest.raises(rova.RangeError, match="has no constructor input 'bogus'"):
        rova.construct("Rova::NexthopGroupCounterHelper", bogus=1)


def test_type_info_of_a_factory_built_type():
    fec = {a["name"]: a for a in rova.type_info("Rova::CachedFec")["attributes"]}
    assert fec["via"]["kind"] == "collection" and fec["via"]["keyType"] != ""
    assert rova.type_info("Rova::CachedFec")["constructedBy"] == "cachedFecFactory"
    with pytest.raises(rova.RangeError, match="unknown type 'Rova::Nothing'"):
        rova.type_info("Rova::Nothing")


# ---- attributes and collections ----


def test_values_keep_value_semantics():
    a = rova.construct("Rova::CounterEntry", 1, 2)
    b = rova.Value.parse(str(a))
    b.bytes = 3
    assert a.bytes == 2 and a != b


def test_unknown_and_read_only_attributes(state):
    v = rova.construct("Rova::CounterEntry", packets=1, bytes=2)
    assert not hasattr(v, "nothing")
    with pytest.raises(AttributeError, match="Rova::CounterEntry has no attribute"):
        v.nothing = 1
    checker = state.construct("Rova::RdAssignmentChecker", vrfName="red",
                              routeDistinguisher="100:1")
    with pytest.raises(rova.RangeError, match="errorMessage is not writable"):
        checker.errorMessage = "x"
    assert set(dir(checker)) >= {"vrfName", "acceptable", "handleInitialized"}


# ---- construction refusals ----


def test_named_construction_refusals(state):
    """What the registry refuses is checked in C++; here, what Python's arguments bring."""
    with pytest.raises(rova.RangeError, match="argument 'packets': expected U64"):
        rova.construct("Rova::CounterEntry", packets=-1, bytes=2)
    with pytest.raises(rova.RangeError, match="in order or by name, not both"):
        rova.construct("Rova::CounterEntry", 1, bytes=2)
    with pytest.raises(rova.RangeError, match="VrfName::bytes > 100 not allowed"):
        summary(state, False, "v" * 101)
    with pytest.raises(TypeError):
        rova.construct("Rova::CounterEntry", packets=[1], bytes=2)


def test_operation_argument_refusals():
    checker = rova.construct("Rova::InvalidNextHopChecker")
    with pytest.raises(rova.RangeError, match="needs the argument 'nexthop'"):
        checker.check(None)
    with pytest.raises(rova.RangeError, match="has no argument 'hop'"):
        checker.check(None, "10.0.0.1", "default", hop=1)
    with pytest.raises(rova.RangeError, match="argument 'nexthop'"):
        checker.check(None, "10.0.0.300", "default")


def test_a_record_by_path_or_from_the_state(state):
    by_path = state.construct("Rova::RouteSummary", vrfName="red",
                              routingStatus="vrf/blue/fib/route")
    by_path.loadInternalStructures()
    blue = summary(state, False, "blue")
    blue.loadInternalStructures()
    assert by_path.totalNumRoutes == blue.totalNumRoutes
    with pytest.raises(rova.RangeError, match="argument 'routingStatus'"):
        state.construct("Rova::RouteSummary", vrfName="red", routingStatus="vrf/red/fib6/route")


# ---- text form ----


def test_text_that_is_not_utf8_reads_with_replacement_characters():
    v = rova.Value.parse("Value('Rova::AddressQueryResult', ** {'acceptable': True, "
                         "'msg': '\\xff\\xc3'})")
    assert v.msg == "\ufffd\ufffd"
    assert "\ufffd" in str(v)


def test_text_refusals_name_the_attribute():
    with pytest.raises(rova.RangeError, match="counterIndex"):
        rova.Value.parse("Value('Rova::CounterIndex', ** {'counterIndex': x, 'chipMask': 1})")


# ---- commands ----


def program(*words, state_file=None):
    args = [PROGRAM] + (["--state", state_file] if state_file else []) + list(words)
    return subprocess.run(args, capture_output=True, text=True)


@pytest.mark.skipif(not PROGRAM, reason="ROVA_PROGRAM not set")
@pytest.mark.parametrize("command", ["show ip route vrf red", "show ipv6 route detail",
                                     "show ip route summary", "show static-routes"])
def test_run_gives_what_the_program_writes(state, command):
    words = command.split()
    assert rova.run(state, command) == program(*words).stdout
    assert rova.run(state, command, json=True) == json.loads(program(*words, "json").stdout)


@pytest.mark.skipif(not PROGRAM, reason="ROVA_PROGRAM not set")
@pytest.mark.parametrize("command,status", [("show ip route vrf nope", 1),
                                            ("show ip route vrf json", 1),
                                            ("show ip rout foo", 2)])
def test_failed_commands_raise_the_programs_message(state, command, status):
    done = program(*command.split())
    with pytest.raises(rova.CommandError) as e:
        rova.run(state, command)
    assert e.value.status == done.returncode == status
    assert str(e.value) == (done.stderr or done.stdout).rstrip("\n")
    with pytest.raises(rova.CommandError) as e:
        rova.run(state, command, json=True)
    assert e.value.output == json.loads(program(*command.split(), "json").stdout)


def test_lines_stream_the_same_output(state):
    whole = rova.run(state, "show ip route detail")
    lines = list(rova.run(state, "show ip route detail", lines=True))
    assert "\n".join(lines) + "\n" == whole
    doc = json.loads("\n".join(rova.run(state, "show ip route", json=True, lines=True)))
    assert doc == rova.run(state, "show ip route json", json=True)
    with pytest.raises(rova.CommandError, match="VRF 'nope' does not exist"):
        list(rova.run(state, "show ip route vrf nope", lines=True))  # at the end of its lines


def test_one_command_at_a_time(state):
    lines = rova.run(state, "show ip route", lines=True)
    next(lines)
    with pytest.raises(rova.BusyError, match="another command is still running"):
        rova.run(state, "show version")
    lines.close()
    assert rova.run(state, "show version").startswith("rova ")
    with rova.run(state, "show ip route", lines=True) as more:
        next(more)
    assert rova.run(state, "show version").startswith("rova ")


def test_states_are_separate(state):
    other = rova.State.load(os.path.join(EXAMPLES, "leaf1.json"))
    rova.run(other, "clear static-routes interface Ethernet3")
    assert "Ethernet3" not in rova.run(other, "show running-config static-routes")
    assert "Ethernet3" in rova.run(state, "show running-config static-routes")


def test_load_errors():
    with pytest.raises(rova.LoadError, match="Cannot load state /nonexistent.json: No such file"):
        rova.State.load("/nonexistent.json")
    with tempfile.NamedTemporaryFile("w", suffix=".json") as f:
        f.write('{"vrfs": 1}')
        f.flush()
        with pytest.raises(rova.LoadError, match=r"\$\.vrfs"):
            rova.State.load(f.name)


# A child interpreter loads a state again and again while another process cuts the file short
# and writes it over in place; it reports what each load gave.
LOADER = """
import sys, rova
path, prefix = sys.argv[1], "Cannot load state " + sys.argv[1] + ": "
seen = set()
for _ in range(60):
    try:
        rova.State.load(path)
        seen.add("loaded")
    except rova.LoadError as e:
        assert str(e).startswith(prefix), str(e)
        seen.add(str(e)[len(prefix):])
print(sorted(seen))
"""

SCRIBBLER = """
import os, sys
path, docs = sys.argv[1], [open(f, "rb").read() for f in sys.argv[2:]]
while True:
    for doc in docs:
        os.truncate(path, len(doc) // 3)
        with open(path, "r+b") as f:
            f.write(doc)
"""


def test_a_state_file_changed_while_it_loads_is_refused_not_fatal():
    """A file cut short under the loader once ended the whole interpreter (status 2, no
    exception); one written over in place sent the reader past the document. Every load now
    gives a state or a rova.LoadError, and the interpreter lives on."""
    text = open(os.path.join(EXAMPLES, "leaf1.json")).read().strip()
    pad = " " * (8 << 20)  # large enough that a load takes a while
    with tempfile.TemporaryDirectory() as tmp:
        docs = [os.path.join(tmp, name) for name in ("a.json", "b.json")]
        # The same size, the document at either end: a mix of the two is no document.
        for name, doc in zip(docs, ("{" + pad + text[1:], text + pad)):
            with open(name, "w") as f:
                f.write(doc)
        path = os.path.join(tmp, "state.json")
        with open(path, "w") as f:
            f.write(text + pad)
        scribbler = subprocess.Popen([sys.executable, "-c", SCRIBBLER, path, *docs])
        try:
            done = subprocess.run([sys.executable, "-c", LOADER, path], capture_output=True,
                                  text=True, timeout=120)
        finally:
            scribbler.kill()
            scribbler.wait()
    assert done.returncode == 0, done.stderr
    # A copy taken while the other process wrote is refused as changed, or at worst (a write
    # that stalled across both reads) as the malformed document it is, at its place ("$...").
    allowed = {"loaded", "the file was cut short while it was read",
               "the file changed while it was read"}
    assert all(seen in allowed or seen.startswith("$") for seen in eval(done.stdout)), done.stdout


def test_an_interrupt_between_commands_stops_none_of_them(state):
    """^C that the script took as KeyboardInterrupt, or that stopped a command whose output
    was all written, must not stop the next, unrelated command."""
    red = rova.run(state, "show ip route vrf red")  # the printer's signal handlers are in place
    with pytest.raises(KeyboardInterrupt):
        signal.raise_signal(signal.SIGINT)
    assert rova.run(state, "show version").startswith("rova ")
    lines = rova.run(state, "show ip route", lines=True)
    next(lines)
    with pytest.raises(KeyboardInterrupt):
        signal.raise_signal(signal.SIGINT)
    try:
        list(lines)
    except (KeyboardInterrupt, rova.CommandError):
        pass  # the command saw the signal too, or had finished before it
    assert rova.run(state, "show ip route vrf red") == red


def test_names_the_command_line_refuses_are_refused(state):
    """The module takes the names the command line and the loader take, by the same rule."""
    with pytest.raises(rova.LoadError, match="Cannot load state '': empty file name"):
        rova.State.load("")
    with pytest.raises(rova.LoadError, match="cannot hold a NUL byte"):
        rova.State.load(os.path.join(EXAMPLES, "leaf1.json") + "\0x")
    with pytest.raises(rova.LoadError, match="No such file"):
        rova.State.load("\udc80")  # a file name that is not UTF-8, as open() names it
    assert "blue" in rova.State.load(os.path.join(EXAMPLES, "leaf1.json").encode()).vrfs()
    long_name = "Ethernet" + "1" * 57
    with pytest.raises(rova.RangeError, match=r"argument 'intfName': bad interface name .*"
                                              r"\(1 to 64 printable characters without blanks\)"):
        state.construct("Rova::AddressQueryParams", intfName=long_name, mgmtPrefix="M",
                        primaryMatch=0, secondaryMatch=0, addrWithMask="10.0.0.1/24")
    with pytest.raises(rova.RangeError, match="bad interface name"):
        rova.construct("Rova::ClearIntfRoutesAndViasHelper").clearIntfRoutesAndViasHelper(
            state["vrf/default/routing/config"], long_name)
    with pytest.raises(rova.RangeError, match="bad interface name"):
        rova.construct("Rova::CachedVia").intfId = "Ethernet 1"
    assert len(long_name[:-1]) == 64
    rova.construct("Rova::CachedVia").intfId = long_name[:-1]
    with pytest.raises(rova.RangeError, match=r"argument 'vrfName': bad VRF name 'a\\x00b'"):
        summary(state, False, "a\x00b")
    with pytest.raises(rova.RangeError, match="bad VRF name"):
        rova.construct("Rova::InvalidNextHopChecker").check(None, "10.0.0.1", "red/blue")
    with pytest.raises(rova.CommandError, match="control characters are not allowed"):
        rova.run(state, "show ip route vrf a\x00b")
    # A lone surrogate has no UTF-8 form: a refused value, not a failed conversion.
    for call in (lambda: rova.run(state, "show ip route vrf \udc80"),
                 lambda: summary(state, False, "\udc80"),
                 lambda: rova.construct("Rova::AddressQueryResult", msg="\ud800"),
                 lambda: rova.Value.parse("\udc80")):
        with pytest.raises(rova.RangeError, match="not valid Unicode"):
            call()


def test_an_empty_command_is_refused(state):
    with pytest.raises(rova.RangeError, match="no command given"):
        rova.run(state, "   ")


def test_an_assertion_is_an_internal_error(state):
    r = sorter(state)
    with pytest.raises(rova.InternalError, match="kFormatText"):
        printed(r.printRoutes, 3)
    # The module goes on working after one.
    assert printed(r.printRoutes, 1) == rova.run(state, "show ip route vrf red")


def test_missing_state_records_never_crash(state):
    """A script may pass None where a command always passes a record; every such call either
    answers or raises rova.Error."""
    consts = rova.construct("Rova::RovaConsts")
    calls = [
        lambda: rova.construct("Rova::StaticRoutesCliSaver").save(None, False, "ip route ",
                                                                  consts),
        lambda: rova.construct("Rova::InvalidNextHopChecker").check(None, "10.0.0.1", "default"),
        lambda: rova.construct("Rova::InvalidNextHop6Checker").check(None, "::1", "default"),
        lambda: rova.construct("Rova::ClearIntfRoutesAndViasHelper").clearIntfRoutesAndViasHelper(
            None, "Ethernet1"),
        lambda: rova.construct("Rova::RdAssignmentChecker", None, "red", "1:1"),
        lambda: rova.construct("Rova::StaticRoutesRibCommon", None).newRouteInputConf(None, False),
        lambda: printed(lambda fd: (lambda rib: (setattr(rib, "fd", fd), setattr(rib, "fmt", 2),
                                                 rib.dump(consts)))(
            rova.construct("Rova::StaticRoutesRibCommon", None))),
        lambda: rova.construct("Rova::AddressAssignmentChecker").check(rova.construct(
            "Rova::AddressQueryParams", None, "Ethernet1", "M", 0, 0, "10.0.0.1/24")),
        lambda: rova.construct("Rova::Address6AssignmentChecker").check(rova.construct(
            "Rova::Address6QueryParams", None, "Ethernet1", "M", "2001:db8::1/64")),
        lambda: rova.construct("Rova::RouteSummary", routingStatus=None,
                               vrfName="red").loadInternalStructures(),
    ]
    for v6 in (False, True):
        inputs = {i["name"]: None for i in rova.type_info(
            "Rova::Route6Sorter" if v6 else "Rova::RouteSorter")["constructorInputs"]
            if i["type"] not in ("bool", "U32", "S32", "double", "Mox::String8", "L3::VrfName",
                                 "Plexa::Prefix", "Plexa::Ip6Prefix")}
        for fmt in (1, 2):
            calls.append(lambda v6=v6, fmt=fmt, inputs=inputs: printed(
                sorter(state, v6, **inputs).printRoutes, fmt))
        calls.append(lambda v6=v6, inputs=inputs: sorter(state, v6, host=True, **inputs).legend())
    for call in calls:
        try:
            call()
        except rova.Error:
            pass


def drain(coll, doomed):
    """Walks a collection, deleting the entries `doomed` picks; returns what the walk saw."""
    seen = []
    it = iter(coll)
    for key, value in it:
        seen.append(key)
        if doomed(key):
            it.delete_current()
    return seen


def test_delete_current_on_every_collection_kind(state):
    r = sorter(state, vrfName="default")
    printed(r.printRoutes, 1)  # fills each cached FEC's per-entry maps
    fec = next(f for _, f in r.fec if len(list(f.nexthopAddr)) > 1)
    sm = summary(state, False, "default")
    sm.loadInternalStructures()
    ecmp = sorter(state, vrfName="default").viasForPrefix("10.3.0.0/16")
    kinds = {
        "ordered map": (sm, "routeCountByMask"),
        "hash map": (sm, "routeCountByType"),
        "sorted array": (r, "sortedRoute"),
        "dense map": (fec, "nexthopAddr"),
        "ordered set": (ecmp, "via"),
    }
    for kind, (owner, name) in kinds.items():
        before = [k for k, _ in getattr(owner, name)]
        assert len(before) > 1, kind
        # Every other entry, the first included: deleting never skips the entry after it.
        doomed = set(before[::2]) if kind != "ordered set" else {str(before[0])}
        pick = (lambda k: str(k) in doomed) if kind == "ordered set" else (lambda k: k in doomed)
        assert drain(getattr(owner, name), pick) == before, kind
        assert [k for k, _ in getattr(owner, name)] == [k for k in before if not pick(k)], kind
    with pytest.raises(rova.RangeError, match="no current entry"):
        iter(sm.routeCountByType).delete_current()
    # The entry after a deleted one has not been given yet: it cannot be deleted in its place.
    keys = [k for k, _ in r.sortedRoute]
    it = iter(r.sortedRoute)
    next(it)
    it.delete_current()
    with pytest.raises(rova.RangeError, match="no current entry"):
        it.delete_current()
    assert next(it)[0] == keys[1]
    assert [k for k, _ in r.sortedRoute] == keys[1:]


def test_iterators_stop_when_their_collection_changes_under_them(state):
    """Only an iterator's own delete_current() keeps it going: a collection cleared, the
    current key deleted or another iterator's deletions raise instead of reading freed
    entries (each of these crashed the interpreter)."""
    def vias():
        return sorter(state, vrfName="default").viasForPrefix("10.3.0.0/16")

    fec = vias()
    with pytest.raises(rova.CollectionChangedError, match=r"Rova::CachedFec::via changed"):
        for _ in fec.via:
            fec.viaDelAll()
    fec = vias()
    with pytest.raises(rova.CollectionChangedError):
        for via, _ in fec.via:
            fec.viaDel(via)
    nhg = state.construct("Rova::NexthopGroupSummaryHelper", vrfName="default")
    nhg.processNexthopGroups()
    sizes = [k for k, _ in nhg.nhgPerType]
    assert len(sizes) > 1
    first, second = iter(nhg.nhgPerType), iter(nhg.nhgPerType)
    next(second)
    for _ in first:
        first.delete_current()
    with pytest.raises(rova.CollectionChangedError) as e:
        next(second)
    assert isinstance(e.value, RuntimeError) and isinstance(e.value, rova.Error)
    with pytest.raises(rova.CollectionChangedError):
        second.delete_current()
    # Adding counts too, and a new iterator walks what is there now.
    walk = iter(nhg.nhgPerType)
    nhg.newNhgPerType(sizes[0], 1)
    with pytest.raises(rova.CollectionChangedError):
        next(walk)
    assert list(nhg.nhgPerType) == [(sizes[0], 1)]


def test_the_documented_example_runs(capsys):
    """The example script of docs/python.md, as a reader would paste it."""
    doc = open(os.path.join(os.path.dirname(__file__), "..", "..", "docs", "python.md")).read()
    script = doc.split("```python\n", 1)[1].split("```", 1)[0]
    exec(compile(script, "docs/python.md", "exec"), {})
    out = capsys.readouterr().out
    assert "10.23.0.0/16 B E [('10.20.4.254', 'Ethernet4')]" in out
    assert "refused: Subnet 10.2.0.0 overlaps with existing subnet 10.2.3.0 of interface " \
        "Ethernet3" in out


# ---- configuration lines and sessions ----

def static_routes(s):
    return rova.run(s, "show running-config static-routes")


def test_configuration_lines_apply_at_once_and_a_refusal_names_its_line(state):
    rova.configure(state, "interface Ethernet5\n   ip address 10.77.0.1/24\n!\nhostname lab")
    assert "ip address 10.77.0.1/24" in rova.run(state, "show running-config interface Ethernet5")
    with pytest.raises(rova.CommandError) as e:
        rova.configure(state, ["ip route 10.97.0.0/16 10.1.1.9", "ip route 10.98.0.0/16 10.77.0.1"])
    assert str(e.value) == ("line 2 'ip route 10.98.0.0/16 10.77.0.1': Next hop 10.77.0.1 is an "
                            "address of this router in VRF default")
    assert e.value.status == 1
    # The line before the refused one stays, as in configuration mode.
    assert "ip route 10.97.0.0/16 10.1.1.9" in static_routes(state)
    # The module is out of configuration mode again: a command runs as ever.
    assert rova.run(state, "show version").startswith("rova")


def test_a_session_commits_whole_or_nothing(state):
    before = static_routes(state)
    rova.configure(state, ["ip route 10.99.0.0/16 10.1.1.9"], session="py")
    assert static_routes(state) == before
    assert "+ip route 10.99.0.0/16 10.1.1.9" in rova.session_diff(state, "py").splitlines()
    rova.configure(state, ["ip route 10.98.0.0/16 10.0.0.11"], session="py")
    with pytest.raises(rova.CommandError) as e:
        rova.commit(state, "py")
    assert "line 2 'ip route 10.98.0.0/16 10.0.0.11'" in str(e.value)
    assert static_routes(state) == before
    rova.abort(state, "py")
    rova.configure(state, ["ip route 10.99.0.0/16 10.1.1.9"], session="py")
    rova.commit(state, "py")
    assert "ip route 10.99.0.0/16 10.1.1.9" in static_routes(state)


AGENT = os.environ.get("ROVA_AGENT")


@pytest.mark.skipif(not AGENT, reason="ROVA_AGENT names no rova-agent")
def test_an_attached_state_reads_the_agents_tables_as_a_loaded_one():
    example = os.path.join(os.environ["ROVA_EXAMPLES"], "leaf1.json")
    name = f"test-python-{os.getpid()}"
    agent = subprocess.Popen([AGENT, "--state", example, "--name", name],
                             stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    try:
        assert agent.stdout.readline().startswith("rova-agent: ready:")
        attached = rova.State.attach(name)
        loaded = rova.State.load(example)
        for command in ("show ip route", "show ipv6 route detail", "show nexthop-group"):
            assert rova.run(attached, command) == rova.run(loaded, command)
        assert attached.vrfs() == loaded.vrfs()
    finally:
        agent.terminate()
        agent.wait()
        if os.path.exists(f"/dev/shm/rova-agent.{name}"):
            os.unlink(f"/dev/shm/rova-agent.{name}")
    with pytest.raises(rova.LoadError, match=f"Cannot attach: the state agent '{name}' is not running"):
        rova.State.attach(name)


@pytest.mark.skipif(not AGENT, reason="ROVA_AGENT names no rova-agent")
def test_configuration_of_an_attached_state_is_the_agents_and_every_reader_sees_it(tmp_path):
    example = os.path.join(os.environ["ROVA_EXAMPLES"], "leaf1.json")
    copy = tmp_path / "agent.json"
    shutil.copyfile(example, copy)
    loaded = rova.State.load(example)
    name = f"test-python-changes-{os.getpid()}"
    agent = subprocess.Popen([AGENT, "--state", str(copy), "--name", name],
                             stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    try:
        assert agent.stdout.readline().startswith("rova-agent: ready:")
        attached = rova.State.attach(name)
        other = rova.State.attach(name)
        lines = ["ip route 10.97.0.0/16 10.1.1.9", "interface Ethernet5", "ip address 10.77.0.1/24"]
        rova.configure(attached, lines)
        rova.configure(loaded, lines)
        assert static_routes(other) == static_routes(loaded)
        assert rova.run(other, "show ip route") == rova.run(loaded, "show ip route")
        # A refusal reads as on a loaded state; a session with it changes nothing.
        refusals = []
        for s in (attached, loaded):
            with pytest.raises(rova.CommandError) as e:
                rova.configure(s, ["ip route 10.98.0.0/16 10.77.0.1"])
            refusals.append((str(e.value), e.value.status))
        assert refusals[0] == refusals[1]
        before = static_routes(other)
        refusals = []
        for s in (attached, loaded):
            rova.configure(s, ["ip route 10.99.0.0/16 Null0", "ip route vrf nosuch 1.0.0.0/8 Null0"],
                           session="py")
            with pytest.raises(rova.CommandError) as e:
                rova.commit(s, "py")
            refusals.append((str(e.value), e.value.status))
        assert refusals[0] == refusals[1]
        assert "line 2 'ip route vrf nosuch 1.0.0.0/8 null0'" in refusals[0][0]
        assert static_routes(other) == before
    finally:
        agent.terminate()
        agent.wait()
        for leftover in (f"/dev/shm/rova-agent.{name}", f"/dev/shm/rova-changes.{name}"):
            if os.path.exists(leftover):
                os.unlink(leftover)
