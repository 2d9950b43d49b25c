// The printer on the per-route path of a full-table listing: one million route-like entries
// written to /dev/null, in text and in JSON, against the C library's snprintf formatting the
// same text.
//
//   build/bench/printer_bench
//
// Each iteration is one million entries, so the reported time is the time per million.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "platform/rendr/Printer.h"

namespace {

constexpr int kEntries = 1'000'000;
constexpr int kDistinct = 4096;  // distinct rows, cycled, so that values change per entry

struct Rows {
  std::vector<std::string> prefix, nexthop1, nexthop2, intf1, intf2;
  Rows() {
    for (int i = 0; i < kDistinct; ++i) {
      prefix.push_back(std::to_string(10 + i % 200) + "." + std::to_string(i % 256) + "." +
                       std::to_string(i / 16 % 256) + ".0/24");
      nexthop1.push_back("10.0." + std::to_string(i % 256) + ".1");
      nexthop2.push_back("10.1." + std::to_string(i % 256) + ".2");
      intf1.push_back("Ethernet" + std::to_string(i % 48 + 1));
      intf2.push_back("Ethernet" + std::to_string(i % 48 + 1) + "/1");
    }
  }
};

const Rows& rows() {
  static const Rows r;
  return r;
}

int openNull() {
  return open("/dev/null", O_WRONLY);
}

void writeListing(int fd, unsigned format) {
  const Rows& r = rows();
  rendr::Printer p(fd, format, true, false, true, 0);
  rendr::StringAttrInfo prefix("prefix", format), type("routeType", format),
      nexthop("nexthopAddr", format), intf("interface", format);
  rendr::IntAttrInfo pref("preference", format);
  rendr::UintAttrInfo metric("metric", format);
  p.startDict("routes");
  for (int i = 0; i < kEntries; ++i) {
    int k = i % kDistinct;
    prefix.setValue(r.prefix[k]);
    type.setValue(" S      ");
    pref.setValue(1);
    metric.setValue(static_cast<unsigned>(k));
    p.startDictEntry(prefix);
    p.addAttributes("%s%s", 2, type.getArg(), prefix.getArg());
    p.addAttributes(" [%d/%u] ", 2, pref.getArg(), metric.getArg());
    p.startList("vias");
    for (int v = 0; v < 2; ++v) {
      nexthop.setValue(v ? r.nexthop2[k] : r.nexthop1[k]);
      intf.setValue(v ? r.intf2[k] : r.intf1[k]);
      p.startListEntry();
      p.addAttributes(" via %s", 1, nexthop.getArg());
      p.addAttributes(", %s", 1, intf.getArg());
      p.endListEntry();
    }
    p.endList();
    p.addFrills("\n");
    p.endDictEntry();
    if (p.fullness() > 66) p.ioflush();
  }
  p.endDict();
}

void BM_PrinterText(benchmark::State& state) {
  int fd = openNull();
  for (auto _ : state)
    writeListing(fd, rendr::kFormatText);
  close(fd);
}
BENCHMARK(BM_PrinterText)->Unit(benchmark::kMillisecond);

void BM_PrinterJson(benchmark::State& state) {
  int fd = openNull();
  for (auto _ : state)
    writeListing(fd, rendr::kFormatJson);
  close(fd);
}
BENCHMARK(BM_PrinterJson)->Unit(benchmark::kMillisecond);

// The same text, one snprintf per line into a buffer written out as the printer does.
void BM_SnprintfLine(benchmark::State& state) {
  const Rows& r = rows();
  int fd = openNull();
  std::vector<char> buf(rendr::Printer::kBufferSize);
  for (auto _ : state) {
    std::size_t used = 0;
    for (int i = 0; i < kEntries; ++i) {
      int k = i % kDistinct;
      int n = std::snprintf(buf.data() + used, buf.size() - used,
                            "%s%s [%d/%u]  via %s, %s via %s, %s\n", " S      ",
                            r.prefix[k].c_str(), 1, static_cast<unsigned>(k), r.nexthop1[k].c_str(),
                            r.intf1[k].c_str(), r.nexthop2[k].c_str(), r.intf2[k].c_str());
      used += static_cast<std::size_t>(n);
      if (used * 100 / buf.size() > 66) {
        benchmark::DoNotOptimize(write(fd, buf.data(), used));
        used = 0;
      }
    }
    benchmark::DoNotOptimize(write(fd, buf.data(), used));
  }
  close(fd);
}
BENCHMARK(BM_SnprintfLine)->Unit(benchmark::kMillisecond);

// The same text in the printer's pieces: one snprintf per template, as a printer built on
// vsnprintf would run.
void BM_SnprintfPerTemplate(benchmark::State& state) {
  const Rows& r = rows();
  int fd = openNull();
  std::vector<char> buf(rendr::Printer::kBufferSize);
  for (auto _ : state) {
    std::size_t used = 0;
    auto put = [&](int n) { used += static_cast<std::size_t>(n); };
    for (int i = 0; i < kEntries; ++i) {
      int k = i % kDistinct;
      char* b = buf.data();
      std::size_t room = buf.size();
      put(std::snprintf(b + used, room - used, "%s%s", " S      ", r.prefix[k].c_str()));
      put(std::snprintf(b + used, room - used, " [%d/%u] ", 1, static_cast<unsigned>(k)));
      put(std::snprintf(b + used, room - used, " via %s", r.nexthop1[k].c_str()));
      put(std::snprintf(b + used, room - used, ", %s", r.intf1[k].c_str()));
      put(std::snprintf(b + used, room - used, " via %s", r.nexthop2[k].c_str()));
      put(std::snprintf(b + used, room - used, ", %s", r.intf2[k].c_str()));
      put(std::snprintf(b + used, room - used, "\n"));
      if (used * 100 / buf.size() > 66) {
        benchmark::DoNotOptimize(write(fd, buf.data(), used));
        used = 0;
      }
    }
    benchmark::DoNotOptimize(write(fd, buf.data(), used));
  }
  close(fd);
}
BENCHMARK(BM_SnprintfPerTemplate)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
