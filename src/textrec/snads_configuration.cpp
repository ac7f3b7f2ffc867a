// SNADS configuration: four parameters for the whole system.
#include <cstring>

#include "memory/trace.h"
#include "textrec/keyword_tables.h"
#include "textrec/parsed_files.h"
#include "textrec/record_printers.h"
#include "textrec/text_records.h"
#include "textrec/text_writer.h"

namespace zvrdb::textrec {
namespace {

constexpr char file_name[] = "snadscfg";

struct snads_configuration {
  std::uint16_t origin_hop_count;
  std::uint16_t max_crmu;
  std::uint32_t transmission_hold_time;
  std::uint32_t allocation_failure_retry_time;
};
static_assert(sizeof(snads_configuration) == scf_record_len);

}  // namespace

// The two times are printed with a 16-bit format: of a larger one the low bits.
std::int32_t unparse_scf(void* task, char* text, const void* record, std::uint32_t) {
  const trace_bracket bracket(task, __func__);
  snads_configuration from;
  std::memcpy(&from, record, sizeof from);
  text_writer out(text);
  out.print("ORIGIN HOP COUNT:                 %hu\n", from.origin_hop_count);
  out.print("MAX CRMU:                         %hu\n", from.max_crmu);
  out.print("TRANSMISSION HOLD TIME:           %hu\n",
            static_cast<std::uint16_t>(from.transmission_hold_time));
  out.print("ALLOCATION FAILURE RETRY TIME:    %hu\n",
            static_cast<std::uint16_t>(from.allocation_failure_retry_time));
  return out.length();
}

std::int16_t get_scf(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t record_len) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  return rc = get_parsed(task, {DB_SCF, file_name, 0, scf_keywords}, num_keys, keys, record, record_len);
}

std::int16_t put_scf(void* task, std::uint16_t num_keys, const void* const* keys, void* record,
                     std::uint16_t record_len) {
  std::int16_t rc = DBE_OK;
  const trace_bracket bracket(task, __func__, &rc);
  return rc = put_parsed(task, file_name, num_keys, keys, unparse_scf, record, record_len);
}

}  // namespace zvrdb::textrec
