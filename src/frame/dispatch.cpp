#include "frame/dispatch.h"

#include <array>

#include "catalog/catalog.h"
#include "cmstatus/cm_status.h"
#include "frame/first_handlers.h"
#include "targets/targets.h"
#include "textrec/text_records.h"

namespace zvrdb::frame {
namespace {

using namespace zvrdb::catalog;
using namespace zvrdb::cmstatus;
using namespace zvrdb::targets;
using namespace zvrdb::textrec;

constexpr record_type not_assigned = {nullptr, nullptr,    nullptr, nullptr,   nullptr, nullptr,
                                      nullptr, file_class, 0,       {0, 0, 0}, 0};

// A record type whose handlers do not exist yet has its class and keys and no handler.
constexpr record_type without_handlers(record_class sem_index, std::uint16_t num_keys,
                                       std::uint16_t first = 0, std::uint16_t second = 0,
                                       std::uint16_t third = 0) {
  return {nullptr,  nullptr,
          nullptr,  nullptr,
          nullptr,  nullptr,
          nullptr,  static_cast<std::int16_t>(sem_index),
          num_keys, {first, second, third},
          0};
}

// del, get, get_next, get_more, put, start_list, init_list, class, keys, key lengths
constexpr std::array<record_type, DB_TYPE_COUNT> record_types = {{
    /*  0 cfg */ {nullptr, get_cfg, nullptr, nullptr, put_cfg, nullptr, nullptr, file_class, 0, {0, 0, 0}, 0},
    /*  1 rte */ {nullptr, get_rte, nullptr, nullptr, put_rte, nullptr, nullptr, file_class, 0, {0, 0, 0}, 0},
    /*  2 scn */
    {del_scn, get_scn, get_next_scn, nullptr, put_scn, start_list_scn, nullptr, file_class, 1, {0, 0, 0}, 0},
    /*  3 scf */ {nullptr, get_scf, nullptr, nullptr, put_scf, nullptr, nullptr, file_class, 0, {0, 0, 0}, 0},
    /*  4 trg */
    {del_trg,
     get_trg,
     get_next_trg,
     get_more_trg,
     put_trg,
     start_list_trg,
     init_list_trg,
     memory_class,
     1,
     {0, 0, 0},
     0},
    /*  5 prm */
    {del_prm, get_prm, nullptr, get_more_prm, put_prm, nullptr, init_list_prm, memory_class, 1, {0, 0, 0}, 0},
    /*  6 tg  */ without_handlers(memory_class, 1),
    /*  7 ua  */
    {nullptr, get_ua, nullptr, nullptr, nullptr, nullptr, nullptr, memory_class, 3, {0, 16, 32}, 0},
    /*  8 ucf */
    {nullptr, get_ucf, nullptr, nullptr, put_ucf, nullptr, nullptr, memory_class, 0, {0, 0, 0}, 0},
    /*  9 cat */
    {del_cat,
     get_cat,
     get_next_cat,
     nullptr,
     put_cat,
     start_list_cat,
     nullptr,
     memory_class,
     1,
     {0, 0, 0},
     0},
    /* 10 cms */
    {del_cms, get_cms, nullptr, nullptr, put_cms, nullptr, nullptr, memory_class, 2, {0, 64, 0}, 0},
    /* 11 thw */
    {del_thw, get_thw, nullptr, nullptr, put_thw, nullptr, nullptr, memory_class, 1, {0, 0, 0}, 0},
    /* 12     */ not_assigned,
    /* 13     */ not_assigned,
    /* 14     */ not_assigned,
    /* 15     */ not_assigned,
    /* 16     */ not_assigned,
    /* 17 rqr */ without_handlers(memory_class, 1),
    /* 18 rqf */ without_handlers(memory_class, 1),
    /* 19 fan */ without_handlers(memory_class, 1),
    /* 20 rqd */ without_handlers(memory_class, 1),
    /* 21 rqt */ without_handlers(memory_class, 1),
    /* 22 usr */ without_handlers(memory_class, 1),
    /* 23 apr */ without_handlers(memory_class, 1),
    /* 24 tak */ without_handlers(memory_class, 0),
    /* 25 dak */ without_handlers(memory_class, 0),
    /* 26 prd */
    {del_prd, get_prd, nullptr, get_more_prd, put_prd, nullptr, init_list_prd, memory_class, 1, {0, 0, 0}, 0},
    /* 27 fst */
    {del_fst, get_fst, nullptr, get_more_fst, put_fst, nullptr, init_list_fst, memory_class, 1, {0, 0, 0}, 0},
    /* 28 coi */ without_handlers(memory_class, 1, 16),
    /* 29 coo */ without_handlers(memory_class, 1, 16),
    /* 30 rqv */ without_handlers(memory_class, 1),
    /* 31 dtg */ without_handlers(memory_class, 1),
    /* 32 sht */
    {del_sht, get_sht, nullptr, nullptr, put_sht, nullptr, nullptr, memory_class, 1, {0, 0, 0}, 0},
    /* 33     */ not_assigned,
}};

}  // namespace

const record_type& type_row(std::uint32_t db_id) {
  return record_types[db_id];
}

}  // namespace zvrdb::frame
