#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "common/bounded_text.h"
#include "common/common_areas.h"
#include "common/config_file.h"
#include "common/held_descriptor.h"
#include "common/init_error.h"
#include "common/shared_folder.h"
#include "common/task_block.h"

namespace zvrdb::common {
namespace {

struct AreaRow {
  uint32_t number;
  uint32_t capacity;
};

constexpr uint32_t kNameLength = 64;  // of the local target, the NUL not counted
constexpr uint32_t kAccessKeysSize = 4 + 2432;
constexpr AreaRow kAreas[] = {
    {CO_AREA_CONFIG, CO_CONFIG_LENGTH},        {CO_AREA_LOCAL_TARGET, kNameLength + 1},
    {CO_AREA_DBR_CNTL, CO_AREA_DBR_CNTL_SIZE}, {CO_AREA_TARGET_KEYS, kAccessKeysSize},
    {CO_AREA_DEFAULT_KEYS, kAccessKeysSize},   {CO_AREA_FOCAL_POINTS, 8 + CO_FOCAL_CAPACITY * 80},
    {CO_AREA_LEDGER, CO_AREA_LEDGER_SIZE},
};
constexpr uint32_t kAreaCount = sizeof kAreas / sizeof kAreas[0];

std::atomic<void*> mapped[kAreaCount];  // set under process().mutex

void* map_area(const Installation& installation, int folder_fd, const AreaRow& area) {
  char name[32];
  snprintf(name, sizeof name, "area-%u", area.number);
  HeldDescriptor file(open_shared_file(installation, folder_fd, name, O_RDWR | O_CREAT));
  struct stat status;
  if (file.fd < 0 || fstat(file.fd, &status) != 0) return nullptr;
  // Only ever grown, so two processes that come first at once do no harm.
  if (status.st_size < static_cast<off_t>(area.capacity)) {
    errno = allocate_shared_file(file.fd, area.capacity);
    if (errno != 0) return nullptr;
  }
  void* address = mmap(nullptr, area.capacity, PROT_READ | PROT_WRITE, MAP_SHARED, file.fd, 0);
  return address == MAP_FAILED ? nullptr : address;
}

const AreaRow* area_row(uint32_t number) {
  for (const AreaRow& area : kAreas)
    if (area.number == number) return &area;
  return nullptr;
}

}  // namespace

bool fill_configuration_areas(const Installation& installation, int folder_fd) {
  unsigned char record[CO_CONFIG_LENGTH] = {};
  if (!read_config_file(installation.base, record)) return false;
  for (const uint32_t number : {CO_AREA_CONFIG, CO_AREA_LOCAL_TARGET}) {
    const AreaRow& area = *area_row(number);
    void* address = map_area(installation, folder_fd, area);
    if (address == nullptr)
      return init_error("common area %u of %s cannot be made: %s", number, installation.folder,
                        strerror(errno));
    // Area 2 takes the workstation name, which leads the record and ends in a NUL.
    memcpy(address, record, number == CO_AREA_CONFIG ? CO_CONFIG_LENGTH : kNameLength);
    munmap(address, area.capacity);
  }
  return true;
}

void release_areas() {
  for (uint32_t i = 0; i < kAreaCount; ++i)
    if (void* address = mapped[i].exchange(nullptr)) munmap(address, kAreas[i].capacity);
}

}  // namespace zvrdb::common

using namespace zvrdb::common;

void* co_croca(void* handle, uint32_t n) {
  if (task_of(handle) == nullptr) return nullptr;
  const AreaRow* area = area_row(n);
  if (area == nullptr) return nullptr;
  std::atomic<void*>& place = mapped[area - kAreas];
  void* address = place.load(std::memory_order_acquire);
  if (address != nullptr) return address;
  Process& here = process();
  std::lock_guard<std::mutex> guard(here.mutex);
  address = place.load();
  if (address == nullptr) {
    address = map_area(here.installation, here.folder_fd, *area);
    place.store(address, std::memory_order_release);
  }
  return address;
}

uint16_t co_reload_config(void* handle) {
  void* config = co_croca(handle, CO_AREA_CONFIG);
  void* target = co_croca(handle, CO_AREA_LOCAL_TARGET);
  if (config == nullptr || target == nullptr) return CO_FAILURE;
  clear_init_error();
  unsigned char record[CO_CONFIG_LENGTH] = {};
  if (!read_config_file(process().installation.base, record)) return CO_BAD_ARGUMENT;
  memcpy(config, record, CO_CONFIG_LENGTH);
  memcpy(target, record, kNameLength);
  return CO_OK;
}

uint16_t co_set_target(void* handle, const char* name) {
  char* config = static_cast<char*>(co_croca(handle, CO_AREA_CONFIG));
  char* target = static_cast<char*>(co_croca(handle, CO_AREA_LOCAL_TARGET));
  if (config == nullptr || target == nullptr || name == nullptr) return CO_BAD_ARGUMENT;
  if (strnlen(name, kNameLength) == kNameLength) return CO_BAD_ARGUMENT;
  copy_text(target, kNameLength + 1, name);
  copy_text(config, kNameLength, name);  // the workstation name leads the record
  return CO_OK;
}

uint16_t co_get_target(void* handle, char* out, uint32_t zero) {
  (void)zero;
  const char* target = static_cast<const char*>(co_croca(handle, CO_AREA_LOCAL_TARGET));
  if (target == nullptr || out == nullptr) return CO_BAD_ARGUMENT;
  const size_t length = strnlen(target, kNameLength);
  memcpy(out, target, length);
  out[length] = '\0';
  return CO_OK;
}
