#include "platform/rendr/Printer.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include "platform/mox/Exception.h"
#include "platform/rendr/Copy.h"
#include "platform/rendr/JsonText.h"
#include "platform/rendr/Template.h"

namespace rendr {

namespace {

// An indent is written 16 blanks at a time.
constexpr char kBlanks[17] = "                ";
// How full the buffer is, in percent, when a finished item has it written out.
constexpr unsigned kFlushFullness = 66;

// Reads n getArg() pointers; false when one of them is null.
bool collectAttributes(va_list ap, int n, const AttrInfo** attrs) {
  bool complete = true;
  for (int i = 0; i < n; ++i) {
    attrs[i] = va_arg(ap, const AttrInfo*);
    complete &= attrs[i] != nullptr;
  }
  return complete;
}

}  // namespace

Printer::Printer(int fd, unsigned format, bool, bool, bool, unsigned) : out_(fd), format_(format) {
  MOX_ASSERT(format == kFormatText || format == kFormatJson);
  installSignalHandlers();
}

Printer::~Printer() {
  if (json()) {
    if (root_ == Root::notStarted) {
      out_.append("{}\n", 3);
    } else {
      while (depth_)
        closeTop();
    }
  }
  out_.flush();
}

void writeEmptyOutput(int fd, unsigned format) {
  Printer p(fd, format);  // a printer that writes nothing leaves the empty document
}

void Printer::unwind() noexcept {
  while (depth_ > 1 || (depth_ == 1 && top() != Frame::root))
    closeTop();
}

void Printer::throwStopped() const {
  if (out_.failed()) throw outputFailedException();
  throw outputClosedException();
}

void Printer::throwInterrupt(int sig) {
  throw sigintException(sig);
}

void Printer::reportStop(const sigintException& stop) noexcept {
  if (stop.signal() == 0) return;  // a reader gone, or output failed: nothing more to say
  sayExiting(stop.what());
}

void Printer::reportFailure(const std::exception& failure) noexcept {
  if (const auto* stop = dynamic_cast<const sigintException*>(&failure)) {
    reportStop(*stop);
    return;
  }
  sayExiting(failure.what());
}

// "exiting <reason>" where the user sees it: on a line of its own in text (a listing is cut
// wherever it was, often within a line); on stderr in JSON, whose output is the document alone.
void Printer::sayExiting(std::string_view reason) noexcept {
  try {
    std::string line = "exiting ";
    line += reason;
    line += '\n';
    if (json()) {
      ssize_t ignored = ::write(STDERR_FILENO, line.data(), line.size());
      (void)ignored;
      return;
    }
    if (!out_.atLineStart()) out_.put('\n');
    out_.append(line.data(), line.size());
    out_.flush();
  } catch (...) {
    // Nowhere left to say it.
  }
}

Printer::RecordingStart Printer::startRecording() const {
  const bool members = depth_ && stack_[depth_ - 1].hasMembers;
  return {out_.used(), out_.breaks(), depth_, members};
}

std::optional<std::string_view> Printer::finishRecording(const RecordingStart& start,
                                                         RecordedShape& shape) const {
  if (out_.breaks() != start.breaks || depth_ != start.depth || depth_ == 0) return {};
  shape.depth = static_cast<std::uint16_t>(depth_);
  shape.hadMembers = start.hadMembers;
  shape.hasMembers = stack_[depth_ - 1].hasMembers;
  return std::string_view(out_.data() + start.at, out_.used() - start.at);
}

void Printer::replay(std::string_view bytes, RecordedShape shape) {
  enter();
  requireShape(shape);
  out_.append(bytes.data(), bytes.size());
  stack_[depth_ - 1].hasMembers = shape.hasMembers;
  leave();
}

// A hanging run, in text, is a list of pieces, each a length byte and up to 255 bytes of text;
// after a piece that ends a line, unless it is the last, come the blanks of the next line.
// Replaying it copies pieces of known length, without looking for the line breaks again.
std::optional<std::string_view> Printer::finishHangingRecording(const RecordingStart& start,
                                                                RecordedShape& shape,
                                                                std::size_t hang) const {
  auto bytes = finishRecording(start, shape);
  if (!bytes || json()) return bytes;
  std::string_view rest = *bytes;
  hanging_.clear();
  while (!rest.empty()) {
    const std::size_t lineEnd = rest.find('\n');
    std::string_view line = rest.substr(0, lineEnd == rest.npos ? rest.npos : lineEnd + 1);
    rest.remove_prefix(line.size());
    for (std::string_view piece = line; !piece.empty();) {
      const std::size_t n = std::min<std::size_t>(piece.size(), 255);
      hanging_ += static_cast<char>(n);
      hanging_.append(piece.substr(0, n));
      piece.remove_prefix(n);
    }
    if (rest.empty() || line.back() != '\n') break;
    if (rest.size() < hang || rest.substr(0, hang).find_first_not_of(' ') != rest.npos) return {};
    rest.remove_prefix(hang);
  }
  return std::string_view(hanging_);
}

void Printer::replayHanging(std::string_view run, RecordedShape shape, std::size_t hang) {
  if (json()) {
    replay(run, shape);
    return;
  }
  enter();
  requireShape(shape);
  const char* p = run.data();
  const char* const end = p + run.size();
  // Every piece has its length byte and ends at most one line, whose break is at least one
  // byte: the run takes at most this much room with its blanks. With that room and some to
  // spare, pieces and blanks are copied in fixed 32-byte moves (a piece's copy may read into
  // the next piece, and both may write past their end into the spare room, which the next
  // copy overwrites or the buffer never commits): a run is a few short lines, and a copy of
  // variable length costs more than the bytes it moves.
  constexpr std::size_t kMove = 32;
  const std::size_t most = run.size() + run.size() / 2 * hang;
  if (most + 2 * kMove <= out_.room()) {
    static constexpr char kHangBlanks[kMove + 1] = "                                ";  // 32
    char* const start = out_.tail();
    char* d = start;
    while (p < end) {
      const auto n = static_cast<unsigned char>(*p++);
      if (n <= kMove && end - p >= static_cast<std::ptrdiff_t>(kMove)) {
        std::memcpy(d, p, kMove);
      } else {
        detail::moveBytes(d, p, n);
      }
      d += n;
      p += n;
      if (p < end && p[-1] == '\n') {
        for (std::size_t k = 0; k < hang; k += kMove)
          std::memcpy(d + k, kHangBlanks, kMove);
        d += hang;
      }
    }
    out_.commit(static_cast<std::size_t>(d - start));
  } else {
    while (p < end) {
      const auto n = static_cast<unsigned char>(*p++);
      out_.append(p, n);
      p += n;
      if (p < end && p[-1] == '\n') appendBlanks(hang);
    }
  }
  stack_[depth_ - 1].hasMembers = shape.hasMembers;
  leave();
}

std::optional<Printer::KeptRun> Printer::keep(std::string_view run) {
  if (run.size() > kKeptChunk) return {};
  if (keptChunks_.empty() || keptUsed_ + run.size() > kKeptChunk) {
    // The places are 32-bit.
    if ((keptChunks_.size() + 1) * kKeptChunk > UINT32_MAX) return {};
    keptChunks_.push_back(std::make_unique_for_overwrite<char[]>(kKeptChunk));
    keptUsed_ = 0;
  }
  const KeptRun kept{static_cast<std::uint32_t>((keptChunks_.size() - 1) * kKeptChunk + keptUsed_),
                     static_cast<std::uint32_t>(run.size())};
  std::memcpy(keptChunks_.back().get() + keptUsed_, run.data(), run.size());
  keptUsed_ += run.size();
  return kept;
}

std::string_view Printer::kept(KeptRun run) const {
  MOX_ASSERT(run.at / kKeptChunk < keptChunks_.size() &&
             run.at % kKeptChunk + run.size <= kKeptChunk && "a run this printer did not keep");
  return {keptChunks_[run.at / kKeptChunk].get() + run.at % kKeptChunk, run.size};
}

void Printer::replayKept(KeptRun run, RecordedShape shape) {
  enter();
  requireShape(shape);
  const std::string_view bytes = kept(run);
  out_.appendStable(bytes.data(), bytes.size());
  stack_[depth_ - 1].hasMembers = shape.hasMembers;
  leave();
}

void Printer::replayKeptHanging(KeptRun run, RecordedShape shape, std::size_t hang) {
  if (json()) {
    replayKept(run, shape);
  } else {
    replayHanging(kept(run), shape, hang);
  }
}

void Printer::requireShape(RecordedShape shape) const {
  MOX_ASSERT(depth_ == shape.depth && stack_[depth_ - 1].hasMembers == shape.hadMembers &&
             "a recording replayed where the structure differs");
}

void Printer::appendBlanks(std::size_t n) {
  static constexpr char kBlanks[] = "                                ";  // 32
  for (; n > 32; n -= 32)
    out_.append(kBlanks, 32);
  out_.append(kBlanks, n);
}

bool Printer::outputFailed() {
  return detail::OutputBuffer::anyFailed();
}

void Printer::clearOutputFailed() {
  detail::OutputBuffer::clearAnyFailed();
}

// ---- structure ----

bool Printer::isObject(Frame f) {
  return f == Frame::root || f == Frame::dictEntry || f == Frame::listEntry || f == Frame::submodel;
}

void Printer::openRootIfNeeded() {
  if (root_ == Root::open) [[likely]]
    return;
  MOX_ASSERT(root_ != Root::ended && "output after end()");
  root_ = Root::open;
  push(Frame::root);
  if (json()) out_.put('{');
}

void Printer::requireObject() {
  openRootIfNeeded();
  MOX_ASSERT(isObject(top()) && "a named member outside an object");
  requireRoom();
}

// Checked before anything of the new level is written, so that the output stays valid.
void Printer::requireRoom() const {
  MOX_ASSERT(depth_ < kMaxDepth && "nesting too deep");
}

void Printer::push(Frame f) {
  stack_[depth_++] = {f, false};
}

void Printer::closeTop() {
  Level level = stack_[--depth_];
  if (!json()) {
    if (level.frame == Frame::root) root_ = Root::ended;
    return;
  }
  if (level.frame == Frame::simpleEntry) {
    if (!level.hasMembers) out_.append("null", 4);
    return;
  }
  if (level.hasMembers) jsonNewline(depth_);
  out_.put(level.frame == Frame::list ? ']' : '}');
  if (level.frame == Frame::root) {
    out_.put('\n');
    root_ = Root::ended;
  }
}

void Printer::start() {
  enter();
  MOX_ASSERT(root_ == Root::notStarted && "start() after output began");
  openRootIfNeeded();
}

void Printer::end() {
  enter();
  openRootIfNeeded();  // end() alone writes "{}"; a second end() is an assertion
  MOX_ASSERT(top() == Frame::root && "end() with a dict, list or submodel still open");
  closeTop();
  leave();
}

void Printer::startDict(const char* name) {
  enter();
  MOX_ASSERT(name);
  requireObject();
  if (json()) {
    jsonMember();
    jsonKey(name);
    out_.put('{');
  }
  push(Frame::dict);
  leave();
}

void Printer::endDict() {
  enter();
  MOX_ASSERT(top() == Frame::dict && "endDict() with no dict open");
  closeTop();
  leave();
}

void Printer::startDictEntry(const AttrInfo& key) {
  enter();
  MOX_ASSERT(top() == Frame::dict && "startDictEntry() outside a dict");
  MOX_ASSERT(key.isSet() && "a dict entry keyed by an attribute that is not set");
  requireRoom();
  if (json()) {
    jsonMember();
    jsonKeyFromValue(key);
    out_.put('{');
  }
  push(Frame::dictEntry);
  leave();
}

void Printer::startDictEntry(const AttrInfo& key, EntryMembers& members) {
  enter();
  MOX_ASSERT(top() == Frame::dict && "startDictEntry() outside a dict");
  MOX_ASSERT(key.isSet() && "a dict entry keyed by an attribute that is not set");
  requireRoom();
  if (json()) jsonEntryKey(key);
  push(Frame::dictEntry);
  if (json()) jsonMembers(members);
  leave();
}

void Printer::endDictEntry() {
  enter();
  MOX_ASSERT(top() == Frame::dictEntry && "endDictEntry() with no dict entry open");
  closeTop();
  leave();
}

void Printer::startSimpleDictEntry(const AttrInfo& key) {
  enter();
  MOX_ASSERT(top() == Frame::dict && "startSimpleDictEntry() outside a dict");
  MOX_ASSERT(key.isSet() && "a dict entry keyed by an attribute that is not set");
  requireRoom();
  if (json()) {
    jsonMember();
    jsonKeyFromValue(key);
  }
  push(Frame::simpleEntry);
  leave();
}

void Printer::endSimpleDictEntry() {
  enter();
  MOX_ASSERT(top() == Frame::simpleEntry && "endSimpleDictEntry() with no simple entry open");
  closeTop();
  leave();
}

void Printer::startList(const char* name) {
  enter();
  MOX_ASSERT(name);
  requireObject();
  if (json()) {
    jsonMember();
    jsonKey(name);
    out_.put('[');
  }
  push(Frame::list);
  leave();
}

void Printer::endList() {
  enter();
  MOX_ASSERT(top() == Frame::list && "endList() with no list open");
  closeTop();
  leave();
}

void Printer::startListEntry() {
  enter();
  MOX_ASSERT(top() == Frame::list && "startListEntry() outside a list");
  requireRoom();
  if (json()) {
    jsonMember();
    out_.put('{');
  }
  push(Frame::listEntry);
  leave();
}

void Printer::endListEntry() {
  enter();
  MOX_ASSERT(top() == Frame::listEntry && "endListEntry() with no list entry open");
  closeTop();
  leave();
}

void Printer::startSubmodel(const char* name) {
  enter();
  MOX_ASSERT(name);
  requireObject();
  if (json()) {
    jsonMember();
    jsonKey(name);
    out_.put('{');
  }
  push(Frame::submodel);
  leave();
}

void Printer::endSubmodel() {
  enter();
  MOX_ASSERT(top() == Frame::submodel && "endSubmodel() with no submodel open");
  closeTop();
  leave();
}

// ---- attributes and text ----

void Printer::requireAttributeContext(int n) {
  if (n == 0) return;  // a template without attributes writes no JSON
  openRootIfNeeded();
  if (top() == Frame::simpleEntry) {
    MOX_ASSERT(!stack_[depth_ - 1].hasMembers && "a second value for a simple dict entry");
    MOX_ASSERT(n == 1 && "a simple dict entry takes exactly one attribute");
    stack_[depth_ - 1].hasMembers = true;
    return;
  }
  MOX_ASSERT(isObject(top()) && "attributes outside an object");
}

template <class Text>
void Printer::writeAttributes(const Text& text, const AttrInfo* const* attrs, int n,
                              bool complete) {
  MOX_ASSERT(complete && "a null attribute");
  requireAttributeContext(n);
  if (json()) {
    addJson(attrs, n);
  } else if constexpr (std::is_same_v<Text, Template>) {
    if (!text.empty()) detail::formatAttributes(out_, text, attrs, n);
  } else if (text && *text) {
    detail::formatAttributes(out_, text, attrs, n);
  }
  leave();
}

void Printer::addAttributes(const char* fmt, int n, ...) {
  enter();
  MOX_ASSERT(n >= 0 && n <= kMaxAttributes);
  const AttrInfo* attrs[kMaxAttributes];
  va_list ap;
  va_start(ap, n);
  bool complete = collectAttributes(ap, n, attrs);
  va_end(ap);
  writeAttributes(fmt, attrs, n, complete);
}

void Printer::addAttributes(const Template& t, int n, ...) {
  enter();
  MOX_ASSERT(n >= 0 && n <= kMaxAttributes);
  const AttrInfo* attrs[kMaxAttributes];
  va_list ap;
  va_start(ap, n);
  bool complete = collectAttributes(ap, n, attrs);
  va_end(ap);
  writeAttributes(t, attrs, n, complete);
}

void Printer::addText(std::string_view text) {
  enter();
  if (json()) return;
  out_.append(text.data(), text.size());
  leave();
}

void Printer::addAttributesJson(int n, ...) {
  enter();
  MOX_ASSERT(n >= 0 && n <= kMaxAttributes);
  const AttrInfo* attrs[kMaxAttributes];
  va_list ap;
  va_start(ap, n);
  bool complete = collectAttributes(ap, n, attrs);
  va_end(ap);
  MOX_ASSERT(complete && "a null attribute");
  requireAttributeContext(n);
  if (json()) addJson(attrs, n);
  leave();
}

void Printer::addFrills(const char* fmt, ...) {
  enter();
  if (json() || !fmt) return;
  va_list ap;
  va_start(ap, fmt);
  detail::formatArgs(out_, fmt, ap);
  va_end(ap);
  leave();
}

void Printer::addArgs(const char* fmt, ...) {
  enter();
  if (json() || !fmt) return;
  va_list ap;
  va_start(ap, fmt);
  detail::formatArgs(out_, fmt, ap);
  va_end(ap);
  leave();
}

unsigned Printer::fullness() {
  enter();
  return out_.fullness();
}

Printer::Block Printer::dict(const char* name) {
  startDict(name);
  return Block(*this, &Printer::endDict);
}

Printer::Block Printer::dictEntry(const AttrInfo& key) {
  startDictEntry(key);
  return Block(*this, &Printer::endDictEntry);
}

Printer::Block Printer::dictEntry(const AttrInfo& key, EntryMembers& members) {
  startDictEntry(key, members);
  return Block(*this, &Printer::endDictEntry);
}

Printer::Block Printer::list(const char* name) {
  startList(name);
  return Block(*this, &Printer::endList);
}

Printer::Block Printer::listEntry() {
  startListEntry();
  return Block(*this, &Printer::endListEntry);
}

Printer::Block Printer::submodel(const char* name) {
  startSubmodel(name);
  return Block(*this, &Printer::endSubmodel);
}

void Printer::itemDone() {
  if (fullness() > kFlushFullness) ioflush();
}

void Printer::ioflush() {
  enter();
  out_.flush();
  leave();
}

// ---- JSON ----

void Printer::jsonNewline(unsigned level) {
  std::size_t n = 2 * level;
  // Blanks go in 16-byte moves; the overshoot lands in reserved space and is not committed.
  char* p = out_.reserve(n + 17);
  p[0] = '\n';
  for (std::size_t i = 0; i < n; i += 16)
    std::memcpy(p + 1 + i, kBlanks, 16);
  out_.commit(n + 1);
}

// Starts a member (or an element) of the innermost open object or array.
void Printer::jsonMember() {
  Level& level = stack_[depth_ - 1];
  if (level.hasMembers) out_.put(',');
  level.hasMembers = true;
  jsonNewline(depth_);
}

void Printer::jsonKey(const char* name) {
  detail::writeJsonString(out_, name);
  out_.append(": ", 2);
}

void Printer::jsonAttrKey(const AttrInfo& a) {
  const std::string& name = a.name();
  if (a.namePlain() && name.size() < 256) {
    char* p = out_.reserve(name.size() + 4);
    p[0] = '"';
    detail::moveBytes(p + 1, name.data(), name.size());
    std::memcpy(p + 1 + name.size(), "\": ", 3);
    out_.commit(name.size() + 4);
    return;
  }
  jsonKey(name.c_str());
}

// A dict entry's key: the key attribute's value, as a string whatever its kind.
void Printer::jsonKeyFromValue(const AttrInfo& a) {
  if (a.kind() == JsonKind::string) {
    detail::writeJsonString(out_, a.stringValue());
    out_.append(": ", 2);
    return;
  }
  char* start = out_.reserve(40);
  char* p = start;
  char* end = start + 37;
  *p++ = '"';
  switch (a.kind()) {
    case JsonKind::int32:
      p = std::to_chars(p, end, a.int32Value()).ptr;
      break;
    case JsonKind::uint32:
      p = std::to_chars(p, end, a.uint32Value()).ptr;
      break;
    case JsonKind::uint64:
      p = std::to_chars(p, end, a.uint64Value()).ptr;
      break;
    case JsonKind::double_:
      p += detail::shortestDouble(p, a.doubleValue());
      break;
    case JsonKind::boolean:
      std::memcpy(p, a.boolValue() ? "true" : "false", 5);
      p += a.boolValue() ? 4 : 5;
      break;
    case JsonKind::string:
      break;
  }
  std::memcpy(p, "\": ", 3);
  out_.commit(static_cast<std::size_t>(p + 3 - start));
}

void Printer::jsonValue(const AttrInfo& a) {
  if (!a.isSet()) {
    out_.append("null", 4);
    return;
  }
  switch (a.kind()) {
    case JsonKind::string:
      detail::writeJsonString(out_, a.stringValue());
      break;
    case JsonKind::int32:
      detail::writeJsonInt(out_, a.int32Value());
      break;
    case JsonKind::uint32:
      detail::writeJsonUint(out_, a.uint32Value());
      break;
    case JsonKind::uint64:
      detail::writeJsonUint(out_, a.uint64Value());
      break;
    case JsonKind::double_:
      detail::writeJsonDouble(out_, a.doubleValue());
      break;
    case JsonKind::boolean:
      if (a.boolValue()) {
        out_.append("true", 4);
      } else {
        out_.append("false", 5);
      }
      break;
  }
}

// jsonMember(), jsonKeyFromValue(key) and the entry's "{", in one piece for a key of plain
// text (a prefix, a name): the key of a million entries of a listing.
void Printer::jsonEntryKey(const AttrInfo& key) {
  Level& level = stack_[depth_ - 1];
  const std::string_view text = key.stringValue();
  if (key.kind() != JsonKind::string || text.size() > 256 ||
      !detail::plainText(text.data(), text.size())) {
    jsonMember();
    jsonKeyFromValue(key);
    out_.put('{');
    return;
  }
  const std::size_t indent = 2 * depth_;
  // ",\n", the indent in 16-byte moves (the overshoot is not committed), the quoted key and
  // ": {".
  char* const start = out_.reserve(indent + text.size() + 24);
  char* d = start;
  if (level.hasMembers) *d++ = ',';
  level.hasMembers = true;
  *d++ = '\n';
  for (std::size_t i = 0; i < indent; i += 16)
    std::memcpy(d + i, kBlanks, 16);
  d += indent;
  *d++ = '"';
  detail::moveBytes(d, text.data(), text.size());
  d += text.size();
  std::memcpy(d, "\": {", 4);
  out_.commit(static_cast<std::size_t>(d + 4 - start));
}

namespace {

// The most a value written in place takes: plain text of up to 256 bytes and its quotes.
constexpr std::size_t kMostInPlace = 258;
// Keys are copied in moves of this many bytes.
constexpr std::size_t kKeyMove = 32;

// Writes a's JSON value at d, as jsonValue writes it, and moves d past it; false, with nothing
// written, for a value that takes jsonValue's own path (text to escape or longer than 256
// bytes, a floating-point number).
bool valueInPlace(const AttrInfo& a, char*& d) {
  // Tests in a row rather than a switch: a row's members come in the same order every time,
  // which the branches learn and one jump through a table does not.
  const JsonKind kind = a.kind();
  if (!a.isSet()) {
    std::memcpy(d, "null", 4);
    d += 4;
  } else if (kind == JsonKind::boolean) {
    std::memcpy(d, a.boolValue() ? "true" : "false", 5);
    d += a.boolValue() ? 4 : 5;
  } else if (kind == JsonKind::string) {
    const std::string_view s = a.stringValue();
    if (s.size() > 256 || !detail::plainText(s.data(), s.size())) return false;
    *d++ = '"';
    detail::moveBytes(d, s.data(), s.size());
    d += s.size();
    *d++ = '"';
  } else if (kind == JsonKind::int32) {
    d = std::to_chars(d, d + 11, a.int32Value()).ptr;
  } else if (kind == JsonKind::uint32) {
    d = std::to_chars(d, d + 10, a.uint32Value()).ptr;
  } else if (kind == JsonKind::uint64) {
    d = std::to_chars(d, d + 20, a.uint64Value()).ptr;
  } else {
    return false;  // a floating-point number
  }
  return true;
}

}  // namespace

Printer::EntryMembers::EntryMembers(std::initializer_list<const AttrInfo*> attrs) : attrs_(attrs) {
  for (const AttrInfo* a : attrs_)
    MOX_ASSERT(a && "a null attribute");
}

// The keys as jsonMember() and jsonAttrKey() write them at `depth`, each with the comma that
// parts it from the member before.
void Printer::EntryMembers::layOut(unsigned depth) {
  keys_.clear();
  keyEnds_.clear();
  for (const AttrInfo* a : attrs_) {
    keys_ += ",\n";
    keys_.append(2 * std::size_t(depth), ' ');
    detail::appendJsonString(keys_, std::string_view(a->name().c_str()));
    keys_ += ": ";
    keyEnds_.push_back(static_cast<std::uint32_t>(keys_.size()));
  }
  keys_.append(kKeyMove, ' ');  // what the last key's moves read past its end
  depth_ = depth;
}

// The members of the object just opened, as addJson() would write them one by one: room for
// all of them is reserved at once, keys are copied in 32-byte moves (the key text is padded
// and the overshoot lands in the room of the value after it), values written in place. A
// value that takes jsonValue's path ends a stretch; the next one starts after it.
void Printer::jsonMembers(EntryMembers& m) {
  const std::size_t n = m.attrs_.size();
  if (n == 0) return;
  if (m.depth_ != depth_) m.layOut(depth_);
  stack_[depth_ - 1].hasMembers = true;
  const char* const keys = m.keys_.data();
  std::size_t keyAt = 1;  // no comma before the object's first member
  std::size_t i = 0;
  while (i < n) {
    const std::size_t most = m.keyEnds_[n - 1] - keyAt + (n - i) * (kMostInPlace + kKeyMove);
    if (most > kBufferSize / 4) [[unlikely]] {
      // Long keys (deep, or long names): one member at a time.
      out_.append(keys + keyAt, m.keyEnds_[i] - keyAt);
      jsonValue(*m.attrs_[i]);
      keyAt = m.keyEnds_[i++];
      continue;
    }
    char* const start = out_.reserve(most);
    char* d = start;
    const AttrInfo* other = nullptr;  // the value that ended the stretch
    while (i < n) {
      const std::size_t keyLen = m.keyEnds_[i] - keyAt;
      for (std::size_t k = 0; k < keyLen; k += kKeyMove)
        std::memcpy(d + k, keys + keyAt + k, kKeyMove);
      d += keyLen;
      keyAt = m.keyEnds_[i];
      const AttrInfo& a = *m.attrs_[i++];
      if (!valueInPlace(a, d)) [[unlikely]] {
        other = &a;
        break;
      }
    }
    out_.commit(static_cast<std::size_t>(d - start));
    if (other) jsonValue(*other);
  }
}

void Printer::addJson(const AttrInfo* const* attrs, int n) {
  if (n == 0) return;
  if (top() == Frame::simpleEntry) {
    jsonValue(*attrs[0]);
    return;
  }
  for (int i = 0; i < n; ++i) {
    jsonMember();
    jsonAttrKey(*attrs[i]);
    jsonValue(*attrs[i]);
  }
}

}  // namespace rendr
