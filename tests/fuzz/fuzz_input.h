// What the fuzzers share: the input taken apart byte by byte, expectations that end the
// program, and buffers that tell of a byte written beside them.
//
// A fuzzer is one function, LLVMFuzzerTestOneInput.  libFuzzer drives it in the preset
// `fuzz`; in the others corpus_driver.cpp does, over the corpus and mutations of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace zvrfuzz {

// The input is the finding: whoever drives the fuzzer keeps it.
#define FUZZ_EXPECT(condition)                                                                       \
  do {                                                                                               \
    if (!(condition)) {                                                                              \
      std::fprintf(stderr, "%s:%d: in %s: expected %s\n", __FILE__, __LINE__, __func__, #condition); \
      std::abort();                                                                                  \
    }                                                                                                \
  } while (false)

// The input from front to back; what it no longer has reads as zero.
class fuzz_input {
 public:
  fuzz_input(const std::uint8_t* data, std::size_t size) : at_(data), left_(size) {}

  std::size_t left() const { return left_; }
  std::uint8_t u8() {
    if (left_ == 0) return 0;
    --left_;
    return *at_++;
  }
  std::uint16_t u16() {
    const unsigned low = u8();
    return static_cast<std::uint16_t>(low | (unsigned{u8()} << 8));
  }
  std::uint32_t u32() {
    const std::uint32_t low = u16();
    return low | (std::uint32_t{u16()} << 16);
  }
  // The next bytes, fewer when there are no more.
  std::string bytes(std::size_t count) {
    const std::size_t there = count < left_ ? count : left_;
    std::string taken(reinterpret_cast<const char*>(at_), there);
    at_ += there;
    left_ -= there;
    return taken;
  }
  std::string rest() { return bytes(left_); }

 private:
  const std::uint8_t* at_;
  std::size_t left_;
};

// Bytes between guards, in an area of their own: a sanitizer sees each byte touched beyond
// them, and without one the guards show what was written there.
class guarded_bytes {
 public:
  explicit guarded_bytes(std::size_t size, std::uint8_t content = 0)
      : size_(size), area_(new std::uint8_t[size + 2 * guard]) {
    std::memset(area_.get(), guard_byte, size + 2 * guard);
    std::memset(data(), content, size);
  }
  explicit guarded_bytes(const std::string& content) : guarded_bytes(content.size()) {
    std::memcpy(data(), content.data(), content.size());
  }
  std::uint8_t* data() { return area_.get() + guard; }
  const std::uint8_t* data() const { return area_.get() + guard; }
  char* text() { return reinterpret_cast<char*>(data()); }
  std::size_t size() const { return size_; }
  bool intact() const {
    for (std::size_t i = 0; i < guard; ++i)
      if (area_[i] != guard_byte || area_[guard + size_ + i] != guard_byte) return false;
    return true;
  }

 private:
  static constexpr std::size_t guard = 64;
  static constexpr std::uint8_t guard_byte = 0xA5;
  std::size_t size_;
  std::unique_ptr<std::uint8_t[]> area_;
};

// A copy of just its size: a sanitizer sees each byte read beyond it.
inline std::unique_ptr<std::uint8_t[]> exact_copy(const std::string& content) {
  std::unique_ptr<std::uint8_t[]> copy(new std::uint8_t[content.size()]);
  std::memcpy(copy.get(), content.data(), content.size());
  return copy;
}

}  // namespace zvrfuzz
