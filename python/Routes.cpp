// rova.routes(): a VRF's routes of one family, in prefix order, as records with attributes.
//
// The route records are copied and sorted when the walk starts; each FEC is read from its table
// the first time a route uses it and shared by every route that uses it after, so a full table
// with few FECs costs one small object per route.

#include "python/Routes.h"

#include <algorithm>
#include <array>
#include <memory>
#include <unordered_map>
#include <vector>

#include "lib/registry/RouteTypeNames.h"
#include "platform/brine/Fib.h"
#include "snapshot/StateLayout.h"

namespace rovapy {

namespace {

struct PyVia {
  py::object hop, interface, weight, label, tunnelId;
  bool backup = false;
};

struct PyFec {
  py::object fecId, via, backupViaIndex;
};

struct PyRoute {
  py::object prefix, routeType, code, fecId, metric, preference, hardwareProgrammed, fec;
};

py::dict viaDict(const PyVia& v) {
  py::dict d;
  d["hop"] = v.hop;
  d["interface"] = v.interface;
  d["weight"] = v.weight;
  d["label"] = v.label;
  d["tunnelId"] = v.tunnelId;
  d["backup"] = v.backup;
  return d;
}

py::dict fecDict(const PyFec& f) {
  py::dict d;
  d["fecId"] = f.fecId;
  py::list vias;
  for (py::handle v : f.via)
    vias.append(viaDict(v.cast<const PyVia&>()));
  d["via"] = vias;
  d["backupViaIndex"] = f.backupViaIndex;
  return d;
}

py::dict routeDict(const PyRoute& r) {
  py::dict d;
  d["prefix"] = r.prefix;
  d["routeType"] = r.routeType;
  d["code"] = r.code;
  d["fecId"] = r.fecId;
  d["metric"] = r.metric;
  d["preference"] = r.preference;
  d["hardwareProgrammed"] = r.hardwareProgrammed;
  d["fec"] = r.fec.is_none() ? py::object(py::none()) : fecDict(r.fec.cast<const PyFec&>());
  return d;
}

template <class T>
std::string reprOf(const char* name, const T& record, py::dict (*dict)(const T&)) {
  return std::string("rova.") + name + "(" + py::str(py::repr(dict(record))).cast<std::string>() +
         ")";
}

// The walk, one family's records behind one interface.
class RouteWalk {
 public:
  virtual ~RouteWalk() = default;
  // The next route, or null at the end.
  virtual py::object next() = 0;
};

template <class Fam>
class FamilyWalk final : public RouteWalk {
  using Entities = Snapshot::layout::FamilyEntities<Fam>;
  using RouteTable =
      std::remove_const_t<typename std::remove_reference_t<decltype(*Snapshot::layout::find(
          std::declval<const Statum::EntityManager&>(), Entities::routes, ""))>>;
  using FecTable =
      std::remove_const_t<typename std::remove_reference_t<decltype(*Snapshot::layout::find(
          std::declval<const Statum::EntityManager&>(), Entities::fecs, ""))>>;
  using Route = typename RouteTable::Record;
  using Fec = typename FecTable::Record;

 public:
  FamilyWalk(const PyState& s, const std::string& vrf, int family) : state_(s) {
    if (auto table = Snapshot::layout::find(*s.em, Entities::routes, vrf)) {
      routes_.reserve(table->size());
      // A corrupt record is reported through its table and left out, as a listing does.
      for (auto it = table->begin(); it != table->end(); ++it) {
        try {
          routes_.push_back(*it);
        } catch (const Velt::CorruptionDetectedException& e) {
          table->corruptionDetected(e.what());
        }
      }
      routeTable_ = table;
    }
    fecs_ = Snapshot::layout::find(*s.em, Entities::fecs, vrf);
    fecs6_ = Snapshot::layout::find(*s.em, Snapshot::layout::fib6Fec, vrf);
    std::sort(routes_.begin(), routes_.end(),
              [](const Route& a, const Route& b) { return a.prefix < b.prefix; });
    for (const Rova::RouteTypeNames& n : Rova::routeTypes(family)) {
      names_[n.number] = py::str(n.name);
      codes_[n.number] = py::str(n.code);
    }
  }

  py::object next() override {
    if (at_ >= routes_.size()) return py::object();
    const Route& r = routes_[at_++];
    char text[64];
    char* end = r.prefix.write(text);
    PyRoute out;
    out.prefix = py::str(text, static_cast<std::size_t>(end - text));
    const auto type = static_cast<std::size_t>(r.routeType);
    out.routeType = type < names_.size() && names_[type] ? names_[type] : py::str("");
    out.code = type < codes_.size() && codes_[type] ? codes_[type] : py::str("");
    out.fecId = py::int_(r.fecId.value());
    out.metric = py::int_(r.metric);
    out.preference = py::int_(r.preference);
    out.hardwareProgrammed = py::bool_(r.hardwareProgrammed);
    out.fec = fec(r.fecId);
    return py::cast(std::move(out));
  }

 private:
  // The FEC as a record, made once per walk; None when the table has no such FEC. An IPv4
  // route may be forwarded by an IPv6 FEC, which its id says.
  py::object fec(Brine::Fib::FecId id) {
    auto [it, added] = fecCache_.try_emplace(id.value());
    if (!added) return it->second;
    // A command running from another thread (an open iterator of lines) may be changing the
    // tables: the read waits for no one, it is refused as busy.
    auto lock = commandLock();
    try {
      if constexpr (std::is_same_v<Fam, Routing::V4>) {
        if (Brine::Fib::isV6FecId(id)) return it->second = read(fecs6_, id);
      }
      return it->second = read(fecs_, id);
    } catch (...) {
      fecCache_.erase(it);
      throw;
    }
  }

  template <class Table>
  static py::object read(const Mox::Ptr<Table const>& table, Brine::Fib::FecId id) {
    if (!table || !table->contains(id)) return py::none();
    typename Table::Record f;
    try {
      f = table->lookup(id);
    } catch (const Velt::CorruptionDetectedException& e) {
      table->corruptionDetected(e.what());
      return py::none();
    }
    PyFec out;
    out.fecId = py::int_(id.value());
    out.backupViaIndex = py::int_(f.backupViaIndexValue);
    py::list vias(f.via.size());
    for (std::size_t i = 0; i < f.via.size(); ++i) {
      const auto& v = f.via[i];
      PyVia via;
      via.hop = py::str(v.hop.stringValue());
      via.interface =
          v.intfId.isEmpty() ? py::object(py::none()) : py::object(py::str(v.intfId.stringValue()));
      via.weight = py::int_(v.weight);
      via.label = v.labelValue == Plexa::MplsLabel::kNoLabel ? py::object(py::none())
                                                             : py::object(py::int_(v.labelValue));
      via.tunnelId =
          v.tunnelIdValue == 0 ? py::object(py::none()) : py::object(py::int_(v.tunnelIdValue));
      via.backup = f.backupViaIndexValue != 0 && i >= f.backupViaIndexValue;
      vias[i] = py::cast(std::move(via));
    }
    out.via = std::move(vias);
    return py::cast(std::move(out));
  }

  PyState state_;  // keeps the tables alive while the walk reads them
  Mox::Ptr<RouteTable const> routeTable_;
  Mox::Ptr<FecTable const> fecs_;
  Mox::Ptr<Brine::Fib6::ForwardingStatus const> fecs6_;
  std::vector<Route> routes_;
  std::size_t at_ = 0;
  std::array<py::object, 32> names_, codes_;
  std::unordered_map<std::uint64_t, py::object> fecCache_;
};

py::dict typeDict(const Rova::RouteTypeNames& n) {
  py::dict d;
  d["name"] = n.name;
  d["number"] = n.number;
  d["code"] = n.code;
  d["word"] = n.word;
  d["hostCode"] = n.hostCode;
  d["hostWord"] = n.hostWord;
  d["protocol"] = n.protocol;
  return d;
}

struct PyRouteIterator {
  std::unique_ptr<RouteWalk> walk;
};

}  // namespace

void addRoutes(py::module_& m) {
  py::class_<PyVia>(m, "Via", "A via of a FEC: where a route's traffic goes.")
      .def_readonly("hop", &PyVia::hop, "The next hop's address.")
      .def_readonly("interface", &PyVia::interface, "The interface's name; None when unset.")
      .def_readonly("weight", &PyVia::weight, "Its share of the traffic.")
      .def_readonly("label", &PyVia::label, "The MPLS label pushed; None without one.")
      .def_readonly("tunnelId", &PyVia::tunnelId, "The tunnel it goes through; None.")
      .def_readonly("backup", &PyVia::backup, "A backup via, used when the others fail.")
      .def("to_dict", &viaDict, "The via as a dict of its attributes.")
      .def("__repr__", [](const PyVia& v) { return reprOf("Via", v, &viaDict); });
  py::class_<PyFec>(m, "Fec", "A FEC: the vias routes share.")
      .def_readonly("fecId", &PyFec::fecId, "Its number in the FEC table.")
      .def_readonly("via", &PyFec::via, "Its vias (a list of rova.Via), backups last.")
      .def_readonly("backupViaIndex", &PyFec::backupViaIndex,
                    "Where the backup vias begin; 0 without any.")
      .def("to_dict", &fecDict, "The FEC as a dict, its vias as a list of dicts.")
      .def("__repr__", [](const PyFec& f) { return reprOf("Fec", f, &fecDict); });
  py::class_<PyRoute>(m, "Route", "A route of a forwarding table, its FEC resolved.")
      .def_readonly("prefix", &PyRoute::prefix, "The prefix, as text.")
      .def_readonly("routeType", &PyRoute::routeType,
                    "The route type's name (the state document's word: 'eBgp').")
      .def_readonly("code", &PyRoute::code, "The codes column of a listing ('B E').")
      .def_readonly("fecId", &PyRoute::fecId, "The FEC's number.")
      .def_readonly("metric", &PyRoute::metric, "The route's metric.")
      .def_readonly("preference", &PyRoute::preference, "The route's preference.")
      .def_readonly("hardwareProgrammed", &PyRoute::hardwareProgrammed,
                    "Whether the hardware holds it.")
      .def_readonly("fec", &PyRoute::fec, "Its rova.Fec; None when the FEC table lacks it.")
      .def("to_dict", &routeDict, "The route as a dict, its FEC and vias as dicts.")
      .def("__repr__", [](const PyRoute& r) { return reprOf("Route", r, &routeDict); });

  py::class_<PyRouteIterator>(m, "RouteIterator", "The routes of rova.routes(), one by one.")
      .def("__iter__", [](py::object self) { return self; })
      .def("__next__", [](PyRouteIterator& it) {
        py::object r = it.walk->next();
        if (!r) throw py::stop_iteration();
        return r;
      });

  m.def(
      "route_type",
      [](py::handle type, int family) {
        if (PyLong_Check(type.ptr()) && !PyBool_Check(type.ptr())) {
          const Value n = fromPy(type);
          if (!n.holds<std::uint64_t>() || n.get<std::uint64_t>() > 0xffffffffu)
            throw Mox::RangeException("no IPv" + std::to_string(family) + " route type numbered " +
                                      py::str(type).cast<std::string>());
          return typeDict(Rova::routeType(family, unsigned(n.get<std::uint64_t>())));
        }
        if (!PyUnicode_Check(type.ptr()))
          throw py::type_error("a route type is a name or a number");
        return typeDict(Rova::routeType(family, utf8(type)));
      },
      py::arg("type"), py::arg("family") = 4,
      "A route type by its name ('eBgp', as the state document writes it) or number: a dict of "
      "its name, number, code ('B E'), JSON word ('eBGP'), host code and word, and the protocol "
      "code a listing's filter compares with. An unknown type raises rova.RangeError.");
  m.def(
      "route_types",
      [](int family) {
        py::list out;
        for (const Rova::RouteTypeNames& n : Rova::routeTypes(family))
          out.append(typeDict(n));
        return out;
      },
      py::arg("family") = 4,
      "Every route type of the family (4 or 6), as rova.route_type gives it.");
  m.def(
      "protocol_code", [](const py::str& word) { return Rova::protocolCodeOfWord(utf8(word)); },
      py::arg("word"),
      "The code of the first IPv4 route type whose JSON word begins `word` ('eBGP' -> 'B E'); "
      "a word that no type's word begins raises rova.RangeError.");
  m.def(
      "routes",
      [](const PyState& s, const py::str& vrf, int family) {
        const std::string name = utf8(vrf);
        if (family != 4 && family != 6)
          throw Mox::RangeException("family " + std::to_string(family) + ": 4 or 6");
        checkName("vrf", "L3::VrfName", Value(Mox::String8(name)));
        auto lock = commandLock();
        s.adopt();
        if (!cli::DeviceState::instance().hasVrf(name))
          throw Mox::RangeException("VRF " + Mox::shownWord(name) + " does not exist");
        PyRouteIterator it;
        if (family == 4)
          it.walk = std::make_unique<FamilyWalk<Routing::V4>>(s, name, family);
        else
          it.walk = std::make_unique<FamilyWalk<Routing::V6>>(s, name, family);
        return it;
      },
      py::arg("state"), py::arg("vrf") = "default", py::arg("family") = 4,
      "The routes of a VRF (family 4 or 6) in prefix order, as rova.Route records with their "
      "FEC and vias resolved. An unknown VRF raises rova.RangeError, as the command line "
      "refuses it.");
}

}  // namespace rovapy
