#pragma once
// MPLS labels and label stacks.

#include <array>
#include <compare>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace Plexa {

class MplsLabel {
 public:
  static constexpr std::uint32_t kMin = 0;
  static constexpr std::uint32_t kMax = 1048575;         // the largest label on the wire
  static constexpr std::uint32_t kNoLabel = 1048576;     // 2^20: no label
  static constexpr std::uint32_t kLuWithdraw = 8388608;  // labelled-unicast withdraw marker
  static constexpr const char* kRangeMessage =
      "MplsLabel::value < MplsLabel::min or > MplsLabel::luWithdraw not allowed";

  // The default label is "no label".
  constexpr MplsLabel() = default;
  // A value above kLuWithdraw raises Mox::RangeException with kRangeMessage.
  explicit MplsLabel(std::uint32_t value);
  static MplsLabel noLabel() { return MplsLabel(); }

  static MplsLabel fromString(std::string_view text);

  constexpr std::uint32_t value() const { return value_; }
  constexpr bool isNoLabel() const { return value_ == kNoLabel; }
  constexpr bool isValidLabel() const { return value_ <= kMax; }
  std::string stringValue() const { return std::to_string(value_); }

  friend constexpr auto operator<=>(MplsLabel, MplsLabel) = default;

 private:
  std::uint32_t value_ = kNoLabel;
};

// A label operation: what a hop does to the stack, with the labels it pushes or swaps to,
// outermost first. Text: "" (none), "push 100 200", "swap 100", "pop".
class MplsLabelOperation {
 public:
  enum class Action : std::uint8_t { none, push, swap, pop };
  static constexpr std::size_t kMaxLabels = 12;

  MplsLabelOperation() = default;
  MplsLabelOperation(Action action, std::initializer_list<std::uint32_t> labels);

  static MplsLabelOperation fromString(std::string_view text);

  Action action() const { return action_; }
  void actionIs(Action a) { action_ = a; }
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  MplsLabel label(std::size_t i) const { return MplsLabel(labels_[i]); }
  // Appends a label at the bottom of the stack; more than kMaxLabels is a range error.
  void labelPush(MplsLabel l);

  std::string stringValue() const;
  // The labels alone, separated by blanks ("100 200").
  std::string labelsText() const;

  friend bool operator==(const MplsLabelOperation& a, const MplsLabelOperation& b);
  friend std::strong_ordering operator<=>(const MplsLabelOperation& a, const MplsLabelOperation& b);

 private:
  Action action_ = Action::none;
  std::uint8_t size_ = 0;
  std::array<std::uint32_t, kMaxLabels> labels_{};
};

}  // namespace Plexa

template <>
struct std::hash<Plexa::MplsLabel> {
  std::size_t operator()(Plexa::MplsLabel l) const noexcept {
    return std::hash<std::uint32_t>()(l.value());
  }
};
