#include "faults/text_connection.h"

#include <zvrdb/records.h>
#include <zvrdb/zvrdb.h>

#include <cstring>

namespace fault_test {

bool put_connection(void* task, std::uint32_t version) {
  db_scn record{};
  std::memcpy(record.connection, connection, sizeof connection - 1);
  record.protocol = DB_SCN_TCPIP;
  record.connection_type = 2;
  record.transmission_time_out = record.send_mu_id_time_out = version;
  std::memcpy(record.next_rgn, "NORTH", 5);
  std::memcpy(record.next_ren, "OSLO", 4);
  std::memcpy(record.remote_server, "OSLO", 4);
  const void* keys[] = {connection};
  const std::int16_t rc = db_put(task, DB_SCN, 1, keys, &record, sizeof record);
  return rc == DBE_OK || rc == DBE_RECORD_REPLACED;
}

bool del_connection(void* task) {
  const void* keys[] = {connection};
  return db_del(task, DB_SCN, 1, keys) == DBE_OK;
}

std::string observe_connection(void* task) {
  const void* keys[] = {connection};
  db_scn record{};
  const std::int16_t rc = db_get(task, DB_SCN, 1, keys, &record, sizeof record);
  return "connection " + std::to_string(rc) + " " + std::to_string(record.transmission_time_out) + " " +
         std::to_string(record.send_mu_id_time_out) + "\n";
}

}  // namespace fault_test
