#pragma once
// The CLI printer: every listing is written once, as a sequence of calls on one Printer, and
// comes out either as text or as JSON. Text comes from printf-style templates (attributes
// and frills); JSON from the structure calls and the attributes' names and values. See
// docs/printer.md for the JSON layout and what each call writes in each format.
//
//   rendr::Printer p(fd, format, true, false, true, 0);
//   rendr::StringAttrInfo prefix("prefix", format);
//   {
//     auto routes = p.dict("routes");
//     for (...) {
//       prefix.setValue(text);
//       {
//         auto entry = p.dictEntry(prefix);
//         p.addAttributes(" %s\n", 1, prefix.getArg());
//       }
//       p.itemDone();
//     }
//   }
//
// JSON is streamed, never held as a tree, and always valid: a call out of sequence (closing
// what is not open, an entry outside its dict or list, an attribute directly in a list,
// anything after end()) raises Mox::InternalException before it writes, in both formats.
// The destructor closes whatever is still open.
//
// Every call first checks for the user's interrupt (see Interrupt.h) and throws
// sigintException when one arrived; when the reader of the output has gone away, the call
// that found out, and every later one, throws outputClosedException. Other write errors are
// reported once on stderr and every call from then on throws outputFailedException;
// outputFailed() tells too. While a printer exists it holds SIGTERM and SIGHUP (Interrupt.h).

#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/rendr/AttrInfo.h"
#include "platform/rendr/Interrupt.h"
#include "platform/rendr/OutputBuffer.h"
#include "platform/rendr/Template.h"

namespace rendr {

class Printer {
 public:
  static constexpr std::size_t kBufferSize = detail::OutputBuffer::kCapacity;
  // Nesting deeper than this is a programming error (listings use five or six levels).
  static constexpr unsigned kMaxDepth = 64;
  // The most attributes one addAttributes call takes.
  static constexpr int kMaxAttributes = 64;

  // `format` is kFormatText (1) or kFormatJson (2); anything else is an assertion. The three
  // flags and the last number are accepted for the callers' sake and have no effect; callers
  // pass true, false, true, 0. Ignores SIGPIPE and installs the interrupt handler (once).
  Printer(int fd, unsigned format, bool = true, bool = false, bool = true, unsigned = 0);
  // Closes what is still open, ends JSON with a newline ("{}" when nothing was written) and
  // writes the buffer out. Never throws.
  ~Printer();
  Printer(const Printer&) = delete;
  Printer& operator=(const Printer&) = delete;

  unsigned format() const { return format_; }

  // The root object. Optional: the first call that needs it opens it.
  void start();
  void end();

  // An object under `name` whose members are dict entries.
  void startDict(const char* name);
  void endDict();
  // A member of the open dict, keyed by the key attribute's value, whose value is an object.
  void startDictEntry(const AttrInfo& key);
  void endDictEntry();
  // The members every entry of a listing starts with (a route's flags, type, preference and
  // metric), named once for the listing. startDictEntry(key, members) opens the entry and
  // writes each attribute's current value under its name, as addAttributesJson would, in one
  // call: the keys and their indent are made once for the depth the entries stand at, and
  // values are copied straight into the output (a string that needs escaping is escaped as
  // everywhere else). Text writes nothing for them: the caller writes the row as it likes.
  class EntryMembers {
   public:
    EntryMembers(std::initializer_list<const AttrInfo*> attrs);

   private:
    friend class Printer;
    void layOut(unsigned depth);

    std::vector<const AttrInfo*> attrs_;
    // Each member's ",\n", indent and "\"name\": " for the depth laid out, end to end.
    std::string keys_;
    std::vector<std::uint32_t> keyEnds_;
    unsigned depth_ = 0;  // none yet
  };
  void startDictEntry(const AttrInfo& key, EntryMembers& members);

  // A member of the open dict whose value is the single attribute of the next addAttributes
  // or addAttributesJson call (null if there is none).
  void startSimpleDictEntry(const AttrInfo& key);
  void endSimpleDictEntry();

  // An array under `name` whose elements are objects.
  void startList(const char* name);
  void endList();
  void startListEntry();
  void endListEntry();

  // An object under `name` in the current object.
  void startSubmodel(const char* name);
  void endSubmodel();

  // n attributes, passed as their getArg(). Text: fmt is a printf template over them. JSON:
  // each becomes "name": value in the current object.
  void addAttributes(const char* fmt, int n, ...);
  // The same, with a template parsed once (a row's template, used on every row).
  void addAttributes(const Template& t, int n, ...);
  void addAttributesJson(int n, ...);
  // Text only: these bytes as they are, with nothing to format (a row's prefix).
  void addText(std::string_view text);
  // Text only: printf-style decoration (headers, legends, separators) and plain arguments.
  // Neither is formatted at all in JSON.
  void addFrills(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
  void addArgs(const char* fmt, ...) __attribute__((format(printf, 2, 3)));

  // A block of the page that only the text shows: `body` runs, and its calls print, in text
  // alone; the JSON document has its facts elsewhere (in attributes, or in another place of
  // the document). Returns whether the block ran.
  template <class Body>
  bool textOnly(Body&& body) {
    if (json()) return false;
    body();
    return true;
  }

  // Closes every level still open above the root: a listing cut short by an interrupt leaves
  // the printer ready for the next one. Never throws.
  void unwind() noexcept;

  // Says why a listing stopped, after the printer threw `stop`: "exiting <reason>" on a line
  // of its own in text, on stderr in JSON (whose document the destructor closes). A reader
  // that went away or output that failed are not reported again. Never throws.
  void reportStop(const sigintException& stop) noexcept;
  // Says that the listing ended on `failure`, which escaped it: "exiting <what>" where the user
  // sees it, as reportStop does (a stop is reported as reportStop reports it). Never throws.
  void reportFailure(const std::exception& failure) noexcept;

  // A run of output made once and written again. When entries of a listing share a part (the
  // vias of one FEC are the same for every route through it), the part is printed once with
  // the usual calls between startRecording() and finishRecording(), and later entries
  // replay() its bytes. The caller keeps the bytes (many runs in one array of its own reads
  // faster than one allocation each); the shape is the structure they were made in and left
  // (the depth, and members before and after), and a run replays only where the structure is
  // as it was when it was made, which is an assertion. A run that did not stay in the buffer
  // (it was written out in between) is printed but cannot be kept: finishRecording returns
  // nothing.
  struct RecordingStart {
    std::size_t at;
    std::uint64_t breaks;
    unsigned depth;
    bool hadMembers;
  };
  struct RecordedShape {
    std::uint16_t depth = 0;
    bool hadMembers = false;
    bool hasMembers = false;
  };
  //
  // A run of text lines may hang under its first: each line after it starts with the same
  // blanks (the vias under a route's first line). finishHangingRecording keeps such a run
  // without the `hang` blanks of its lines, in a form of the printer's own that only
  // replayHanging reads (nothing is returned when a line does not start with them), and
  // replayHanging puts back the blanks it is given, so that one run serves every indent. JSON
  // has no such blanks: its bytes are kept and replayed as they are.
  RecordingStart startRecording() const;
  // The bytes since `start` (valid until the next output) and their shape.
  std::optional<std::string_view> finishRecording(const RecordingStart& start,
                                                  RecordedShape& shape) const;
  void replay(std::string_view bytes, RecordedShape shape);
  std::optional<std::string_view> finishHangingRecording(const RecordingStart& start,
                                                         RecordedShape& shape,
                                                         std::size_t hang) const;
  void replayHanging(std::string_view run, RecordedShape shape, std::size_t hang);
  //
  // A run may be kept by the printer itself, for the rest of its life, at a place that never
  // moves: a replay of a kept run goes out without being copied into the buffer (the write
  // takes it where it is), which is what a listing that replays a FEC's vias a million times
  // wants. keep() returns nothing for a run it cannot keep (over 1 MiB, or 4 GiB kept).
  struct KeptRun {
    std::uint32_t at = 0;
    std::uint32_t size = 0;
  };
  std::optional<KeptRun> keep(std::string_view run);
  std::string_view kept(KeptRun run) const;
  // replay() and replayHanging() of a kept run.
  void replayKept(KeptRun run, RecordedShape shape);
  void replayKeptHanging(KeptRun run, RecordedShape shape, std::size_t hang);

  // Block forms of the structure calls: what a block opens is closed when the block ends, so
  // that no dictionary, list or entry is left open by a return or a forgotten end call. A
  // block left by an exception closes nothing: the stop or failure that threw owns the rest of
  // the output (the cut listing's JSON is closed by reportStop, or by the destructor).
  class [[nodiscard]] Block {
   public:
    Block(Printer& p, void (Printer::*end)())
        : p_(&p), end_(end), exceptions_(std::uncaught_exceptions()) {}
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;
    ~Block() noexcept(false) {
      if (std::uncaught_exceptions() == exceptions_) (p_->*end_)();
    }

   private:
    Printer* p_;
    void (Printer::*end_)();
    int exceptions_;
  };
  Block dict(const char* name);
  Block dictEntry(const AttrInfo& key);
  Block dictEntry(const AttrInfo& key, EntryMembers& members);
  Block list(const char* name);
  Block listEntry();
  Block submodel(const char* name);

  // A listing says where it finished one of its items; the printer writes its buffer out
  // there once it is two-thirds full, so that a long listing streams in large writes and ends
  // no write in the middle of an item.
  void itemDone();

  // The output buffer's fill, in percent (0 to 100).
  unsigned fullness();
  // Writes the buffer to the file descriptor now.
  void ioflush();

  // Whether a printer of this process failed to write its output (a closed pipe excepted).
  static bool outputFailed();
  static void clearOutputFailed();

 private:
  enum class Frame : std::uint8_t {
    none,
    root,
    dict,
    dictEntry,
    simpleEntry,
    list,
    listEntry,
    submodel
  };
  struct Level {
    Frame frame;
    bool hasMembers;
  };

  void enter() {
    if (out_.stopped()) [[unlikely]]
      throwStopped();
    if (const int sig = detail::takeInterrupt()) [[unlikely]]
      throwInterrupt(sig);
  }
  // The output closed or failed during this call: the call still completed its bookkeeping.
  void leave() {
    if (out_.stopped()) [[unlikely]]
      throwStopped();
  }
  [[noreturn]] void throwStopped() const;
  void sayExiting(std::string_view reason) noexcept;
  [[noreturn]] static void throwInterrupt(int sig);

  bool json() const { return format_ == kFormatJson; }
  Frame top() const { return depth_ ? stack_[depth_ - 1].frame : Frame::none; }
  static bool isObject(Frame f);
  void requireObject();
  void requireRoom() const;
  void openRootIfNeeded();
  void push(Frame f);
  void pop(Frame expected);
  void closeTop();

  void jsonNewline(unsigned level);
  void jsonMember();
  void jsonKey(const char* name);
  void jsonAttrKey(const AttrInfo& a);
  void jsonKeyFromValue(const AttrInfo& a);
  void jsonValue(const AttrInfo& a);
  void jsonEntryKey(const AttrInfo& key);
  void jsonMembers(EntryMembers& members);
  void addJson(const AttrInfo* const* attrs, int n);
  // What both addAttributes do once their attributes are gathered (`complete`: none is null).
  template <class Text>
  void writeAttributes(const Text& text, const AttrInfo* const* attrs, int n, bool complete);
  void requireAttributeContext(int n);
  void appendBlanks(std::size_t n);
  void requireShape(RecordedShape shape) const;

  StopSignalHold hold_;
  detail::OutputBuffer out_;
  unsigned format_;
  unsigned depth_ = 0;
  enum class Root : std::uint8_t { notStarted, open, ended } root_ = Root::notStarted;
  std::array<Level, kMaxDepth> stack_;
  mutable std::string hanging_;  // the last hanging run finished
  // Kept runs, in chunks that never move; a run's place is its chunk times kKeptChunk plus its
  // offset there.
  static constexpr std::size_t kKeptChunk = std::size_t(1) << 20;
  std::vector<std::unique_ptr<char[]>> keptChunks_;
  std::size_t keptUsed_ = 0;  // in the last chunk
};

// The output of a command that has nothing to show, or that failed before it showed anything:
// standard output always carries one JSON document, so in JSON the empty one ("{}"); in text,
// nothing.
void writeEmptyOutput(int fd, unsigned format);

}  // namespace rendr
