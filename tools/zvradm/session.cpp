#include "session.h"

#include <sys/stat.h>
#include <zvrco/zvrco.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "config_file.h"

namespace zvradm {

std::string base_directory(const globals& all) {
  if (all.base.empty()) throw usage_fault("no base directory: give --base DIR or set ORVO_PATH");
  return all.base;
}

void announce_base(const std::string& base) {
  if (setenv("ORVO_PATH", base.c_str(), 1) != 0)
    throw refusal(base + ": cannot be told to the common services");
}

void require_installation(const std::string& base) {
  const std::string config = base + "/orvo.cfg";
  struct stat status {};
  const int reason = stat(config.c_str(), &status) == 0 ? 0 : errno;
  if (reason != 0 && reason != ENOENT && reason != ENOTDIR)
    throw refusal(config + ": cannot be read: " + std::strerror(reason));
  if (reason != 0 && stat(kept_config_path(base).c_str(), &status) == 0)
    throw refusal(config + " is missing: a conversion of an older database was cut short; go on with 'zvradm migrate'");
  if (reason != 0)
    throw refusal(base + ": no installation here (" + config + " is missing); make one with 'zvradm --base " +
                  base + " init --name NAME --rgn RGN --ren REN'");
}

session::session(const std::string& base) : task_(nullptr) {
  require_installation(base);
  announce_base(base);
  task_ = co_init_task("zvradm", nullptr, 1);
  if (!task_) {
    const char* why = co_init_error();
    throw refusal(base + ": cannot attach to the installation: " + (why ? why : "unknown reason"));
  }
}

session::~session() {
  if (task_) coi_term_task(task_, 0);
}

}  // namespace zvradm
