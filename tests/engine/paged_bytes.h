// Bytes of a file in pages that copies share until one of them writes: a test makes images of
// a disk by the million, and each differs from the next by a few writes.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace zvrdb::test {

class paged_bytes {
 public:
  static constexpr std::size_t page_size = 4096;

  paged_bytes() = default;
  paged_bytes(const std::vector<unsigned char>& bytes) { write(0, bytes.data(), bytes.size()); }   // NOLINT: as bytes
  operator std::vector<unsigned char>() const {
    std::vector<unsigned char> result(size_);
    read(0, result.data(), size_);
    return result;
  }

  std::size_t size() const { return size_; }
  void resize(std::size_t size) {
    pages_.resize((size + page_size - 1) / page_size);
    const std::size_t end = size % page_size;
    // What comes back later is zero.
    if (size < size_ && end != 0 && pages_.back()) {
      page& last = own(pages_.size() - 1);
      std::fill(last.begin() + end, last.end(), static_cast<unsigned char>(0));
    }
    size_ = size;
  }
  unsigned char operator[](std::size_t at) const {
    unsigned char byte = 0;
    read(at, &byte, 1);
    return byte;
  }
  // How many of the n bytes there are.
  std::size_t read(std::uint64_t from, void* to, std::size_t n) const {
    if (from >= size_) return 0;
    n = std::min<std::size_t>(n, size_ - from);
    each_piece(from, n, [&](std::size_t index, std::size_t at, std::size_t done, std::size_t length) {
      unsigned char* piece = static_cast<unsigned char*>(to) + done;
      if (pages_[index]) {
        std::memcpy(piece, pages_[index]->data() + at, length);
      } else {
        std::memset(piece, 0, length);
      }
    });
    return n;
  }
  void write(std::uint64_t to, const unsigned char* from, std::size_t n) {
    if (size_ < to + n) resize(to + n);
    each_piece(to, n, [&](std::size_t index, std::size_t at, std::size_t done, std::size_t length) {
      std::memcpy(own(index).data() + at, from + done, length);
    });
  }

  friend bool operator==(const paged_bytes& a, const paged_bytes& b) {
    return static_cast<std::vector<unsigned char>>(a) == static_cast<std::vector<unsigned char>>(b);
  }

 private:
  using page = std::array<unsigned char, page_size>;

  template <class F>
  static void each_piece(std::uint64_t from, std::size_t n, F&& piece) {
    for (std::size_t done = 0; done < n;) {
      const std::size_t at = (from + done) % page_size;
      const std::size_t length = std::min(n - done, page_size - at);
      piece((from + done) / page_size, at, done, length);
      done += length;
    }
  }
  page& own(std::size_t index) {
    std::shared_ptr<page>& p = pages_[index];
    if (!p) {
      p = std::make_shared<page>();
    } else if (p.use_count() > 1) {
      p = std::make_shared<page>(*p);
    }
    return *p;
  }

  std::vector<std::shared_ptr<page>> pages_;   // null: zeros
  std::size_t size_ = 0;
};

}  // namespace zvrdb::test
