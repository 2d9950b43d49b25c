// Recorded runs: a run of calls printed once and replayed where the structure is the same. A
// hanging run (text lines under a first line) is kept without its lines' blanks and replays
// under any indent; what it replays must be what the calls would have printed there. A run the
// printer keeps replays the same, and JSON writes it where it is, without a copy.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/rendr/Printer.h"
#include "tests/support/Capture.h"

namespace {

using rendr::kFormatJson;
using rendr::kFormatText;

// A route's vias, the later ones under the first after `hang` blanks. The second hop is longer
// than a piece of a kept run (255 bytes).
void printVias(rendr::Printer& p, rendr::StringAttrInfo& hop, std::size_t hang) {
  const std::string next = "\n" + std::string(hang, ' ') + "via %s";
  p.startList("vias");
  for (const std::string& h : {std::string("10.0.0.1"), std::string(300, 'x'), std::string("")}) {
    p.startListEntry();
    hop.setValue(h);
    p.addAttributes(h == "10.0.0.1" ? "via %s" : next.c_str(), 1, hop.getArg());
    p.endListEntry();
  }
  p.endList();
  p.addFrills("\n");
}

// How routes after the first print their vias: by the calls, by replaying the caller's copy of
// the first one's, or by replaying the run the printer keeps (which JSON writes without a copy).
enum class Vias { printed, replayed, kept };

// Routes whose vias hang by each of `hangs`, written to fd.
void printRoutes(int fd, unsigned format, const std::vector<std::size_t>& hangs, Vias mode) {
  rendr::Printer p(fd, format, true, false, true, 0);
  rendr::StringAttrInfo key("prefix", format), hop("nexthopAddr", format);
  std::string run;
  std::optional<rendr::Printer::KeptRun> kept;
  rendr::Printer::RecordedShape shape;
  p.startDict("routes");
  int n = 0;
  for (std::size_t hang : hangs) {
    key.setValue(std::to_string(n++));
    p.startDictEntry(key);
    p.addAttributes("%s ", 1, key.getArg());
    if (mode == Vias::printed || (run.empty() && !kept)) {
      const auto start = p.startRecording();
      printVias(p, hop, hang);
      const auto recorded = p.finishHangingRecording(start, shape, hang);
      // A run the buffer wrote out in its middle is not kept; the first run always is.
      if (mode != Vias::printed) {
        EXPECT_TRUE(recorded.has_value());
      }
      if (recorded && mode == Vias::replayed) run = std::string(*recorded);
      if (recorded && mode == Vias::kept) {
        kept = p.keep(*recorded);
        EXPECT_EQ(p.kept(*kept), *recorded);
      }
    } else if (mode == Vias::replayed) {
      p.replayHanging(run, shape, hang);
    } else {
      p.replayKeptHanging(*kept, shape, hang);
    }
    p.endDictEntry();
    p.itemDone();
  }
}

std::string routes(unsigned format, const std::vector<std::size_t>& hangs, Vias mode) {
  rovatest::MemoryFile cap;
  printRoutes(cap.fd(), format, hangs, mode);
  return cap.contents();
}

TEST(PrinterRecording, AHangingRunReplaysUnderEveryIndent) {
  for (unsigned format : {kFormatText, kFormatJson}) {
    const std::string printed = routes(format, {4, 0, 9, 70, 4}, Vias::printed);
    EXPECT_EQ(routes(format, {4, 0, 9, 70, 4}, Vias::replayed), printed) << format;
    EXPECT_EQ(routes(format, {4, 0, 9, 70, 4}, Vias::kept), printed) << format;
    if (format == kFormatJson) {
      const auto doc = nlohmann::json::parse(printed);
      EXPECT_EQ(doc["routes"].size(), 5u);
      EXPECT_EQ(doc["routes"]["4"]["vias"][1]["nexthopAddr"], std::string(300, 'x'));
    }
  }
  // The line breaks themselves: the run ends a line, and the text after it starts afresh.
  const std::string text = routes(kFormatText, {2, 5}, Vias::kept);
  EXPECT_EQ(text.substr(0, 17), "0 via 10.0.0.1\n  ");
  EXPECT_NE(text.find("\n  via \n1 via 10.0.0.1\n     via xxx"), std::string::npos);
}

// Enough routes to fill the output buffer many times over: runs replay wherever the buffer
// stands, near its end too, and with hangs about the size of the printer's fixed moves. JSON's
// kept runs go out beside the buffer's bytes, more of them than one write takes.
std::vector<std::size_t> manyHangs() {
  std::vector<std::size_t> hangs;
  for (std::size_t i = 0; i < 3000 * (rendr::Printer::kBufferSize / 65536); ++i)
    hangs.push_back(std::vector<std::size_t>{0, 1, 31, 32, 33, 64, 70, 200}[i % 8]);
  return hangs;
}

TEST(PrinterRecording, ReplaysFillingTheBufferAreWhatPrintingWrites) {
  const std::vector<std::size_t> hangs = manyHangs();
  for (unsigned format : {kFormatText, kFormatJson}) {
    const std::string printed = routes(format, hangs, Vias::printed);
    EXPECT_GT(printed.size(), 4 * rendr::Printer::kBufferSize);
    EXPECT_EQ(routes(format, hangs, Vias::replayed), printed) << format;
    EXPECT_EQ(routes(format, hangs, Vias::kept), printed) << format;
  }
}

// A pipe that takes part of a write, or none of it for a while (non-blocking, read by a slower
// reader): the kept runs and the buffer's bytes still arrive whole and in order.
TEST(PrinterRecording, KeptRunsArriveWholeThroughAPipeThatTakesPartOfAWrite) {
  const std::vector<std::size_t> hangs = manyHangs();
  const std::string printed = routes(kFormatJson, hangs, Vias::printed);
  int fds[2];
  ASSERT_EQ(pipe2(fds, O_NONBLOCK), 0);
  std::string received;
  std::thread reader([&] {
    const int flags = fcntl(fds[0], F_GETFL);
    fcntl(fds[0], F_SETFL, flags & ~O_NONBLOCK);
    char buf[1000];  // less than a write's pieces
    ssize_t n;
    while ((n = read(fds[0], buf, sizeof buf)) > 0)
      received.append(buf, static_cast<std::size_t>(n));
  });
  printRoutes(fds[1], kFormatJson, hangs, Vias::kept);
  close(fds[1]);
  reader.join();
  close(fds[0]);
  EXPECT_EQ(received.size(), printed.size());
  EXPECT_TRUE(received == printed);
}

// A kept run stays the printer's while it lives (across its chunks, whatever it printed since);
// a recording with a kept run's replay in it is not one run of the buffer and is not kept; and
// text knows where its line stands after a kept run, to say where it stopped.
TEST(PrinterRecording, KeptRunsStayAndBreakRecordings) {
  rovatest::MemoryFile cap;
  {
    rendr::Printer p(cap.fd(), kFormatText, true, false, true, 0);
    std::vector<std::pair<rendr::Printer::KeptRun, std::string>> runs;
    for (std::size_t size : {0, 1, 400000, 400000, 400000, 1 << 20, 5}) {
      const std::string bytes(size, static_cast<char>('a' + runs.size()));
      const auto run = p.keep(bytes);
      ASSERT_TRUE(run) << size;
      runs.emplace_back(*run, bytes);
    }
    EXPECT_FALSE(p.keep(std::string((1 << 20) + 1, 'x')));
    for (const auto& [run, bytes] : runs)
      EXPECT_TRUE(p.kept(run) == bytes) << bytes.size();

    const auto line = p.keep(std::string(200, 'l') + "\n");
    const auto open = p.keep(std::string(200, 'o'));
    const rendr::Printer::RecordedShape root{1, false, false};
    p.start();
    const auto start = p.startRecording();
    p.addFrills("before ");
    p.replayKept(*line, root);
    p.addFrills("after\n");
    rendr::Printer::RecordedShape shape;
    EXPECT_FALSE(p.finishRecording(start, shape));
    p.replayKept(*open, root);
    p.reportStop(rendr::sigintException(SIGINT));
    p.replayKept(*line, root);
    p.reportStop(rendr::sigintException(SIGINT));
  }
  EXPECT_EQ(cap.contents(), "before " + std::string(200, 'l') + "\nafter\n" +
                                std::string(200, 'o') + "\nexiting on user interrupt\n" +
                                std::string(200, 'l') + "\nexiting on user interrupt\n");
}

TEST(PrinterRecording, ARunWhoseLinesDoNotHangIsNotKept) {
  for (unsigned format : {kFormatText, kFormatJson}) {
    rovatest::MemoryFile cap;
    rendr::Printer p(cap.fd(), format, true, false, true, 0);
    rendr::StringAttrInfo text("description", format);
    rendr::Printer::RecordedShape shape;
    p.start();
    for (const char* lines : {"first\n  second\nthird", "first\n second", "first\n\n  third"}) {
      const auto start = p.startRecording();
      text.setValue(lines);
      p.addAttributes("%s", 1, text.getArg());
      // JSON has no hanging blanks to take out: its runs are always kept.
      EXPECT_EQ(p.finishHangingRecording(start, shape, 2).has_value(), format == kFormatJson)
          << lines;
    }
    // A line that ends the run starts no line, and one with the blanks is kept.
    const auto start = p.startRecording();
    text.setValue("first\n  second\n");
    p.addAttributes("%s", 1, text.getArg());
    EXPECT_TRUE(p.finishHangingRecording(start, shape, 2).has_value());
  }
}

}  // namespace
