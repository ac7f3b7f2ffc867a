// Targets, change files and their CM status by the exported calls, in short form, and
// what the record file holds of it.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "targets/targets_fixture.h"

namespace cms_test {

using target_test::client;
using target_test::local;
using target_test::numbered;
using target_test::Record;
using target_test::remote;

// A change file's name, from its tokens with dots between them.
using CfName = std::array<unsigned char, 76>;
CfName cf(std::string_view dotted);

inline constexpr std::size_t status_len = 176;
struct StatusRecord {
  int rc;
  std::array<unsigned char, status_len> bytes;
  std::string target() const { return {reinterpret_cast<const char*>(bytes.data())}; }
  unsigned status() const { return bytes[140]; }
  std::string details() const { return {bytes.begin() + 144, bytes.end()}; }
};
// Calls on one pair, for tests with tasks of their own.
int put_status(void* task, const std::string& target, const CfName& name, unsigned status,
               std::string_view details = "");
StatusRecord get_status(void* task, const std::string& target, const CfName& name,
                        std::size_t length = status_len);
int del_status(void* task, const std::string& target, const CfName& name);

using Body = std::vector<unsigned char>;
// Body of a stored record, without its key; nothing when there is none.  The task has
// made a call before.
inline constexpr std::uint32_t target_record = 1, file_record = 2;
std::optional<Body> stored(void* task, std::uint32_t kind, std::uint32_t number);

// Every pair as each side of the record file tells it: by target and change file.
using Pair = std::pair<std::uint32_t, std::uint16_t>;
struct StoredPairs {
  std::map<Pair, unsigned> by_target;
  std::map<Pair, unsigned> by_file;
  bool sound = true;  // no pair twice in a record, no odd length, no empty record of a change file
};
StoredPairs stored_pairs(void* task);

class CmStatusTest : public target_test::TargetsTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // The task's work area of earlier calls goes: the next call must ask for memory again.
  void drop_work_area();

  // A local target; 0 or 8196.
  int put_target(const std::string& name, unsigned type = local | client);
  int put_file(const CfName& name, unsigned cf_flags = 0);
  int del_file(const CfName& name);
  std::uint16_t file_number(const CfName& name);
  void authorize(unsigned mode);

  int set(const std::string& target, const CfName& name, unsigned status, std::string_view details = "") {
    return put_status(task, target, name, status, details);
  }
  StatusRecord status(const std::string& target, const CfName& name, std::size_t length = status_len) {
    return get_status(task, target, name, length);
  }
  int drop(const std::string& target, const CfName& name) { return del_status(task, target, name); }

  // The list of a change file, of as many bytes as are asked for; 101 take all targets.
  struct FileList {
    int rc;
    std::vector<unsigned char> list;
  };
  FileList by_file(const CfName& name, std::uint32_t length = 101);
  // Status of one target in that list.
  unsigned by_file(const CfName& name, const std::string& target);
  struct TargetList {
    int rc;
    std::uint32_t count;
    std::vector<std::uint32_t> entries;  // as many as count
  };
  TargetList by_target(const std::string& target, std::uint32_t length = 4000);
  std::uint32_t listed(const CfName& name, unsigned status) { return file_number(name) * 256u + status; }

  std::optional<Body> stored_of_target(const std::string& target);
  std::optional<Body> stored_of_file(const CfName& name);
  // Writes a record as it stands, in the place of the one that is there.
  void store(std::uint32_t kind, std::uint32_t number, const Body& body);
  void expect_sides_agree();
  std::string cms_file() const { return installation_->path("db/cmstatus"); }
};

}  // namespace cms_test
