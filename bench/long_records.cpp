#include "long_records.h"

#include <zvrco/zvrco.h>

#include <cstring>
#include <vector>

#include "bench_installation.h"
#include "memory/shared_tables.h"
#include "recfile/recfile.h"

namespace bench {
namespace {

using namespace zvrdb;

struct Key {
  std::uint32_t kind, number, recnum;
};
constexpr std::size_t target_entry = 38, file_entry = 4;

// The task has made a call before.
void write_record(void* task, std::uint32_t kind, std::uint32_t number, const std::vector<unsigned char>& body) {
  std::vector<unsigned char> image(sizeof(Key));
  image.insert(image.end(), body.begin(), body.end());
  auto* tcb = static_cast<DBR_TCB*>(co_slots(task)->dbr_tcb);
  Key key{kind, number, 0};
  const auto rc = recfile::db_write(task, tcb->cms_file, &key, image.data(), static_cast<std::uint32_t>(image.size()));
  if (rc != DBE_OK) give_up("a long record", rc);
}

}  // namespace

void write_record_of_target(void* task, std::uint32_t target, std::uint32_t files) {
  std::vector<unsigned char> body(files * target_entry);
  for (std::uint32_t file = 0; file < files; ++file) {
    const auto number = static_cast<std::uint16_t>(file);
    std::memcpy(body.data() + file * target_entry, &number, sizeof number);
    body[file * target_entry + 2] = 1;
  }
  write_record(task, 1, target, body);
}

void write_record_of_change_file(void* task, std::uint32_t file, std::uint32_t targets) {
  std::vector<unsigned char> body(targets * file_entry);
  for (std::uint32_t target = 1; target <= targets; ++target) {
    const std::uint32_t entry = target << 8 | 1;
    std::memcpy(body.data() + (target - 1) * file_entry, &entry, sizeof entry);
  }
  write_record(task, 2, file, body);
}

}  // namespace bench
