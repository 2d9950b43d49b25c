#pragma once
// Bounded arrays that live inside fixed-size records: the capacity is part of the type and the
// elements sit in the record, so a record can be copied with memcpy and placed in shared
// memory as it is.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "platform/mox/Exception.h"

namespace Pelo {

inline constexpr const char* kPodArraySizeMessage = "PodArray::set expected size <=";

template <class T, class Index, std::size_t N>
class PodArray {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  using value_type = T;

  static constexpr std::size_t capacity() { return N; }

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  const T& operator[](std::size_t i) const { return data_[i]; }
  T& operator[](std::size_t i) { return data_[i]; }
  const T* begin() const { return data_; }
  const T* end() const { return data_ + size_; }

  // Replaces the contents; more than N elements is a range error.
  void set(const T* data, std::size_t n) {
    if (n > N) throw Mox::RangeException(kPodArraySizeMessage);
    std::copy(data, data + n, data_);
    size_ = static_cast<SizeType>(n);
  }
  void push(const T& v) {
    if (size_ >= N) throw Mox::RangeException(kPodArraySizeMessage);
    data_[size_++] = v;
  }
  void clear() { size_ = 0; }

  // Byte arrays carry names.
  std::string_view view() const requires(sizeof(T) == 1) {
    return std::string_view(reinterpret_cast<const char*>(data_), size_);
  }
  void setText(std::string_view s) requires(sizeof(T) == 1) {
    set(reinterpret_cast<const T*>(s.data()), s.size());
  }

  friend bool operator==(const PodArray& a, const PodArray& b) {
    return a.size_ == b.size_ && std::equal(a.begin(), a.end(), b.begin());
  }

 private:
  using SizeType = std::conditional_t<(N < 65536), std::uint16_t, std::uint32_t>;
  SizeType size_ = 0;
  T data_[N]{};
};

}  // namespace Pelo
