// Damage done to a file in every way there is: bits flipped, ends cut off, nodes overwritten.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include "engine/sample_files.h"

namespace zvrdb::test {

// A small file with a part of each kind: tree nodes on several levels, a value of many
// pieces, a free node and a free number, a lock and an interrupted transaction.
inline std::vector<unsigned char> image_of_all_parts(bool big_endian, int leaf_limit) {
  file_recipe recipe;
  recipe.big_endian = big_endian;
  recipe.key_types = sample_key_types();
  recipe.leaf_limit = leaf_limit;
  recipe.inner_limit = 90;
  recipe.free_nodes = 1;
  recipe.spare_nodes = 1;
  for (int i = 1; i <= 4; i++) add_record(&recipe, i, written_fields(big_endian, sample(i, i == 2 ? 400 : 10)));
  add_free_number(&recipe, 9);
  add_lock(&recipe, 19, std::string(1, '\0'), 2, 3);
  recipe.transaction =
      log_chain{7, {{4, ""}, {1, leaf_form(big_endian, {3, bytes32(big_endian, 5), 40, ""})}, {5, ""}}};
  return build_file(recipe).bytes;
}

// Writes the image to the path with each of its bits flipped in turn, and calls `then` for
// each.  Zero bytes from `spare_from` on are plentiful and alike: of those one bit of every
// `spare_step`th byte will do.
template <class Then>
void for_each_flipped_bit(const std::vector<unsigned char>& image, std::size_t spare_from, std::size_t spare_step,
                          const std::string& path, Then then) {
  for (std::size_t byte = 0; byte < image.size(); byte++) {
    const bool spare = image[byte] == 0 && byte > spare_from;
    if (spare && byte % spare_step != 0) continue;
    for (unsigned bit = 0; bit < 8; bit++) {
      if (spare && bit != byte / spare_step % 8) continue;
      std::vector<unsigned char> bytes = image;
      bytes[byte] = static_cast<unsigned char>(bytes[byte] ^ (1U << bit));
      write_file(path, bytes);
      SCOPED_TRACE("byte " + std::to_string(byte) + " bit " + std::to_string(bit));
      then();
    }
  }
}

// The same with all but a first part of the image cut off: every length below `each_below`,
// and from there on every `step`th.
template <class Then>
void for_each_length(const std::vector<unsigned char>& image, std::size_t each_below, std::size_t step,
                     const std::string& path, Then then) {
  for (std::size_t length = 0; length < image.size(); length += length < each_below ? 1 : step) {
    write_file(path, {image.begin(), image.begin() + static_cast<std::ptrdiff_t>(length)});
    SCOPED_TRACE("length " + std::to_string(length));
    then();
  }
}

// The same with `size` bytes from somewhere in the first `within` bytes of a page on
// overwritten by chance.
template <class Then>
void for_random_pages(const std::vector<unsigned char>& image, int rounds, std::size_t first_page, unsigned within,
                      std::size_t size, const std::string& path, Then then) {
  std::mt19937 random(4711);
  for (int round = 0; round < rounds; round++) {
    std::vector<unsigned char> bytes = image;
    const std::size_t page = first_page + random() % (bytes.size() / 1024 - first_page);
    const std::size_t first = 1024 * page + random() % within;
    for (std::size_t i = first; i < bytes.size() && i < first + size; i++)
      bytes[i] = static_cast<unsigned char>(random());
    write_file(path, bytes);
    SCOPED_TRACE("round " + std::to_string(round));
    then();
  }
}

}  // namespace zvrdb::test
