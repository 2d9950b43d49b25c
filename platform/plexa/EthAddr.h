#pragma once
// Ethernet MAC addresses, written "00:11:22:33:44:55".

#include <array>
#include <compare>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace Plexa {

class EthAddr {
 public:
  using Bytes = std::array<std::uint8_t, 6>;
  constexpr EthAddr() = default;
  constexpr explicit EthAddr(const Bytes& b) : bytes_(b) {}

  // Accepts "00:11:22:33:44:55", "00-11-22-33-44-55" and "0011.2233.4455".
  static bool parse(std::string_view text, EthAddr& out);
  static EthAddr fromString(std::string_view text);

  const Bytes& bytes() const { return bytes_; }
  bool isZero() const { return bytes_ == Bytes{}; }
  std::string stringValue() const;

  friend constexpr auto operator<=>(const EthAddr&, const EthAddr&) = default;

 private:
  Bytes bytes_{};
};

}  // namespace Plexa

template <>
struct std::hash<Plexa::EthAddr> {
  std::size_t operator()(const Plexa::EthAddr& e) const noexcept {
    std::uint64_t v = 0;
    for (auto b : e.bytes())
      v = v << 8 | b;
    return std::hash<std::uint64_t>()(v);
  }
};
