#include "requests/control_correlator.h"

#include <cstring>

#include "requests/correlators.h"

namespace zvrdb::requests {
namespace {

// Name of this machine, padded with zeros.
void put_local_name(void* task, char (&name)[sizeof(db_coo::origin)]) {
  char local[sizeof name + 1] = {};
  co_get_target(task, local, 0);
  std::memcpy(name, local, strnlen(local, sizeof name));
}

}  // namespace

db_coo empty_control_correlator(void* task) {
  db_coo control = {};
  put_local_name(task, control.request.request.src_domain);
  return control;
}

std::int16_t read_control_correlator(void* task, db_coo* control) {
  *control = empty_control_correlator(task);
  const db_coo key = *control;
  const void* keys[] = {&key};
  return get_coo(task, 1, keys, control, sizeof *control);
}

std::int16_t take_control_correlator(void* task, db_coo* control) {
  std::int16_t rc = read_control_correlator(task, control);
  if (rc == DBE_OK) {
    const db_coo key = empty_control_correlator(task);
    const void* keys[] = {&key};
    rc = del_coo(task, 1, keys);
  }
  return rc == DBE_NOT_FOUND ? std::int16_t{DBE_OK} : rc;
}

std::int16_t store_control_correlator(void* task, db_coo* control) {
  put_local_name(task, control->origin);
  const void* keys[] = {control};
  const std::int16_t rc = put_coo(task, 1, keys, control, sizeof *control);
  return rc == DBE_RECORD_REPLACED ? std::int16_t{DBE_OK} : rc;
}

}  // namespace zvrdb::requests
