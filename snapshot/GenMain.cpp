// rova-gen: writes a synthetic device state (see snapshot/Generator.h).
//
//   rova-gen --ipv4 N --ipv6 M [--seed S] [--vrfs K] [--nexthop-groups G] [-o FILE]
//   rova-gen --profile internet [--ipv4 N] [--ipv6 M] [--seed S] [-o FILE]

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "snapshot/Generator.h"

namespace {

int usage() {
  std::fputs(
      "usage: rova-gen [--profile spine|internet] --ipv4 N --ipv6 M [--seed S] [--vrfs K]\n"
      "                [--nexthop-groups G] [-o FILE]\n"
      "  (--profile internet: 1000000 IPv4 and 200000 IPv6 routes unless told otherwise)\n",
      stderr);
  return 2;
}

bool number(const char* text, std::uint64_t& out) {
  const std::string_view s(text);
  auto r = std::from_chars(s.data(), s.data() + s.size(), out);
  return !s.empty() && r.ec == std::errc() && r.ptr == s.data() + s.size();
}

}  // namespace

int main(int argc, char** argv) {
  Snapshot::GeneratorOptions options;
  std::string outPath;
  bool ipv4Given = false, ipv6Given = false;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (i + 1 >= argc) return usage();
    const char* value = argv[++i];
    std::uint64_t n = 0;
    if (arg == "-o") {
      outPath = value;
    } else if (arg == "--profile") {
      if (std::string_view(value) == "internet") {
        options.profile = Snapshot::GeneratorProfile::internet;
      } else if (std::string_view(value) == "spine") {
        options.profile = Snapshot::GeneratorProfile::spine;
      } else {
        return usage();
      }
    } else if (!number(value, n)) {
      std::fprintf(stderr, "rova-gen: %s wants a number, not '%s'\n", argv[i - 1], value);
      return 2;
    } else if (arg == "--ipv4") {
      options.ipv4Routes = n;
      ipv4Given = true;
    } else if (arg == "--ipv6") {
      options.ipv6Routes = n;
      ipv6Given = true;
    } else if (arg == "--seed") {
      options.seed = n;
    } else if (arg == "--nexthop-groups" && n <= 1000000) {
      options.nexthopGroups = n;
    } else if (arg == "--vrfs" && n <= 4000) {
      options.extraVrfs = unsigned(n);
    } else {
      return usage();
    }
  }
  if (options.profile == Snapshot::GeneratorProfile::internet) {
    if (!ipv4Given) options.ipv4Routes = 1000000;
    if (!ipv6Given) options.ipv6Routes = 200000;
  }
  const std::string text = Snapshot::generate(options);
  std::FILE* f = outPath.empty() ? stdout : std::fopen(outPath.c_str(), "wb");
  if (!f) {
    std::fprintf(stderr, "rova-gen: %s: %s\n", outPath.c_str(), std::strerror(errno));
    return 1;
  }
  const bool ok = std::fwrite(text.data(), 1, text.size(), f) == text.size();
  if ((f != stdout ? std::fclose(f) : std::fflush(f)) != 0 || !ok) {
    std::fprintf(stderr, "rova-gen: write failed: %s\n", std::strerror(errno));
    return 1;
  }
  return 0;
}
