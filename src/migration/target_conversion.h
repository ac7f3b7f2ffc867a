// The conversion of the targets' directories, once their state is known.
#pragma once

#include "migration/conversion.h"
#include "migration/new_files.h"
#include "migration/older_files.h"

namespace zvrdb::migration {

// Names of the directories as they stand on the disk.
struct target_directories {
  const char* targets;  // "target_tmp", or in a dry run what will be it
  const char* hardware;
  const char* parameters;
};

// Makes every record of "trgcfg" and "users" out of the directories. 0; 6425 a text that
// cannot be parsed; 8455; 8200 a name that no target has.
std::int16_t convert_targets(conversion& run, const target_directories& from);

// Writes each target's server name, and the type and mode by what it is to its server.
std::int16_t copy_srv_names(conversion& run, new_file* targets);

// The name of a target's server by its network name: 0; 8194.
std::int16_t get_old_srvname(const conversion& run, const char* name, char (&server)[65]);

// Raises MAX LOCAL TARGETS to what there is, and writes "orvo.cfg" anew.
void raise_local_limit(const conversion& run, std::uint32_t local_targets);

}  // namespace zvrdb::migration
