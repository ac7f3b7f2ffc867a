#include "engine/sample_files.h"

#include <cstdio>
#include <cstring>

namespace zvrdb::test {

const std::map<int, int>& sample_key_types() {
  static const std::map<int, int> types = {{1, 2}, {2, 0}, {3, 3}, {4, 4}, {5, 7}};
  return types;
}

const engine::key_entry* sample_key_table() {
  static const engine::key_entry table[] = {{1, 2, {}, nullptr}, {2, 0, {}, nullptr}, {3, 3, {}, nullptr},
                                            {4, 4, {}, nullptr}, {5, 7, {}, nullptr}, {0, 0, {}, nullptr}};
  return table;
}

sample_record sample(int i, std::size_t payload) {
  char name[40];
  // Names in an order of their own, so that rising numbers don't only append.
  std::snprintf(name, sizeof name, "%04u-name", static_cast<unsigned>(i) * 7919U % 10007U);
  sample_record record;
  record.name = name;
  record.name += std::string(static_cast<std::size_t>(i % 5), 'x');
  record.group = "group" + std::to_string(i % 7);
  record.number = i % 2 ? i : -i;
  record.small = static_cast<std::int16_t>(i % 100 - 50);
  record.weight = i / 8.0 - 3;
  for (std::size_t k = 0; k < payload; k++) record.payload += static_cast<char>('a' + (static_cast<std::size_t>(i) + k) % 26);
  return record;
}

std::vector<record_field> written_fields(bool big, const sample_record& record) {
  return {{'B', 2, 'U', 1, record.name},
          {'S', 'S', 'D', 2, record.group},
          {'L', 3, 'D', 3, bytes32(big, static_cast<std::uint32_t>(record.number))},
          {'H', 4, 'D', 4, bytes16(big, static_cast<std::uint16_t>(record.small))},
          {'D', 7, 'D', 5, bytes_double(big, record.weight)},
          {'B', 'N', 'N', 0, record.payload}};
}

file_recipe sample_recipe(bool big_endian, int records, int leaf_limit, int inner_limit) {
  file_recipe recipe;
  recipe.big_endian = big_endian;
  recipe.key_types = sample_key_types();
  recipe.leaf_limit = leaf_limit;
  recipe.inner_limit = inner_limit;
  for (int i = 1; i <= records; i++)
    add_record(&recipe, i, written_fields(big_endian, sample(i, i % 40 == 0 ? 1500 : 20)));
  return recipe;
}

sample_fields::sample_fields() : sample_fields(sample_record()) {}

sample_fields::sample_fields(const sample_record& record)
    : number_(record.number), small_(record.small), weight_(record.weight) {
  std::memset(name_, 0, sizeof name_);
  std::memset(group_, 0, sizeof group_);
  std::memset(payload_, 0, sizeof payload_);
  std::memcpy(name_, record.name.data(), record.name.size());
  std::memcpy(group_, record.group.data(), record.group.size());
  std::memcpy(payload_, record.payload.data(), record.payload.size());
  list[0] = {'B', 2, 'U', 0, static_cast<std::int16_t>(record.name.size()), 1, 0, name_};
  list[1] = {'S', 'S', 'D', 0, 60, 2, 0, group_};
  list[2] = {'L', 3, 'D', 0, 4, 3, 0, &number_};
  list[3] = {'H', 4, 'D', 0, 2, 4, 0, &small_};
  list[4] = {'D', 7, 'D', 0, 8, 5, 0, &weight_};
  list[5] = {'B', 'N', 'N', 0, static_cast<std::int16_t>(record.payload.size()), 0, 0, payload_};
  list[6] = {'E', 'E', 'N', 0, 0, 0, 0, nullptr};
}

sample_record sample_fields::record() const {
  sample_record record;
  record.name.assign(reinterpret_cast<const char*>(name_), static_cast<std::size_t>(list[0].flen));
  record.group = group_;
  record.number = number_;
  record.small = small_;
  record.weight = weight_;
  record.payload.assign(reinterpret_cast<const char*>(payload_), static_cast<std::size_t>(list[5].flen));
  return record;
}

std::string check_result::text() const {
  std::string all = reason;
  for (const engine::problem& p : problems) all += "\n[" + std::to_string(p.node) + "] " + p.path + ": " + p.text;
  return all;
}

check_result check_file(const std::string& path, bool deep) {
  check_result result;
  engine::check_options options;
  options.deep = deep;
  auto collect = [](void* context, const engine::problem& p) {
    check_result* r = static_cast<check_result*>(context);
    (p.note ? r->notes : r->problems).push_back(p);
  };
  result.outcome = engine::verify_file(path.c_str(), options, collect, &result, &result.reason);
  return result;
}

}  // namespace zvrdb::test
