// What reaches the file descriptor, and when: buffering, the user's interrupt, a reader that
// went away, and a device that refuses the bytes.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "platform/rendr/Printer.h"
#include "tests/support/Capture.h"

namespace {

using rendr::kFormatJson;
using rendr::kFormatText;

TEST(PrinterOutput, BufferFillsThenGoesOutOnFlushOrWhenFull) {
  rovatest::MemoryFile cap;
  rendr::Printer p(cap.fd(), kFormatText, true, false, true, 0);
  const std::size_t n = rendr::Printer::kBufferSize / 100;  // a hundredth of the buffer
  const std::string line(n, 'x');
  for (int i = 0; i < 67; ++i)
    p.addFrills("%s", line.c_str());
  EXPECT_EQ(p.fullness(), 67u * n * 100 / rendr::Printer::kBufferSize);
  EXPECT_EQ(cap.contents(), "");
  p.ioflush();
  EXPECT_EQ(p.fullness(), 0u);
  EXPECT_EQ(cap.contents().size(), 67u * n);
  // Filling past the end writes the full buffer and keeps the rest.
  for (int i = 0; i < 101; ++i)
    p.addText(line);
  EXPECT_EQ(cap.contents().size(), 67u * n + rendr::Printer::kBufferSize);
  EXPECT_LT(p.fullness(), 5u);
}

class PrinterInterrupt : public ::testing::Test {
 protected:
  void SetUp() override {
    rendr::installSignalHandlers();
    rendr::clearInterrupt();
  }
  void TearDown() override { rendr::clearInterrupt(); }
};

TEST_F(PrinterInterrupt, NextCallThrowsAndTheJsonIsClosedOnDestruction) {
  rovatest::MemoryFile cap;
  int entries = 0;
  {
    rendr::Printer p(cap.fd(), kFormatJson, true, false, true, 0);
    rendr::StringAttrInfo prefix("prefix", kFormatJson);
    rendr::IntAttrInfo metric("metric", kFormatJson);
    try {
      p.startDict("routes");
      for (int i = 0; i < 1000; ++i) {
        prefix.setValue("10." + std::to_string(i) + ".0.0/16");
        metric.setValue(i);
        p.startDictEntry(prefix);
        if (i == 5) raise(SIGINT);  // arrives mid-entry
        p.addAttributes("%s %d\n", 2, prefix.getArg(), metric.getArg());
        p.endDictEntry();
        ++entries;
      }
      FAIL() << "not interrupted";
    } catch (const rendr::sigintException& e) {
      EXPECT_STREQ(e.what(), "on user interrupt");
      EXPECT_EQ(std::string("exiting ") + e.what(), "exiting on user interrupt");
    }
    EXPECT_FALSE(rendr::interruptPending());
    EXPECT_NO_THROW(p.fullness());  // reported once
  }
  EXPECT_EQ(entries, 5);
  nlohmann::json doc = nlohmann::json::parse(cap.contents());
  EXPECT_EQ(doc["routes"].size(), 6u);
  EXPECT_EQ(doc["routes"]["10.4.0.0/16"]["metric"], 4);
  EXPECT_TRUE(doc["routes"]["10.5.0.0/16"].empty());
}

TEST_F(PrinterInterrupt, EveryCallChecksAndAClearedInterruptIsForgotten) {
  rovatest::MemoryFile cap;
  rendr::Printer p(cap.fd(), kFormatText, true, false, true, 0);
  raise(SIGINT);
  EXPECT_TRUE(rendr::interruptPending());
  EXPECT_THROW(p.fullness(), rendr::sigintException);
  raise(SIGINT);
  EXPECT_THROW(p.addFrills("x"), rendr::sigintException);
  raise(SIGINT);
  EXPECT_THROW(p.ioflush(), rendr::sigintException);
  raise(SIGINT);
  rendr::clearInterrupt();
  EXPECT_NO_THROW(p.addFrills("y"));
}

// Cut within a line (the usual case), the message still gets a line of its own, also in a
// file that no terminal tidies up.
TEST_F(PrinterInterrupt, TheStopIsReportedOnALineOfItsOwn) {
  for (const char* before : {"C 10.1.0.0/16 via Ethernet15", "C 10.1.0.0/16 via Ethernet15\n"}) {
    rovatest::MemoryFile cap;
    {
      rendr::Printer p(cap.fd(), kFormatText, true, false, true, 0);
      p.addFrills("%s", before);
      p.ioflush();  // the cut part of the line has gone out already
      raise(SIGINT);
      try {
        p.addFrills("more");
        FAIL() << "not interrupted";
      } catch (const rendr::sigintException& e) {
        p.reportStop(e);
      }
    }
    EXPECT_EQ(cap.contents(), "C 10.1.0.0/16 via Ethernet15\nexiting on user interrupt\n");
    EXPECT_EQ(rendr::takeStopSignal(), SIGINT);
  }
}

// SIGTERM and SIGHUP stop a listing as ^C does while a printer exists, so that a JSON document
// cut by a service manager is still whole (the program's tests show it end to end); with no
// listing to close, SIGTERM does what it always does.
TEST(PrinterSignals, TerminateWithoutAPrinterEndsTheProcess) {
  EXPECT_EXIT(
      {
        rendr::installSignalHandlers();
        { rendr::Printer p(1, kFormatText, true, false, true, 0); }
        raise(SIGTERM);
        std::exit(0);
      },
      testing::KilledBySignal(SIGTERM), "");
  // A front end that holds the signals for a whole command gets it at its end.
  rendr::installSignalHandlers();
  rendr::clearInterrupt();
  {
    rendr::StopSignalHold hold;
    raise(SIGTERM);
  }
  EXPECT_EQ(rendr::takeStopSignal(), SIGTERM);
}

TEST(PrinterOutput, ClosedReaderEndsTheOutputQuietly) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  close(fds[0]);
  rendr::Printer::clearOutputFailed();
  int calls = 0;
  bool closed = false;
  std::string err = rovatest::captureStderr([&] {
    rendr::Printer p(fds[1], kFormatJson, true, false, true, 0);
    rendr::StringAttrInfo s("description", kFormatJson);
    s.setValue(std::string(100, 'd'));
    try {
      p.startList("l");
      for (; calls < 100000; ++calls) {  // 12 MB: far beyond what a pipe holds
        p.startListEntry();
        p.addAttributes("%s", 1, s.getArg());
        p.endListEntry();
      }
    } catch (const rendr::outputClosedException& e) {
      EXPECT_STREQ(e.what(), "output closed");
      closed = true;
    }
    // Later calls stop too, as an interrupt would stop them.
    EXPECT_THROW(p.startListEntry(), rendr::sigintException);
    EXPECT_THROW(p.fullness(), rendr::outputClosedException);
  });  // and the destructor does not throw
  close(fds[1]);
  EXPECT_TRUE(closed);
  EXPECT_GT(calls, 100);  // a whole buffer went before the write failed
  EXPECT_EQ(err, "");
  EXPECT_FALSE(rendr::Printer::outputFailed());
}

// A block left by a stop closes nothing: the printer throws again on every call after a stop,
// and a throw from a destructor while the first exception is on its way ends the process.
TEST(PrinterOutput, BlocksLeftByAStopCloseNothing) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  close(fds[0]);
  rendr::Printer::clearOutputFailed();
  bool closed = false;
  rovatest::captureStderr([&] {
    rendr::Printer p(fds[1], kFormatJson, true, false, true, 0);
    rendr::StringAttrInfo s("description", kFormatJson);
    s.setValue(std::string(100, 'd'));
    try {
      auto l = p.list("l");
      for (int calls = 0; calls < 100000; ++calls) {
        auto entry = p.listEntry();
        p.addAttributes("%s", 1, s.getArg());
      }
    } catch (const rendr::outputClosedException&) {
      closed = true;
    }
  });
  close(fds[1]);
  EXPECT_TRUE(closed);
}

// A full disk stops the listing at the write that failed: a million-route listing must not
// be produced in full only to be thrown away.
TEST(PrinterOutput, OtherWriteErrorsAreReportedOnceAndStopTheOutput) {
  int fd = open("/dev/full", O_WRONLY);
  ASSERT_GE(fd, 0);
  rendr::Printer::clearOutputFailed();
  int calls = 0;
  std::string err = rovatest::captureStderr([&] {
    rendr::Printer p(fd, kFormatJson, true, false, true, 0);
    rendr::StringAttrInfo s("description", kFormatJson);
    s.setValue(std::string(100, 'd'));
    try {
      p.startList("l");
      for (; calls < 100000; ++calls) {
        p.startListEntry();
        p.addAttributes("%s", 1, s.getArg());
        p.endListEntry();
      }
    } catch (const rendr::outputFailedException& e) {
      EXPECT_STREQ(e.what(), "output failed");
    }
    EXPECT_THROW(p.ioflush(), rendr::outputClosedException);
    EXPECT_THROW(p.fullness(), rendr::outputFailedException);
    p.reportStop(rendr::outputFailedException());  // nothing more to say
  });                                              // and the destructor does not throw
  close(fd);
  // The first buffer that went out failed: entries of some 150 bytes fill it.
  EXPECT_LT(calls, static_cast<int>(rendr::Printer::kBufferSize / 100));
  EXPECT_EQ(err, std::string("% Error writing output: ") + strerror(ENOSPC) + "\n");
  EXPECT_TRUE(rendr::Printer::outputFailed());
  rendr::Printer::clearOutputFailed();
}

}  // namespace

// Where each form of the output says what: a text-only block, the output of a command with
// nothing to show, and the line a failure that escaped a listing leaves.
TEST(PrinterOutput, WhatEachFormSaysOfBlocksNothingAndFailures) {
  for (unsigned format : {kFormatText, kFormatJson}) {
    SCOPED_TRACE(format);
    const bool text = format == kFormatText;
    rovatest::MemoryFile cap;
    const std::string err = rovatest::captureStderr([&] {
      rendr::Printer p(cap.fd(), format, true, false, true, 0);
      rendr::IntAttrInfo n("n", format);
      n.setValue(7);
      EXPECT_EQ(p.textOnly([&] {
        p.startSubmodel("block");
        p.addAttributes("block %d", 1, n.getArg());
        p.endSubmodel();
      }),
                text);
      p.addAttributes(" n=%d", 1, n.getArg());
      p.reportFailure(std::runtime_error("table gone"));
    });
    if (text) {
      EXPECT_EQ(cap.contents(), "block 7 n=7\nexiting table gone\n");
      EXPECT_EQ(err, "");
    } else {
      EXPECT_EQ(nlohmann::json::parse(cap.contents()), nlohmann::json::parse(R"({"n": 7})"));
      EXPECT_EQ(err, "exiting table gone\n");
    }
    rovatest::MemoryFile empty;
    rendr::writeEmptyOutput(empty.fd(), format);
    EXPECT_EQ(empty.contents(), text ? "" : "{}\n");
  }
}
