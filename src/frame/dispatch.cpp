#include "frame/dispatch.h"

#include <array>

#include "catalog/catalog.h"
#include "cmstatus/cm_status.h"
#include "frame/first_handlers.h"
#include "requests/correlators.h"
#include "requests/requests.h"
#include "targets/targets.h"
#include "textrec/text_records.h"
#include "users/groups.h"
#include "users/users.h"

namespace zvrdb::frame {
namespace {

using namespace zvrdb::catalog;
using namespace zvrdb::cmstatus;
using namespace zvrdb::requests;
using namespace zvrdb::targets;
using namespace zvrdb::textrec;
using namespace zvrdb::users;

constexpr record_type not_assigned = {nullptr, nullptr,    nullptr, nullptr,   nullptr, nullptr,
                                      nullptr, file_class, 0,       {0, 0, 0}, 0};

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
    /*  6 tg  */
    {del_tg,
     get_tg,
     get_next_tg,
     get_more_tg,
     put_tg,
     start_list_tg,
     init_list_tg,
     memory_class,
     1,
     {0, 0, 0},
     0},
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
    /* 17 rqr */
    {del_rqr, get_rqr, nullptr, get_more_rqr, put_rqr, nullptr, init_list_rqr, memory_class, 1, {0, 0, 0}, 0},
    /* 18 rqf */
    {del_rqf, get_rqf, nullptr, get_more_rqf, put_rqf, nullptr, init_list_rqf, memory_class, 1, {0, 0, 0}, 0},
    /* 19 fan */
    {del_fan, get_fan, nullptr, get_more_fan, put_fan, nullptr, init_list_fan, memory_class, 1, {0, 0, 0}, 0},
    /* 20 rqd */
    {del_rqd, get_rqd, nullptr, get_more_rqd, put_rqd, nullptr, init_list_rqd, memory_class, 1, {0, 0, 0}, 0},
    /* 21 rqt */
    {del_rqt, get_rqt, nullptr, get_more_rqt, put_rqt, nullptr, init_list_rqt, memory_class, 1, {0, 0, 0}, 0},
    /* 22 usr */
    {del_usr, get_usr, nullptr, get_more_usr, put_usr, nullptr, init_list_usr, memory_class, 1, {0, 0, 0}, 0},
    /* 23 apr */
    {del_apr, get_apr, nullptr, get_more_apr, put_apr, nullptr, init_list_apr, memory_class, 1, {0, 0, 0}, 0},
    /* 24 tak */
    {nullptr, get_tak, nullptr, nullptr, put_tak, nullptr, nullptr, memory_class, 0, {0, 0, 0}, 0},
    /* 25 dak */
    {nullptr, get_dak, nullptr, nullptr, put_dak, nullptr, nullptr, memory_class, 0, {0, 0, 0}, 0},
    /* 26 prd */
    {del_prd, get_prd, nullptr, get_more_prd, put_prd, nullptr, init_list_prd, memory_class, 1, {0, 0, 0}, 0},
    /* 27 fst */
    {del_fst, get_fst, nullptr, get_more_fst, put_fst, nullptr, init_list_fst, memory_class, 1, {0, 0, 0}, 0},
    /* 28 coi */
    {nullptr, get_coi, nullptr, nullptr, nullptr, nullptr, nullptr, memory_class, 1, {16, 0, 0}, 0},
    /* 29 coo */
    {del_coo, get_coo, nullptr, nullptr, put_coo, nullptr, nullptr, memory_class, 1, {16, 0, 0}, 0},
    /* 30 rqv */
    {del_rqv, get_rqv, nullptr, get_more_rqv, put_rqv, nullptr, init_list_rqv, memory_class, 1, {0, 0, 0}, 0},
    /* 31 dtg */
    {del_dtg,
     get_dtg,
     get_next_dtg,
     get_more_dtg,
     put_dtg,
     start_list_dtg,
     init_list_dtg,
     memory_class,
     1,
     {0, 0, 0},
     0},
    /* 32 sht */
    {del_sht, get_sht, nullptr, nullptr, put_sht, nullptr, nullptr, memory_class, 1, {0, 0, 0}, 0},
    /* 33     */ not_assigned,
}};

}  // namespace

const record_type& type_row(std::uint32_t db_id) {
  return record_types[db_id];
}

}  // namespace zvrdb::frame
