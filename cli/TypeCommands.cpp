// The commands of the registry: the types it holds, one type in full, and a value text form
// read and written back.

#include "cli/CommandActions.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "cli/DeviceState.h"
#include "lib/registry/TypeRegistry.h"
#include "platform/mox/Exception.h"

namespace cli {

namespace {

using Rova::Value;

// One registry value as a printer attribute under `name`; a registered value becomes a
// submodel of its attributes. Collections are not shown.
void printValue(rendr::Printer& p, const std::string& name, const Value& v) {
  const unsigned f = p.format();
  if (v.holds<bool>()) {
    rendr::BoolAttrInfo a(name.c_str(), f);
    a.setValue(v.get<bool>());
    p.addAttributesJson(1, a.getArg());
  } else if (v.holds<std::uint64_t>()) {
    rendr::Uint64AttrInfo a(name.c_str(), f);
    a.setValue(v.get<std::uint64_t>());
    p.addAttributesJson(1, a.getArg());
  } else if (v.holds<std::int64_t>() && std::in_range<std::int32_t>(v.get<std::int64_t>())) {
    rendr::IntAttrInfo a(name.c_str(), f);
    a.setValue(static_cast<std::int32_t>(v.get<std::int64_t>()));
    p.addAttributesJson(1, a.getArg());
  } else if (v.holds<std::int64_t>() || v.holds<double>()) {
    rendr::DoubleAttrInfo a(name.c_str(), f);
    a.setValue(v.holds<double>() ? v.get<double>() : double(v.get<std::int64_t>()));
    p.addAttributesJson(1, a.getArg());
  } else if (v.holds<Mox::Ptr<Rova::BoxedValue>>()) {
    const auto& type = registry().typeOf(v);
    if (type.kind == Rova::TypeKind::enumeration) {
      rendr::StringAttrInfo a(name.c_str(), f);
      a.setValue(v.displayText().substr(1, v.displayText().size() - 2));
      p.addAttributesJson(1, a.getArg());
      return;
    }
    p.startSubmodel(name.c_str());
    for (const auto& attr : type.attrs) {
      if (attr.kind != Mox::AttrKind::collection) printValue(p, attr.name, attr.get(v));
    }
    p.endSubmodel();
  } else if (!v.isNone() && !v.holds<Mox::Ptr<Mox::Entity>>()) {
    rendr::StringAttrInfo a(name.c_str(), f);
    a.setValue(v.displayText());
    p.addAttributesJson(1, a.getArg());
  }
}

// A list of (name, type) pairs: "name Type, name Type" in text, objects in JSON.
void printParams(rendr::Printer& p, const char* listName, const std::vector<Rova::Param>& params) {
  rendr::StringAttrInfo name("name", p.format());
  rendr::StringAttrInfo type("type", p.format());
  p.startList(listName);
  for (std::size_t i = 0; i < params.size(); ++i) {
    if (i) p.addFrills(", ");
    p.startListEntry();
    name.setValue(params[i].name);
    type.setValue(params[i].typeName);
    p.addAttributes("%s %s", 2, name.getArg(), type.getArg());
    p.endListEntry();
  }
  p.endList();
}

}  // namespace

int showTypes(const Match&, const Context&, Output& out) {
  return out.print([&](rendr::Printer& p) {
    rendr::StringAttrInfo name("name", p.format());
    rendr::StringAttrInfo kind("kind", p.format());
    p.startList("types");
    for (const auto& t : registry().types()) {
      p.startListEntry();
      name.setValue(t->name);
      kind.setValue(Rova::kindName(t->kind));
      p.addAttributes("%-44s %s\n", 2, name.getArg(), kind.getArg());
      p.endListEntry();
    }
    p.endList();
  });
}

// One registry entry: how it is built, its attributes with their kinds, its operations.
int showType(const Match& m, const Context&, Output& out) {
  const Rova::TypeEntry& t = registry().type(m.value("TYPE"));
  return out.print([&](rendr::Printer& p) {
    const unsigned f = p.format();
    rendr::StringAttrInfo name("name", f);
    rendr::StringAttrInfo kind("kind", f);
    name.setValue(t.name);
    kind.setValue(Rova::kindName(t.kind));
    p.addAttributes("Type: %s (%s)\n", 2, name.getArg(), kind.getArg());

    rendr::BoolAttrInfo constructible("constructible", f);
    constructible.setValue(bool(t.construct));
    p.addAttributesJson(1, constructible.getArg());
    if (t.construct) {
      rendr::StringAttrInfo by("constructedBy", f);
      by.setValue(t.factory.empty() ? t.name : t.factory);
      p.addAttributes("Construction: %s(", 1, by.getArg());
      printParams(p, "constructorInputs", t.constructorInputs);
      p.addFrills(")\n");
    } else {
      p.addFrills("Construction: none\n");
    }

    if (!t.enumNames.empty()) {
      rendr::StringAttrInfo enumName("name", f);
      rendr::UintAttrInfo number("value", f);
      p.addFrills("Names:\n");
      p.startList("enumNames");
      for (std::size_t i = 0; i < t.enumNames.size(); ++i) {
        p.startListEntry();
        enumName.setValue(t.enumNames[i]);
        number.setValue(static_cast<std::uint32_t>(i));
        p.addAttributes("  %-30s %s\n", 2, enumName.getArg(), number.getArg());
        p.endListEntry();
      }
      p.endList();
    }

    rendr::StringAttrInfo attrName("name", f);
    rendr::StringAttrInfo attrType("type", f);
    rendr::StringAttrInfo attrKind("kind", f);
    rendr::BoolAttrInfo writable("writable", f);
    rendr::StringAttrInfo keyType("keyType", f);
    rendr::StringAttrInfo valueType("valueType", f);
    // Columns as wide as this type's longest name and type, so that every row lines up.
    const auto typeText = [](const Rova::AttrEntry& a) {
      return a.kind == Mox::AttrKind::collection ? a.keyType + " -> " + a.valueType : a.typeName;
    };
    std::size_t nameWidth = 0, typeWidth = 0;
    for (const auto& a : t.attrs) {
      nameWidth = std::max(nameWidth, a.name.size());
      typeWidth = std::max(typeWidth, typeText(a).size());
    }
    const std::string nameColumn = "  %-" + std::to_string(nameWidth + 2) + "s";
    const std::string typeColumn = "%-" + std::to_string(typeWidth + 2) + "s";
    p.addFrills(t.attrs.empty() ? "Attributes: none\n" : "Attributes:\n");
    p.startList("attributes");
    for (const auto& a : t.attrs) {
      p.startListEntry();
      attrName.setValue(a.name);
      attrKind.setValue(Rova::kindName(a.kind));
      writable.setValue(a.writable);
      attrType.setValue(a.typeName);
      p.addAttributes(nameColumn.c_str(), 1, attrName.getArg());
      if (a.kind == Mox::AttrKind::collection) {
        keyType.setValue(a.keyType);
        valueType.setValue(a.valueType);
        p.addArgs(typeColumn.c_str(), typeText(a).c_str());
        p.addAttributesJson(3, attrType.getArg(), keyType.getArg(), valueType.getArg());
      } else {
        p.addAttributes(typeColumn.c_str(), 1, attrType.getArg());
      }
      p.addAttributes("%s", 1, attrKind.getArg());
      p.addAttributesJson(1, writable.getArg());
      p.addFrills("%s\n", a.writable ? ", writable" : "");
      p.endListEntry();
    }
    p.endList();

    rendr::StringAttrInfo opName("name", f);
    rendr::StringAttrInfo result("result", f);
    p.addFrills(t.ops.empty() ? "Operations: none\n" : "Operations:\n");
    p.startList("operations");
    for (const auto& o : t.ops) {
      p.startListEntry();
      opName.setValue(o.name);
      result.setValue(o.resultType);
      p.addAttributes("  %s(", 1, opName.getArg());
      printParams(p, "parameters", o.params);
      p.addAttributes(") -> %s\n", 1, result.getArg());
      p.endListEntry();
    }
    p.endList();
  });
}

int showValue(const Match& m, const Context&, Output& out) {
  Value v;
  try {
    v = registry().parse(m.value("VALUE"));
  } catch (const Mox::RangeException& e) {
    throw Mox::RangeException(std::string("Invalid value text: ") + e.what());
  }
  const auto& type = registry().typeOf(v);
  return out.print([&](rendr::Printer& p) {
    rendr::StringAttrInfo typeName("type", p.format());
    rendr::StringAttrInfo text("text", p.format());
    typeName.setValue(type.name);
    text.setValue(registry().text(v));
    p.addAttributesJson(1, typeName.getArg());
    p.addAttributes("%s\n", 1, text.getArg());
    p.startSubmodel("attributes");
    for (const auto& attr : type.attrs) {
      if (attr.kind != Mox::AttrKind::collection) printValue(p, attr.name, attr.get(v));
    }
    p.endSubmodel();
  });
}

}  // namespace cli
