#include "platform/mox/TextForm.h"

#include <cmath>
#include <cstdio>

namespace Mox {

namespace {
PtrResolver& resolver() {
  static PtrResolver r;
  return r;
}
}  // namespace

void parseError(std::string_view in, std::string_view expected) {
  std::string found =
      in.empty() ? std::string("the end of the text")
                 : "\"" + shownWord(in.substr(0, 24), '\0') + (in.size() > 24 ? "...\"" : "\"");
  throw RangeException("expected " + std::string(expected) + " but found " + found);
}

void expectText(std::string_view& in, std::string_view literal) {
  if (!consumeText(in, literal)) parseError(in, "\"" + std::string(literal) + "\"");
}

bool consumeText(std::string_view& in, std::string_view literal) {
  if (in.substr(0, literal.size()) != literal) return false;
  in.remove_prefix(literal.size());
  return true;
}

std::string attrSeparator(bool first, const char* name) {
  std::string s = first ? "'" : ", '";
  s += name;
  s += "': ";
  return s;
}

void writeText(std::string& out, bool v) {
  out += v ? "True" : "False";
}

void parseText(std::string_view& in, bool& v) {
  if (consumeText(in, "True")) {
    v = true;
  } else if (consumeText(in, "False")) {
    v = false;
  } else {
    parseError(in, "True or False");
  }
}

void writeText(std::string& out, double v) {
  if (std::isnan(v)) {
    out += "nan";
    return;
  }
  if (std::isinf(v)) {
    out += v < 0 ? "-inf" : "inf";
    return;
  }
  char buf[40];
  auto r = std::to_chars(buf, buf + sizeof buf, v);
  std::string_view s(buf, r.ptr - buf);
  out += s;
  // Python writes a float that happens to be integral with ".0".
  if (s.find_first_of(".e") == std::string_view::npos) out += ".0";
}

void parseText(std::string_view& in, double& v) {
  if (consumeText(in, "nan")) {
    v = std::nan("");
    return;
  }
  if (consumeText(in, "inf")) {
    v = INFINITY;
    return;
  }
  if (consumeText(in, "-inf")) {
    v = -INFINITY;
    return;
  }
  auto r = std::from_chars(in.data(), in.data() + in.size(), v);
  if (r.ec != std::errc()) parseError(in, "a number");
  in.remove_prefix(r.ptr - in.data());
}

void writeText(std::string& out, const String8& v) {
  out += v.textForm();
}

void parseText(std::string_view& in, String8& v) {
  v = String8::parseTextForm(in);
}

void ptrResolverIs(PtrResolver r) {
  resolver() = std::move(r);
}

Ptr<Entity> resolvePtr(std::string_view type, std::string_view path) {
  if (!resolver()) return nullptr;
  return resolver()(type, path);
}

void writePtrText(std::string& out, const Entity* e, const char* staticTypeName) {
  if (!e) {
    out += "None";
    return;
  }
  out += "Ptr(";
  out += String8(e->typeName() ? e->typeName() : staticTypeName).textForm();
  if (!e->path().empty()) {
    out += ", ";
    out += String8(e->path()).textForm();
  }
  out += ")";
}

Ptr<Entity> parsePtrText(std::string_view& in) {
  if (consumeText(in, "None")) return nullptr;
  expectText(in, "Ptr(");
  String8 type = String8::parseTextForm(in);
  if (!consumeText(in, ", ")) {
    throw RangeException("a handle to " + shownWord(type.view(), '\0') +
                         " without a state path cannot be rebuilt from text");
  }
  String8 path = String8::parseTextForm(in);
  expectText(in, ")");
  Ptr<Entity> e = resolvePtr(type.view(), path.view());
  if (!e) {
    throw RangeException("no " + shownWord(type.view(), '\0') + " at " + path.textForm() +
                         " in the state");
  }
  return e;
}

}  // namespace Mox
