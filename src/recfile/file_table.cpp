#include "recfile/file_table.h"

#include <array>

namespace zvrdb::recfile {
namespace {

constexpr std::uint32_t userreq_ids[] = {17, 18, 19, 20, 21, 30};
constexpr std::uint32_t trgcfg_ids[] = {4, 5, 11, 32};
constexpr std::uint32_t users_ids[] = {22};
constexpr std::uint32_t auth_ids[] = {23};
constexpr std::uint32_t cmstatus_ids[] = {10};
constexpr std::uint32_t trggrp_ids[] = {6};
constexpr std::uint32_t catalog_ids[] = {9};
constexpr std::uint32_t snacorr_ids[] = {28, 29};
constexpr std::uint32_t dyntggrp_ids[] = {31};

constexpr std::array<file_spec, file_count> file_table = {{
    {"userreq", 76, field_kind::three_keys, 17, userreq_ids, &DBR_TCB::req_file},
    {"trgcfg", 12, field_kind::one_key, 4, trgcfg_ids, &DBR_TCB::trg_file},
    {"users", 24, field_kind::one_key, 22, users_ids, &DBR_TCB::usr_file},
    {"auth", 24, field_kind::one_key, 23, auth_ids, &DBR_TCB::apr_file},
    {"cmstatus", 12, field_kind::one_key, 10, cmstatus_ids, &DBR_TCB::cms_file},
    {"trggrp", 72, field_kind::one_key, 6, trggrp_ids, &DBR_TCB::tg_file},
    {"catalog", 16, field_kind::one_key, 9, catalog_ids, &DBR_TCB::cat_file},
    {"snacorr", 48, field_kind::two_keys, 29, snacorr_ids, &DBR_TCB::corr_file},
    {"dyntggrp", 72, field_kind::one_key, 31, dyntggrp_ids, &DBR_TCB::dtg_file},
}};

// Key length 0 stands for the length of the file's own key.
constexpr std::array<field_row, 3> one_key_rows = {{
    {'B', 2, 'U', 0, 0, 1, 0, 0},
    {'B', 'N', 'N', 0, 0, 0, 0, 0},
    {'E', 0, 0, 0, 0, 0, 0, 0},
}};
constexpr std::array<field_row, 4> two_keys_rows = {{
    {'B', 2, 'U', 0, 0, 1, 0, 0},
    {'B', 2, 'U', 0, sna_key_len, 2, 0, 0},
    {'B', 'N', 'N', 0, 0, 0, 0, 0},
    {'E', 0, 0, 0, 0, 0, 0, 0},
}};
constexpr std::array<field_row, 5> three_keys_rows = {{
    {'B', 2, 'U', 0, 0, 1, 0, 0},
    {'B', 2, 'D', 0, server_key_len, 2, 0, 0},
    {'L', 5, 'D', 0, 4, 3, 0, 0},
    {'B', 'N', 'N', 0, 0, 0, 0, 0},
    {'E', 0, 0, 0, 0, 0, 0, 0},
}};
static_assert(three_keys_rows.size() == most_fields);

constexpr engine::key_entry one_key_table[] = {{1, 2, {}, nullptr}, {0, 0, {}, nullptr}};
constexpr engine::key_entry two_keys_table[] = {
    {1, 2, {}, nullptr}, {2, 2, {}, nullptr}, {0, 0, {}, nullptr}};
constexpr engine::key_entry three_keys_table[] = {
    {1, 2, {}, nullptr}, {2, 2, {}, nullptr}, {3, 5, {}, nullptr}, {0, 0, {}, nullptr}};

}  // namespace

const file_spec& file_at(unsigned index) {
  return file_table[index];
}

int file_index(std::uint32_t db_id) {
  for (unsigned i = 0; i < file_table.size(); ++i)
    for (const std::uint32_t id : file_table[i].db_ids)
      if (id == db_id) return static_cast<int>(i);
  return -1;
}

std::span<const field_row> field_rows(field_kind kind) {
  switch (kind) {
    case field_kind::two_keys:
      return two_keys_rows;
    case field_kind::three_keys:
      return three_keys_rows;
    case field_kind::one_key:
      break;
  }
  return one_key_rows;
}

const engine::key_entry* engine_keys(field_kind kind) {
  switch (kind) {
    case field_kind::two_keys:
      return two_keys_table;
    case field_kind::three_keys:
      return three_keys_table;
    case field_kind::one_key:
      break;
  }
  return one_key_table;
}

unsigned data_field(field_kind kind) {
  return static_cast<unsigned>(field_rows(kind).size()) - 2;
}

bool find_open(void* task, file_entry* handle, open_file* out) {
  auto* tcb = static_cast<DBR_TCB*>(co_slots(task)->dbr_tcb);
  if (!tcb || !handle || !handle->iocb || !handle->psp) return false;
  for (unsigned i = 0; i < file_count; ++i) {
    if (handle != &tcb->files[i]) continue;
    const file_spec& spec = file_table[i];
    const std::uint32_t lead = spec.key_len + (spec.kind == field_kind::two_keys ? sna_key_len : 0);
    *out = {tcb, handle, i, &spec, spec.key_len, lead};
    return true;
  }
  return false;
}

std::uint32_t key_length(const file_entry* handle) {
  if (!handle || !handle->iocb) return 0;
  const int index = file_index(handle->iocb->db_id);
  return index < 0 ? 0 : file_at(static_cast<unsigned>(index)).key_len;
}

file_entry** handle_field(DBR_TCB* tcb, std::uint32_t db_id) {
  const int index = file_index(db_id);
  return tcb && index >= 0 ? &(tcb->*file_at(static_cast<unsigned>(index)).handle) : nullptr;
}

}  // namespace zvrdb::recfile
