// "orvo.cfg" of an installation, changed so that a crash leaves the old or the new
// file whole.
//
// A change that needs more than one step announces itself: "orvo.cfg.pending" holds
// the configuration that will stand when all is done.  While it is there, "orvo.cfg"
// holds an interim configuration of the kind SERVER_NO_COMMS, with which the library
// works whether or not the local target's record is in place.
#pragma once

#include <zvrco/zvrco.h>
#include <zvrdb/records.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace zvradm {

using config_record = std::array<unsigned char, CO_CONFIG_LENGTH>;

enum installation_kind : std::uint8_t {
  kind_client = 0,
  kind_base = 1,
  kind_server_no_comms = 2,
  kind_server = 3,
  kind_remote_admin_server = 4,
  kind_remote_admin_base = 5
};

// Offsets of the fields that this tool reads and sets.
inline constexpr std::size_t config_name_at = offsetof(db_cfg, workstation_name),
                             config_machine_at = offsetof(db_cfg, machine_type),
                             config_kind_at = offsetof(db_cfg, configuration),
                             config_path_at = offsetof(db_cfg, file_path),
                             config_mode_at = offsetof(db_cfg, target_mode),
                             config_max_targets_at = offsetof(db_cfg, max_targets),
                             config_max_local_at = offsetof(db_cfg, max_local_targets),
                             config_max_server_at = offsetof(db_cfg, max_server_targets);

// Throws usage_fault unless the text has 1 to `longest` bytes and comes back from
// "orvo.cfg" as it was written: no control characters, no blank at either end.
void require_config_text(const char* what, const std::string& text, std::size_t longest);

std::string config_path(const std::string& base);
std::string pending_path(const std::string& base);
// The configuration as it was before a conversion of an older database that has not ended.
std::string kept_config_path(const std::string& base);

// False when there is no such file.  Throws refusal, with file, line and reason, when
// it cannot be read or has a fault.
bool read_config(const std::string& path, config_record& record);
// Replaces the file, durably.
void write_config(void* task, const std::string& path, const config_record& record);
// The same with a text as it stands.
void write_config_text(const std::string& path, const std::string& text);
// "orvo.cfg.pending" becomes "orvo.cfg", durably.
void publish_pending(const std::string& base);
void remove_pending(const std::string& base);

std::string config_name(const config_record& record);
void set_config_name(config_record& record, const std::string& name);
config_record interim_config(const config_record& wanted);

// Held by whoever changes the configuration; goes with its process.
class config_lock {
 public:
  // Takes it if that needs no wait.
  explicit config_lock(const std::string& base);
  ~config_lock();
  config_lock(const config_lock&) = delete;
  config_lock& operator=(const config_lock&) = delete;
  bool taken() const { return taken_; }
  // Throws refusal when another process has it.
  void require() const;

 private:
  std::string base_;
  int descriptor_;
  bool taken_ = false;
};

}  // namespace zvradm
