#include "engine/independent_writer.h"

#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <random>

namespace zvrdb::test {
namespace {

constexpr int kPage = 1024;
constexpr int kEntryArea = 1006;
constexpr int kHead = 18;

// One piece of a value, ready for a leaf.
struct piece_entry {
  int key;
  int piece;  // with bit 7
  std::int32_t rec;
  std::string value;
  std::string data;
  bool removed;
};

struct node_plan {
  std::string entries;       // entries with their length bytes, children still indexes
  int count = 0;
  int level = 0;
  std::string last_head;     // bytes 1 to 6 and key of the entry that ends the subtree
  std::vector<std::size_t> children;  // plan indexes, inner nodes only
  std::vector<std::string> heads;     // separators, one less than children, or as many with the stale one
};

void fail(const char* text) {
  std::fprintf(stderr, "independent writer: %s\n", text);
  std::abort();
}

template <typename T>
T from_file(bool big, const std::string& value) {
  unsigned char raw[sizeof(T)] = {};
  for (std::size_t i = 0; i < sizeof(T) && i < value.size(); i++)
    raw[big ? sizeof(T) - 1 - i : i] = static_cast<unsigned char>(value[i]);
  T result;
  std::memcpy(&result, raw, sizeof(T));
  return result;
}

template <typename T>
int three_way(T a, T b) {
  return a < b ? -1 : a > b ? 1 : 0;
}

int compare_values(int type, bool big, const std::string& a, const std::string& b) {
  switch (type) {
    case 0: return three_way(std::strcmp(a.c_str(), b.c_str()), 0);
    case 1: return three_way(strcasecmp(a.c_str(), b.c_str()), 0);
    case 3:
    case 5: return three_way(from_file<std::int32_t>(big, a), from_file<std::int32_t>(big, b));
    case 4: return three_way(from_file<std::int16_t>(big, a), from_file<std::int16_t>(big, b));
    case 6: return three_way(from_file<float>(big, a), from_file<float>(big, b));
    case 7: return three_way(from_file<double>(big, a), from_file<double>(big, b));
    case 9: return three_way(std::memcmp(a.data(), b.data(), 6), 0);
    case 10: return three_way(from_file<std::uint16_t>(big, a), from_file<std::uint16_t>(big, b));
    default: break;
  }
  std::size_t common = std::min(a.size(), b.size()) - 1;
  int order = std::memcmp(a.data() + 1, b.data() + 1, common);
  return order ? three_way(order, 0) : three_way(a.size(), b.size());
}

int type_of_key(const file_recipe& recipe, int key) {
  if (key == 20) return 2;
  auto found = recipe.key_types.find(key);
  return found == recipe.key_types.end() ? 0 : found->second;
}

std::vector<piece_entry> pieces_in_order(const file_recipe& recipe) {
  std::vector<const tree_entry*> order;
  for (const tree_entry& entry : recipe.entries) order.push_back(&entry);
  std::stable_sort(order.begin(), order.end(), [&](const tree_entry* a, const tree_entry* b) {
    if (a->key != b->key) return a->key < b->key;
    int by_value = compare_values(type_of_key(recipe, a->key), recipe.big_endian, a->value, b->value);
    return by_value ? by_value < 0 : a->rec < b->rec;
  });
  std::vector<piece_entry> result;
  for (const tree_entry* entry : order) {
    std::size_t longest = 244 - entry->value.size();
    std::size_t done = 0;
    for (int piece = 0;; piece++) {
      std::size_t size = std::min(longest, entry->data.size() - done);
      bool last = done + size == entry->data.size();
      result.push_back({entry->key, (piece & 0x7F) | (last ? 0x80 : 0), entry->rec, entry->value,
                        entry->data.substr(done, size), entry->removed});
      done += size;
      if (last) break;
    }
  }
  return result;
}

std::string head_of(bool big, const piece_entry& entry) {
  std::string head;
  head += static_cast<char>(entry.key);
  head += static_cast<char>(entry.piece);
  head += bytes32(big, static_cast<std::uint32_t>(entry.rec));
  return head + entry.value;
}

std::vector<node_plan> plan_leaves(const file_recipe& recipe) {
  std::vector<node_plan> leaves(1);
  int laid_out = 0;
  for (const piece_entry& entry : pieces_in_order(recipe)) {
    std::string head = head_of(recipe.big_endian, entry);
    int size = static_cast<int>(head.size() + entry.data.size()) + 1;
    if (laid_out + size > recipe.leaf_limit && laid_out > 0) {
      leaves.emplace_back();
      laid_out = 0;
    }
    laid_out += size;
    node_plan& leaf = leaves.back();
    leaf.last_head = head;
    if (entry.removed) continue;
    leaf.entries += static_cast<char>(size - 1);
    leaf.entries += head + entry.data;
    leaf.count++;
  }
  return leaves;
}

// Groups the nodes first..last of one level under inner nodes; each inner node that has a
// right neighbour ends with the separator towards it, its child named twice.
std::vector<node_plan> plan_level(const file_recipe& recipe, const std::vector<node_plan>& nodes,
                                  std::size_t first, int level) {
  std::vector<node_plan> result;
  std::size_t at = first;
  while (at < nodes.size()) {
    node_plan inner;
    inner.level = level;
    inner.children.push_back(at);
    int used = 0;
    for (;;) {
      int size = static_cast<int>(nodes[at].last_head.size()) + 5;
      bool is_last = at + 1 == nodes.size();
      if (is_last) {
        at++;
        break;
      }
      inner.heads.push_back(nodes[at].last_head);
      used += size;
      at++;
      int following = static_cast<int>(nodes[at].last_head.size()) + 5;
      if (used + following > recipe.inner_limit && inner.children.size() > 1) break;  // the last head is the stale one
      inner.children.push_back(at);
    }
    inner.last_head = nodes[at - 1].last_head;
    result.push_back(inner);
  }
  return result;
}

struct page_writer {
  std::vector<unsigned char>* bytes;
  bool big;
  void put(std::size_t at, const std::string& value) const {
    if (at + value.size() > bytes->size()) fail("page out of range");
    std::memcpy(bytes->data() + at, value.data(), value.size());
  }
  void put32(std::size_t at, std::int64_t value) const { put(at, bytes32(big, static_cast<std::uint32_t>(value))); }
  void put16(std::size_t at, int value) const { put(at, bytes16(big, static_cast<std::uint16_t>(value))); }
};

void put_node_head(const page_writer& page, std::size_t base, std::int32_t child0, std::int32_t next,
                   std::int32_t prev, int level, int count, int used) {
  page.put32(base, child0);
  page.put32(base + 4, next);
  page.put32(base + 8, prev);
  page.put16(base + 12, level);
  page.put16(base + 14, count);
  page.put16(base + 16, kEntryArea - used);
}

std::size_t node_base(std::int32_t node) { return static_cast<std::size_t>(kPage) * (static_cast<std::size_t>(node) + 1); }

void put_tree(const page_writer& page, const std::vector<node_plan>& plans, const std::vector<std::int32_t>& numbers) {
  for (std::size_t i = 0; i < plans.size(); i++) {
    const node_plan& plan = plans[i];
    bool has_next = i + 1 < plans.size() && plans[i + 1].level == plan.level;
    bool has_prev = i > 0 && plans[i - 1].level == plan.level;
    std::string entries = plan.entries;
    int count = plan.count;
    if (plan.level > 0) {
      for (std::size_t e = 0; e < plan.heads.size(); e++) {
        std::size_t child = e + 1 < plan.children.size() ? plan.children[e + 1] : plans[i + 1].children[0];
        entries += static_cast<char>(plan.heads[e].size() + 4);
        entries += plan.heads[e] + bytes32(page.big, static_cast<std::uint32_t>(numbers[child]));
        count++;
      }
    }
    if (entries.size() > kEntryArea || count > 143) fail("node overflows");
    std::size_t base = node_base(numbers[i]);
    put_node_head(page, base, plan.level ? numbers[plan.children[0]] : 0, has_next ? numbers[i + 1] : -1,
                  has_prev ? numbers[i - 1] : -1, plan.level, count, static_cast<int>(entries.size()));
    page.put(base + kHead, entries);
  }
}

// The log records of a chain, shared out to as many nodes as they take.
std::vector<std::vector<std::string>> log_nodes(const file_recipe& recipe, const log_chain& chain) {
  std::vector<std::vector<std::string>> nodes(1);
  std::size_t used = 0;
  std::uint16_t sequence = 1;
  for (const log_record& record : chain.records) {
    std::string image = bytes32(recipe.big_endian, recipe.generation);
    image += bytes16(recipe.big_endian, sequence++);
    image += "\xDD\xDD";
    image += bytes32(recipe.big_endian, recipe.generation + sequence);
    image += static_cast<char>(record.type);
    image += static_cast<char>(record.entry.size());
    image += record.entry;
    if (used + image.size() > kEntryArea) {
      nodes.emplace_back();
      used = 0;
    }
    used += image.size();
    nodes.back().push_back(image);
  }
  return nodes;
}

std::int32_t put_chain(const page_writer& page, const file_recipe& recipe, const log_chain& chain,
                       std::int32_t first, std::int32_t head_child) {
  std::vector<std::vector<std::string>> nodes = log_nodes(recipe, chain);
  for (std::size_t i = 0; i < nodes.size(); i++) {
    std::int32_t number = first + static_cast<std::int32_t>(i);
    std::string all = std::accumulate(nodes[i].begin(), nodes[i].end(), std::string());
    put_node_head(page, node_base(number), i ? 0 : head_child, i + 1 < nodes.size() ? number + 1 : 0,
                  chain.owner_slot, i ? 0xFFFD : 0xFFFE, static_cast<int>(nodes[i].size()), static_cast<int>(all.size()));
    page.put(node_base(number) + kHead, all);
  }
  return first + static_cast<std::int32_t>(nodes.size());
}

struct header_values {
  std::int32_t root, depth, next_node, extent, free_node, trans_head, saved_head;
};

void put_header(const page_writer& page, const file_recipe& recipe, const header_values& values) {
  static const struct {
    std::size_t at;
    char letter;
  } magic[] = {{4, 'V'}, {16, 'A'}, {20, 'L'}, {24, 'I'}, {32, 'D'}, {40, 'A'}, {48, 'T'}, {56, '1'}};
  for (const auto& word : magic) page.put32(word.at, word.letter);
  std::int32_t highest = 0;
  std::int32_t records = 0;
  std::int32_t free_numbers = 0;
  for (const tree_entry& entry : recipe.entries) {
    if (entry.key != 16) highest = std::max(highest, entry.rec);
    if (!entry.removed && entry.key == 19) records++;
    if (!entry.removed && entry.key == 18) free_numbers++;
  }
  page.put32(0, recipe.generation);
  page.put32(8, 1);
  page.put32(12, values.root);
  page.put32(28, values.depth);
  page.put32(36, values.next_node);
  page.put32(44, recipe.next_record ? recipe.next_record : highest + 1);
  page.put32(52, values.extent);
  page.put32(60, values.free_node);
  page.put32(64, free_numbers);
  page.put32(68, records);
  page.put32(72, static_cast<std::int64_t>(recipe.information.size()));
  page.put(92, recipe.information);
  for (const auto& [key, type] : recipe.key_types) page.put(192 + static_cast<std::size_t>(key), std::string(1, static_cast<char>(type)));
  page.put(192 + 20, std::string(1, '\2'));
  page.put(214, "\xEE\xEE");
  page.put(262, "\xEE\xEE");
  page.put32(344, values.trans_head);
  page.put32(348, values.saved_head);
  if (recipe.write_flag) page.put16(1010, 13245);
}

}  // namespace

file_layout build_file(const file_recipe& recipe) {
  std::vector<node_plan> plans = plan_leaves(recipe);
  file_layout layout;
  layout.leaves = static_cast<int>(plans.size());
  layout.depth = 1;
  for (std::size_t first = 0; plans.size() - first > 1; layout.depth++) {
    std::vector<node_plan> level = plan_level(recipe, plans, first, layout.depth);
    first = plans.size();
    plans.insert(plans.end(), level.begin(), level.end());
  }
  std::vector<std::int32_t> numbers(plans.size());
  std::iota(numbers.begin(), numbers.end(), 0);
  if (recipe.scatter_seed) std::shuffle(numbers.begin(), numbers.end(), std::mt19937(recipe.scatter_seed));

  std::int32_t next_node = static_cast<std::int32_t>(plans.size());
  layout.tree_nodes = next_node;
  std::int32_t first_free = next_node;
  next_node += recipe.free_nodes;
  std::int32_t first_log = next_node;
  if (recipe.transaction) next_node += static_cast<std::int32_t>(log_nodes(recipe, *recipe.transaction).size());
  for (const log_chain& chain : recipe.kept) next_node += static_cast<std::int32_t>(log_nodes(recipe, chain).size());
  layout.next_node = next_node;
  std::int32_t extent = next_node + recipe.spare_nodes;
  layout.bytes.assign(static_cast<std::size_t>(kPage) * (static_cast<std::size_t>(extent) + 1), 0);
  page_writer page{&layout.bytes, recipe.big_endian};

  put_tree(page, plans, numbers);
  // The free chain runs from the highest number down, as nodes freed in rising order leave it.
  for (std::int32_t i = 0; i < recipe.free_nodes; i++)
    put_node_head(page, node_base(first_free + i), -1, i ? first_free + i - 1 : -1, -1, 0xFFFF, 0, 0);
  header_values values{numbers.back(), layout.depth, next_node, extent,
                       recipe.free_nodes ? first_free + recipe.free_nodes - 1 : -1, -1, -1};
  if (recipe.transaction) {
    values.trans_head = first_log;
    first_log = put_chain(page, recipe, *recipe.transaction, first_log, -1);
  }
  for (auto chain = recipe.kept.rbegin(); chain != recipe.kept.rend(); ++chain) {
    std::int32_t head = first_log;
    first_log = put_chain(page, recipe, *chain, first_log, values.saved_head);
    values.saved_head = head;
  }
  put_header(page, recipe, values);
  return layout;
}

std::string bytes16(bool big, std::uint16_t value) {
  std::string result{static_cast<char>(value & 0xFF), static_cast<char>(value >> 8)};
  if (big) std::reverse(result.begin(), result.end());
  return result;
}

std::string bytes32(bool big, std::uint32_t value) {
  std::string result;
  for (int shift = 0; shift < 32; shift += 8) result += static_cast<char>((value >> shift) & 0xFF);
  if (big) std::reverse(result.begin(), result.end());
  return result;
}

std::string bytes_float(bool big, float value) {
  std::uint32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bytes32(big, bits);
}

std::string bytes_double(bool big, double value) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  std::string low = bytes32(big, static_cast<std::uint32_t>(bits));
  std::string high = bytes32(big, static_cast<std::uint32_t>(bits >> 32));
  return big ? high + low : low + high;
}

namespace {

std::uint16_t shifted_sum(const std::string& bytes) {
  unsigned acc = 0;
  for (char c : bytes) {
    int b = static_cast<unsigned char>(c);
    if (b > 127) b -= 256;
    acc = ((acc + static_cast<unsigned>(b)) << 1) & 0xFFFF;
  }
  return static_cast<std::uint16_t>(acc);
}

bool is_empty(const record_field& field) {
  if (field.type == 'D') return field.value == std::string(8, '\0');
  return field.value.find_first_not_of('\0') == std::string::npos && field.type != 'B' ? true : field.value.empty();
}

}  // namespace

std::string packed_record(bool big, const std::vector<record_field>& fields, unsigned char record_type) {
  std::string list;
  std::string body(1, static_cast<char>(record_type));
  for (std::size_t i = 0; i < fields.size(); i++) {
    const record_field& field = fields[i];
    list += field.type;
    list += field.key_type;
    list += field.duplicates;
    list += static_cast<char>(field.key);
    if (field.key_type == 'N' && is_empty(field)) continue;
    body += bytes16(big, static_cast<std::uint16_t>(i));
    if (field.type == 'B') body += bytes16(big, static_cast<std::uint16_t>(field.value.size()));
    body += field.value;
    if (field.type == 'S') body += '\0';
  }
  body += "\xFF\xFF";
  return bytes16(big, shifted_sum(list)) + bytes16(big, shifted_sum(body)) + body;
}

std::string key_value(const record_field& field) {
  if (field.type == 'B') return std::string(1, static_cast<char>(field.value.size())) + field.value;
  if (field.type == 'S') return field.value + '\0';
  return field.value;
}

void add_record(file_recipe* recipe, std::int32_t rec, const std::vector<record_field>& fields) {
  for (const record_field& field : fields) {
    if (field.key == 0) continue;
    recipe->entries.push_back({field.key, key_value(field), rec, ""});
  }
  recipe->entries.push_back({19, std::string(1, '\0'), rec, packed_record(recipe->big_endian, fields)});
}

void add_free_number(file_recipe* recipe, std::int32_t rec) {
  recipe->entries.push_back({18, std::string(1, '\0'), rec, ""});
}

void add_lock(file_recipe* recipe, int key, const std::string& value, std::int32_t rec, int slot) {
  std::string lock(1, static_cast<char>(value.size()));
  lock += static_cast<char>(key);
  lock += value.substr(0, value.size() - 1);
  recipe->entries.push_back({20, lock, rec, bytes16(recipe->big_endian, static_cast<std::uint16_t>(slot))});
}

std::string leaf_form(bool big, const tree_entry& entry, int piece_byte) {
  return head_of(big, {entry.key, piece_byte, entry.rec, entry.value, entry.data, false}) + entry.data;
}

void write_file(const std::string& path, const std::vector<unsigned char>& bytes) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) fail("cannot open for writing");
  bool whole = bytes.empty() || std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  if (std::fclose(file) || !whole) fail("cannot write");
}

std::vector<unsigned char> read_file(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (!file) fail("cannot read");
  std::vector<unsigned char> bytes;
  unsigned char chunk[65536];
  std::size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, file)) > 0) bytes.insert(bytes.end(), chunk, chunk + n);
  std::fclose(file);
  return bytes;
}

}  // namespace zvrdb::test
