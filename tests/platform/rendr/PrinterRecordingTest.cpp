// Recorded runs: a run of calls printed once and replayed where the structure is the same. A
// hanging run (text lines under a first line) is kept without its lines' blanks and replays
// under any indent; what it replays must be what the calls would have printed there.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
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

// Routes whose vias hang by each of `hangs`: printed one by one, or recorded with the first
// and replayed for the rest.
std::string routes(unsigned format, const std::vector<std::size_t>& hangs, bool replay) {
  rovatest::MemoryFile cap;
  {
    rendr::Printer p(cap.fd(), format, true, false, true, 0);
    rendr::StringAttrInfo key("prefix", format), hop("nexthopAddr", format);
    std::string run;
    rendr::Printer::RecordedShape shape;
    p.startDict("routes");
    int n = 0;
    for (std::size_t hang : hangs) {
      key.setValue(std::to_string(n++));
      p.startDictEntry(key);
      p.addAttributes("%s ", 1, key.getArg());
      if (!replay || run.empty()) {
        const auto start = p.startRecording();
        printVias(p, hop, hang);
        const auto kept = p.finishHangingRecording(start, shape, hang);
        // A run the buffer wrote out in its middle is not kept; the first run always is.
        if (replay) {
          EXPECT_TRUE(kept.has_value());
        }
        if (kept) run = std::string(*kept);
      } else {
        p.replayHanging(run, shape, hang);
      }
      p.endDictEntry();
    }
  }
  return cap.contents();
}

TEST(PrinterRecording, AHangingRunReplaysUnderEveryIndent) {
  for (unsigned format : {kFormatText, kFormatJson}) {
    const std::string printed = routes(format, {4, 0, 9, 70, 4}, false);
    EXPECT_EQ(routes(format, {4, 0, 9, 70, 4}, true), printed) << format;
    if (format == kFormatJson) {
      const auto doc = nlohmann::json::parse(printed);
      EXPECT_EQ(doc["routes"].size(), 5u);
      EXPECT_EQ(doc["routes"]["4"]["vias"][1]["nexthopAddr"], std::string(300, 'x'));
    }
  }
  // The line breaks themselves: the run ends a line, and the text after it starts afresh.
  const std::string text = routes(kFormatText, {2, 5}, true);
  EXPECT_EQ(text.substr(0, 17), "0 via 10.0.0.1\n  ");
  EXPECT_NE(text.find("\n  via \n1 via 10.0.0.1\n     via xxx"), std::string::npos);
}

// Enough routes to fill the output buffer many times over: runs replay wherever the buffer
// stands, near its end too, and with hangs about the size of the printer's fixed moves.
TEST(PrinterRecording, ReplaysFillingTheBufferAreWhatPrintingWrites) {
  std::vector<std::size_t> hangs;
  for (std::size_t i = 0; i < 3000; ++i)
    hangs.push_back(std::vector<std::size_t>{0, 1, 31, 32, 33, 64, 70, 200}[i % 8]);
  const std::string printed = routes(kFormatText, hangs, false);
  EXPECT_GT(printed.size(), 4 * rendr::Printer::kBufferSize);
  EXPECT_EQ(routes(kFormatText, hangs, true), printed);
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
