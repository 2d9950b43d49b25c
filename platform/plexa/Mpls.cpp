#include "platform/plexa/Mpls.h"

#include <charconv>

#include "platform/mox/Exception.h"

namespace Plexa {

MplsLabel::MplsLabel(std::uint32_t value) : value_(value) {
  if (value > kLuWithdraw) throw Mox::RangeException(kRangeMessage);
}

MplsLabel MplsLabel::fromString(std::string_view text) {
  std::uint64_t v = 0;
  auto r = std::from_chars(text.data(), text.data() + text.size(), v);
  if (r.ec != std::errc() || r.ptr != text.data() + text.size() || text.empty()) {
    throw Mox::RangeException("invalid MPLS label " + Mox::shownWord(text));
  }
  if (v > kLuWithdraw) throw Mox::RangeException(kRangeMessage);
  return MplsLabel(static_cast<std::uint32_t>(v));
}

MplsLabelOperation::MplsLabelOperation(Action action, std::initializer_list<std::uint32_t> labels)
    : action_(action) {
  for (auto l : labels)
    labelPush(MplsLabel(l));
}

void MplsLabelOperation::labelPush(MplsLabel l) {
  if (size_ >= kMaxLabels) {
    throw Mox::RangeException("MplsLabelOperation holds at most " + std::to_string(kMaxLabels) +
                              " labels");
  }
  labels_[size_++] = l.value();
}

namespace {
const char* actionWord(MplsLabelOperation::Action a) {
  switch (a) {
    case MplsLabelOperation::Action::push:
      return "push";
    case MplsLabelOperation::Action::swap:
      return "swap";
    case MplsLabelOperation::Action::pop:
      return "pop";
    default:
      return "";
  }
}
}  // namespace

std::string MplsLabelOperation::labelsText() const {
  std::string s;
  for (std::size_t i = 0; i < size_; ++i) {
    if (i) s += ' ';
    s += std::to_string(labels_[i]);
  }
  return s;
}

std::string MplsLabelOperation::stringValue() const {
  std::string s = actionWord(action_);
  if (size_) s += ' ' + labelsText();
  return s;
}

MplsLabelOperation MplsLabelOperation::fromString(std::string_view text) {
  MplsLabelOperation op;
  if (text.empty()) return op;
  const auto sp = text.find(' ');
  const std::string_view word = text.substr(0, sp);
  if (word == "push") {
    op.action_ = Action::push;
  } else if (word == "swap") {
    op.action_ = Action::swap;
  } else if (word == "pop") {
    op.action_ = Action::pop;
  } else {
    throw Mox::RangeException("invalid label operation " + Mox::shownWord(text));
  }
  // Each label after exactly one blank: a trailing blank would otherwise end the text unnoticed,
  // and two would read as an empty label.
  if (text.back() == ' ' || text.find("  ") != std::string_view::npos)
    throw Mox::RangeException("invalid label operation " + Mox::shownWord(text));
  std::string_view rest = sp == std::string_view::npos ? std::string_view() : text.substr(sp + 1);
  while (!rest.empty()) {
    const auto next = rest.find(' ');
    op.labelPush(MplsLabel::fromString(rest.substr(0, next)));
    rest = next == std::string_view::npos ? std::string_view() : rest.substr(next + 1);
  }
  if (op.action_ == Action::pop && op.size_) {
    throw Mox::RangeException("a pop takes no labels: " + Mox::shownWord(text));
  }
  return op;
}

bool operator==(const MplsLabelOperation& a, const MplsLabelOperation& b) {
  return (a <=> b) == 0;
}

std::strong_ordering operator<=>(const MplsLabelOperation& a, const MplsLabelOperation& b) {
  if (auto c = a.action_ <=> b.action_; c != 0) return c;
  for (std::size_t i = 0; i < a.size_ && i < b.size_; ++i) {
    if (auto c = a.labels_[i] <=> b.labels_[i]; c != 0) return c;
  }
  return a.size_ <=> b.size_;
}

}  // namespace Plexa
