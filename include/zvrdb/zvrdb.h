/* zvrdb: the persistent state of a software-distribution server.
 *
 * Every call takes a task of the common services (zvrco/zvrco.h: co_init_task) as
 * its first argument and is made on that task's own thread.  A call returns one of
 * the codes below; nothing is thrown.
 */
#ifndef ZVRDB_H
#define ZVRDB_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define DB_API __attribute__((visibility("default")))

enum {
  DBE_OK = 0,
  DBE_BAD_DB_ID = 8193,         /* db_id out of range, or no such operation for this record type */
  DBE_NOT_FOUND = 8194,
  DBE_BAD_RECORD = 8195,        /* cannot be parsed, or no field table, or a name that may not stand there */
  DBE_RECORD_REPLACED = 8196,   /* success: an existing record was replaced */
  DBE_END_OF_LIST = 8199,
  DBE_NO_TARGET = 8200,         /* target name unknown, or number out of range */
  DBE_INIT_FAILED = 8201,
  DBE_BAD_CMS_KEY = 8209,
  DBE_ENTRY_CHANGED = 8210,
  DBE_LIST_TOO_SMALL = 8211,
  DBE_CMS_EXISTS = 8212,        /* change file has status and cannot go */
  DBE_LIMIT_EXCEEDED = 8213,
  DBE_NO_STATUS = 8214,
  DBE_NO_STAT_GET = 8215,       /* db_put_trg_stat without a successful db_get_trg_stat before */
  DBE_NOT_AUTHORIZED = 8216,
  DBE_EMPTY_LIST = 8217,
  DBE_BUFFER_TOO_SMALL = 8224,
  DBE_TRANS_IN_PROGRESS = 8225, /* the task has a transaction open in the other class */
  DBE_FILE_NOT_FOUND = 8449,
  DBE_IO_ERROR = 8455,
  DBE_FILE_STATUS = 8457,
  DBE_CO_FAILURE = 8464
};

/* Record types that have a number. */
enum {
  DB_CFG = 0, DB_RTE = 1, DB_SCN = 2, DB_SCF = 3, DB_TRG = 4, DB_PRM = 5, DB_TG = 6, DB_UA = 7, DB_UCF = 8,
  DB_CAT = 9, DB_CMS = 10, DB_THW = 11, DB_RQR = 17, DB_RQF = 18, DB_FAN = 19, DB_RQD = 20, DB_RQT = 21,
  DB_USR = 22, DB_APR = 23, DB_TAK = 24, DB_DAK = 25, DB_PRD = 26, DB_FST = 27, DB_COI = 28, DB_COO = 29,
  DB_RQV = 30, DB_DTG = 31, DB_SHT = 32, DB_TYPE_COUNT = 34
};

/* Generic calls. */
DB_API int16_t db_del(void *task, uint32_t db_id, uint16_t num_keys, const void *const *keys);
DB_API int16_t db_get(void *task, uint32_t db_id, uint16_t num_keys, const void *const *keys, void *buffer,
                      uint16_t buffer_len);
DB_API int16_t db_get_next(void *task, uint32_t db_id, const void *list, uint16_t max, uint16_t *index, void *buffer,
                           uint16_t buffer_len);
DB_API int16_t db_get_more(void *task, uint32_t db_id, void *list_state, void *buffer, uint16_t buffer_len);
DB_API int16_t db_put(void *task, uint32_t db_id, uint16_t num_keys, const void *const *keys, void *record,
                      uint16_t record_len);
DB_API int16_t db_start_list(void *task, uint32_t db_id, const void *filter, void *list, uint32_t list_size,
                             uint16_t *count, uint16_t *index);
DB_API int16_t db_init_list(void *task, uint32_t db_id, void *filter, void *list_state, uint32_t list_state_size);
/* dst: at least 128 bytes. */
DB_API void db_get_type_str(void *task, uint32_t db_id, char *dst);

/* Transactions. */
DB_API int16_t db_start_trans(void *task, uint32_t db_id);
DB_API int16_t db_commit(void *task, uint32_t db_id);
DB_API int16_t db_rollback(void *task, uint32_t db_id);

/* Targets. */
DB_API int16_t db_get_trg_index(void *task, const char *name, uint32_t *number);
DB_API int16_t db_rename_trg(void *task, const char *old_name, const char *new_name);
DB_API int16_t db_trg_from_rr(void *task, const char *rgn_ren, void *buffer, uint16_t buffer_len);
DB_API int16_t db_get_trg_stat(void *task, const char *name, void *status);
DB_API int16_t db_put_trg_stat(void *task, const char *name, const void *status);
DB_API int16_t db_time_trg_stat(void *task, uint16_t elapsed);
DB_API int16_t db_get_srv(void *task, const char *name, char *server);

/* Record conversion. */
DB_API int16_t parse_keyed(void *task, uint32_t db_id, const void *external, void *internal, uint32_t *external_len,
                           uint32_t *internal_len);
DB_API extern const uint32_t int_key_len[DB_TYPE_COUNT];

#ifdef __cplusplus
}
#endif
#endif
