/* zvrdb: the persistent state of a software-distribution server.
 *
 * Targets, change files, users, requests and configuration of one installation, kept
 * in record files and in memory shared by all its processes.
 *
 * Rules for every call
 *   - The first argument is a task of the common services (zvrco/zvrco.h,
 *     co_init_task).  A task is used on the thread that made it; another thread makes
 *     a task of its own.  A null task gives DBE_INIT_FAILED.
 *   - A call returns one of the DBE_ codes; nothing is thrown, and no call ends the
 *     process.  Details of a failure go to the message log of the installation.
 *   - Buffers belong to the caller.  A null pointer where the call must follow one is
 *     refused: a null key with DBE_NOT_FOUND (DBE_NO_TARGET from db_get_trg_index), a
 *     null record or buffer with DBE_BAD_RECORD, a null list, list state, count or
 *     index with DBE_LIST_TOO_SMALL.  A null buffer of length 0 is allowed, except in
 *     db_get_more.
 *   - Any call can also return:
 *       DBE_BAD_DB_ID          db_id of 34 or more, or a record type without this call
 *       DBE_INIT_FAILED        the task or the tables in memory could not be set up
 *       DBE_TRANS_IN_PROGRESS  a call for record types 0 to 3 while this task has a
 *                              transaction open, or stands between db_get_trg_stat and
 *                              db_put_trg_stat and somebody else is in such a call
 *       DBE_IO_ERROR           storage error
 *       CO_IO_ERROR            (zvrco.h) the same, of text records: their file was found and
 *                              could not be read, written or removed
 *     and the first call of a task what opening the files answered (DBE_IO_ERROR).
 *
 * Locking
 *   A call holds one lock of the installation while it runs, so calls of all processes
 *   follow one another: one lock for record types 0 to 3, another for all others.  An
 *   explicit transaction keeps the second lock from db_start_trans to its end, and so
 *   does the pair db_get_trg_stat, db_put_trg_stat: other tasks wait meanwhile.
 *   A process may be killed at any time: the next call of any task repairs what it left.
 *   SIGINT, SIGQUIT and SIGHUP that come during a call are delivered when it ends.
 */
#ifndef ZVRDB_H
#define ZVRDB_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define DB_API __attribute__((visibility("default")))

/* Results.  0x20xx tell of records, 0x21xx of files. */
enum {
  DBE_OK = 0,
  DBE_MIGRATION = 6425,         /* the older database is in a state that no conversion leaves, or a text
                                   of it cannot be parsed */
  DBE_BAD_DB_ID = 8193,         /* db_id out of range, or no such operation for this record type */
  DBE_NOT_FOUND = 8194,         /* no such record */
  DBE_BAD_RECORD = 8195,        /* cannot be parsed, or no field table, or a name that may not stand there */
  DBE_RECORD_REPLACED = 8196,   /* success: an existing record was replaced */
  DBE_END_OF_LIST = 8199,       /* no further entry */
  DBE_NO_TARGET = 8200,         /* target name unknown, or number out of range */
  DBE_INIT_FAILED = 8201,       /* task block, shared memory or tables in memory could not be set up */
  DBE_BAD_CMS_KEY = 8209,       /* CM status key names no local target or no change file */
  DBE_ENTRY_CHANGED = 8210,     /* a catalog list entry is no longer what it was */
  DBE_LIST_TOO_SMALL = 8211,    /* the caller's list area is too small */
  DBE_CMS_EXISTS = 8212,        /* change file has status and cannot go */
  DBE_LIMIT_EXCEEDED = 8213,    /* a configured maximum would be exceeded */
  DBE_NO_STATUS = 8214,         /* the target exists but has no status slot */
  DBE_NO_STAT_GET = 8215,       /* db_put_trg_stat without a successful db_get_trg_stat before */
  DBE_NOT_AUTHORIZED = 8216,    /* the user is known and may not */
  DBE_EMPTY_LIST = 8217,        /* the filter names something unknown: the list is empty */
  DBE_BUFFER_TOO_SMALL = 8224,  /* output buffer shorter than the record */
  DBE_TRANS_IN_PROGRESS = 8225, /* the task has a transaction open in the other class */
  DBE_FILE_NOT_FOUND = 8449,    /* file does not exist */
  DBE_IO_ERROR = 8455,          /* storage error; its own code stands in the message log */
  DBE_FILE_STATUS = 8457,       /* answer of a size query */
  DBE_CO_FAILURE = 8464         /* the common services failed */
};

/* Record types that have a number. */
enum {
  DB_CFG = 0,   /* base configuration */
  DB_RTE = 1,   /* routes */
  DB_SCN = 2,   /* SNADS connections */
  DB_SCF = 3,   /* SNADS configuration */
  DB_TRG = 4,   /* targets */
  DB_PRM = 5,   /* target parameters */
  DB_TG = 6,    /* target groups */
  DB_UA = 7,    /* user authorization */
  DB_UCF = 8,   /* user configuration */
  DB_CAT = 9,   /* distribution catalog */
  DB_CMS = 10,  /* CM status */
  DB_THW = 11,  /* target hardware */
  DB_RQR = 17,  /* user requests */
  DB_RQF = 18,  /* request functions */
  DB_FAN = 19,  /* fan-out records */
  DB_RQD = 20,  /* request domain records */
  DB_RQT = 21,  /* request target records */
  DB_USR = 22,  /* users */
  DB_APR = 23,  /* authorization profiles */
  DB_TAK = 24,  /* target access key */
  DB_DAK = 25,  /* default access key */
  DB_PRD = 26,  /* products */
  DB_FST = 27,  /* filesets */
  DB_COI = 28,  /* correlators by SNA correlator */
  DB_COO = 29,  /* correlators by origin */
  DB_RQV = 30,  /* request vectors */
  DB_DTG = 31,  /* dynamic target groups */
  DB_SHT = 32,  /* shadow records */
  DB_TYPE_COUNT = 34
};

/* ---- Generic calls ----------------------------------------------------
 *
 * db_id: the record type.  keys: num_keys pointers to NUL-terminated strings (what
 * each record type takes stands with its record in zvrdb/records.h); fewer keys than
 * the type takes give DBE_NOT_FOUND.  Lengths and sizes are in bytes. */

/* Deletes a record.  DBE_OK, DBE_NOT_FOUND, codes of the record type. */
DB_API int16_t db_del(void *task, uint32_t db_id, uint16_t num_keys, const void *const *keys);

/* Reads a record into buffer.  A shorter buffer takes the fields that fit: DBE_OK all
 * the same.  A buffer of at most int_key_len[db_id] bytes reads no record: of exactly
 * that length it takes the fields of the key, of less nothing at all.
 * Targets: at most 192 bytes come from memory and touch no file.
 * DB_CFG: the smaller of buffer_len and 4640 bytes are copied.
 * DB_UA (keys: user name of up to 16 characters, a second name, one byte): fills as far
 * as whole pieces fit 16 bytes user name, 16 bytes second name, the byte, the level;
 * DBE_NOT_FOUND for an unknown user, DBE_NOT_AUTHORIZED, both with the buffer filled.
 * DBE_OK, DBE_NOT_FOUND, DBE_NO_TARGET, codes of the record type. */
DB_API int16_t db_get(void *task, uint32_t db_id, uint16_t num_keys, const void *const *keys, void *buffer,
                      uint16_t buffer_len);

/* Reads the record of entry *index of a list made by db_start_list, then adds 1 to
 * *index, whatever the result.  max: entries of the list.  *index of max or more gives
 * DBE_END_OF_LIST and stays. */
DB_API int16_t db_get_next(void *task, uint32_t db_id, const void *list, uint16_t max, uint16_t *index, void *buffer,
                           uint16_t buffer_len);

/* Reads the next record of a list begun with db_init_list.  DBE_END_OF_LIST behind the
 * last one, and for a list state that no db_init_list filled. */
DB_API int16_t db_get_more(void *task, uint32_t db_id, void *list_state, void *buffer, uint16_t buffer_len);

/* Stores a record: DBE_OK when it is new, DBE_RECORD_REPLACED when it replaced one.
 * For either result the record is there after any kill.  Inside an explicit
 * transaction it becomes so with db_commit.
 * These types take their full length from `record`, whatever record_len says, so the
 * area must be that long: DB_CFG 4640 bytes, DB_PRM 62812, DB_THW 20804, DB_CMS 176.
 * DBE_NO_TARGET, DBE_BAD_RECORD, DBE_LIMIT_EXCEEDED, codes of the record type. */
DB_API int16_t db_put(void *task, uint32_t db_id, uint16_t num_keys, const void *const *keys, void *record,
                      uint16_t record_len);

/* Fills list with the names that match filter, as many as list_size bytes take, and
 * sets *count to their number and *index to 0.  DBE_LIST_TOO_SMALL when there are more:
 * what fits is in the list. *count and *index are left alone when the call is refused
 * before it begins.
 * DB_TRG: the filter is ignored, an entry is a name of 64 bytes.
 * DB_CAT: the filter is a db_cf_name, an entry a db_cat_entry of 4 bytes.  In the filter's
 * tokens '?' stands for one character, '*' for the rest of the token; a token "*" alone
 * also for no token, so eleven of them list all.  The list is in the order of the names.
 * Of entries that changed since, db_get_next answers DBE_NOT_FOUND (deleted) or
 * DBE_ENTRY_CHANGED (stored anew, perhaps under another name; the buffer is filled).  A list
 * does not outlive the tables in memory (see Transactions): once they were built anew,
 * DBE_ENTRY_CHANGED may be told of an entry that is as it was, and DBE_OK of one that is
 * not. */
DB_API int16_t db_start_list(void *task, uint32_t db_id, const void *filter, void *list, uint32_t list_size,
                             uint16_t *count, uint16_t *index);

/* Begins a list that db_get_more walks.  list_state: the caller's, of at least the size
 * that the record type asks for (420 bytes for targets and their parameters), else
 * DBE_LIST_TOO_SMALL.  DBE_EMPTY_LIST when the filter matches nothing.  The filter may
 * be written to; a null filter where the record type has one gives DBE_BAD_RECORD. */
DB_API int16_t db_init_list(void *task, uint32_t db_id, void *filter, void *list_state, uint32_t list_state_size);

/* Writes the name of a record type to dst (at least 128 bytes), "" for 12 to 16 and
 * for 33 and above.  Takes no lock. */
DB_API void db_get_type_str(void *task, uint32_t db_id, char *dst);

/* ---- Transactions -----------------------------------------------------
 *
 * A transaction is on one record file: that of db_id, so it covers all record types
 * that share the file (4, 5, 11, 32; 17 to 21 and 30; 28 and 29).  Calls on other files
 * meanwhile are transactions of their own.  The task keeps the lock of the installation
 * until the transaction ends, and waits for nobody; it should not take long.
 *
 * Who ends it:
 *   - db_commit or db_rollback with the db_id given to db_start_trans.
 *   - Some calls use a transaction of their own inside (deletion of a change file or of
 *     a request tree, CM status).  Made inside an explicit transaction on the same
 *     file, such a call ends that one with its own: what was done before it is
 *     committed or rolled back with it, and a later db_commit or db_rollback finds
 *     nothing and answers DBE_OK.
 *   - A second db_start_trans on another file takes over the lock: the end of the
 *     newer one releases it, though the older transaction is still open.
 *   - A task that ends, or whose process dies, has its transaction rolled back.  What a
 *     death cuts short is not: the one put or del that was being written may stay, and
 *     of a roll-back that was going on, what it had not come to.
 *
 * The tables in memory are built anew after a roll-back that undid changes of targets or of
 * the catalog, after the death of a writer, and when the catalog has outgrown its tables
 * (which have room for 500 more change files than there are when they are built).  The
 * volatile status of targets is lost then. */

/* DBE_OK also when one is active on the file already.  DBE_BAD_DB_ID for types that no
 * transaction can be begun on (0 to 3, 7, 8, 12 to 16, 24 to 27, 33), DBE_IO_ERROR. */
DB_API int16_t db_start_trans(void *task, uint32_t db_id);
/* DBE_OK, also without a transaction.  DBE_IO_ERROR: the commit failed, everything was
 * rolled back, and the transaction is over.  DBE_BAD_DB_ID. */
DB_API int16_t db_commit(void *task, uint32_t db_id);
/* DBE_OK, also without a transaction or without changes in it.  DBE_IO_ERROR: the
 * transaction is over; a roll-back that could not begin is repeated by the next opening
 * of the file, but what one that had begun could not undo stays. */
DB_API int16_t db_rollback(void *task, uint32_t db_id);

/* ---- Targets ----------------------------------------------------------
 *
 * Names: NUL-terminated, up to 63 characters; a longer one is unknown. */

/* *number: the target's number, from 1.  DBE_OK, DBE_NO_TARGET, DBE_NO_STATUS (the
 * number is 65535; it is set all the same). */
DB_API int16_t db_get_trg_index(void *task, const char *name, uint32_t *number);

/* Gives a target a new name; its number, status and links stay.  new_name is cut to
 * 63 characters and must not be in use: that is not tested.  The base configuration is
 * not touched: who renames the local target must change its name there as well, or the
 * next building of the tables fails with DBE_INIT_FAILED.
 * DBE_OK, DBE_NOT_FOUND, DBE_IO_ERROR. */
DB_API int16_t db_rename_trg(void *task, const char *old_name, const char *new_name);

/* Reads the record of the target with this RGN and REN, 8 characters each and 16 bytes
 * in all.  An RGN that begins with a zero byte means the installation's own network.
 * As db_get of the target; DBE_NOT_FOUND. */
DB_API int16_t db_trg_from_rr(void *task, const char *rgn_ren, void *buffer, uint16_t buffer_len);

/* Reads the 4 bytes of volatile status of a target.  On DBE_OK the task keeps the lock
 * of the installation, so that it can decide and write back with nobody between:
 * db_put_trg_stat must follow at once.  Any other call of the task in between ends
 * that.  DBE_OK, DBE_NOT_FOUND. */
DB_API int16_t db_get_trg_stat(void *task, const char *name, void *status);

/* Writes the 4 bytes of volatile status of a target and releases the lock.  A name that
 * is not there writes to the next one in order, if there is one.  Called on its own
 * after an earlier pair it takes the lock for its own length.
 * DBE_OK; DBE_NOT_FOUND, name above all others; DBE_NO_STAT_GET, no db_get_trg_stat of
 * this task has succeeded yet. */
DB_API int16_t db_put_trg_stat(void *task, const char *name, const void *status);

/* Takes `elapsed` off the counter (u16 in bytes 0 and 1 of the status) of each target;
 * a counter that runs out is cleared together with byte 2.  DBE_OK. */
DB_API int16_t db_time_trg_stat(void *task, uint16_t elapsed);

/* Writes the name of a target's server (its own for a target without one) to server,
 * 64 bytes.  DBE_OK, DBE_NOT_FOUND. */
DB_API int16_t db_get_srv(void *task, const char *name, char *server);

/* ---- Change files -------------------------------------------------------
 *
 * Names: a db_cf_name of 76 bytes.
 *
 * The filter that db_start_list takes for DB_CAT is such a name whose tokens may hold
 * wildcards.  `*` alone in a token: one token or none.  `*` inside a token: the rest of
 * the name's token, whatever follows the `*`.  `?`: exactly one character.  A filter of
 * exactly ten tokens whose last ones hold `*` is the cheap form: neighbours in order of
 * names that differ only behind the first of these are listed for one of them.  A null
 * filter gives DBE_BAD_RECORD.
 *
 * db_init_list of DB_PRD and DB_FST takes a db_prd_key and a list state of 272 bytes; a
 * product id other than 0 limits filesets to those of that product.  DBE_NOT_FOUND, no
 * such change file; DBE_EMPTY_LIST, a `*` in the first token of its name. */

/* Place of a name in a list that db_start_list of DB_CAT filled: `list` holds `count`
 * entries of 4 bytes.  *index: the place of the name, or of the first one above it;
 * `count` when it is above all.  DBE_OK. */
DB_API int16_t db_find_cat_idx(void *task, const void *cf_name, const void *list, uint16_t count, uint16_t *index);

/* Class of a change file by one token of its name, whose index co_find_subtree finds:
 * 0 "FIX", 1 "UPD", 2 "REF", 3 any other, or no such token.  Takes no lock. */
DB_API int16_t db_get_type(void *task, const void *cf_name, uint16_t token_index);

/* ---- CM status ----------------------------------------------------------
 *
 * The state of a change file on a target; one pair is a DB_CMS record.  In lists, 15
 * stands for no status of a pair, 128 for the default status of one without a record.
 *
 * db_put: DBE_BAD_CMS_KEY for an unknown target or change file.  db_get: the names only
 * whole, of the rest what length allows; a default status needs 153 bytes, whatever
 * length is.  Each call that changes status changes both directions or neither, and is a
 * transaction of its own.  Status goes with its target when that is local; a change file
 * with status cannot be deleted.  It is kept by numbers: what is put for a target or a
 * change file that a roll-back takes back passes to the next owner of the number. */

/* Deletes the status of a change file on all targets, so that it can be deleted itself.
 * DBE_OK, also when there is none; DBE_IO_ERROR. */
DB_API int16_t db_del_cf_cms(void *task, const void *cf_name);

/* States of a change file on all targets: list[n] is that on target number n; list[0]
 * is 15.  length: bytes of the list, one more than the highest number a target can have,
 * which is the installation's limit, max_targets of DB_CFG; numbers beyond are left out.
 * DBE_OK; DBE_NOT_FOUND, no such change file; DBE_LIST_TOO_SMALL, fewer bytes than
 * targets with a status; DBE_IO_ERROR. */
DB_API int16_t db_cm_by_cat(void *task, const void *cf_name, uint8_t *list, uint32_t length);

/* States of all change files on a target, in no order: each u32 of the list holds the
 * number of a change file (cf_number of a db_cat_entry) times 256, plus its status.
 * length: bytes of the list.  *count: entries filled.  DBE_OK; DBE_NOT_FOUND, no such
 * target or no status; DBE_LIST_TOO_SMALL, the first *count of them; DBE_IO_ERROR. */
DB_API int16_t db_cm_by_trg(void *task, const char *target, uint32_t *list, uint32_t length, uint32_t *count);

/* ---- Requests -----------------------------------------------------------
 *
 * Identifiers: a db_rqr_id, the head of every record of requests.
 *
 * keys[0] of the generic calls is the identifier of the type alone (db_rqr_id and its kin
 * in zvrdb/records.h); the head of the record that is put is not looked at.  DB_RQV: a
 * record or buffer shorter than 10204 bytes carries no vector.  db_del of DB_RQF deletes
 * its correlator too.
 *
 * Filter of db_init_list: an identifier whose parts may be wild, a text "*", a number all
 * ones; a list state has 332 bytes.  Wild parts run from the end of the identifier's key
 * (src_domain, user, seq_no, recursion_no, subreq_id, then domain and target or rgn and
 * ren) without a gap.  The first of them may have a prefix before its "*" where it is
 * user, subreq_id, rgn or ren.  DB_RQD with domain alone exact, and DB_RQT with target
 * alone, list a destination: such a list goes on from the task's position in the file,
 * which other such lists and new records move; a position that leads back ends it.
 * DBE_EMPTY_LIST for any other filter, and for an unknown name. */

/* Reads the root record with the highest recursion number of a request.  When the
 * request has none, the next root record below it in key order is read, which may be
 * that of another user: compare the identifier.  As db_get; DBE_NOT_FOUND when there is
 * none below either. */
DB_API int16_t db_get_lst_rec(void *task, const void *identifier, void *record, uint16_t record_len);

/* Deletes a whole request, its root record and all below it, in one transaction, and then
 * the correlators of its functions in one of theirs: a kill or a failure between the two
 * leaves correlators without functions.  DBE_OK; DBE_NOT_FOUND, no root record;
 * DBE_IO_ERROR and the codes of db_del, with all records and correlators as they were. */
DB_API int16_t db_del_rq_tree(void *task, const void *identifier);

/* ---- Correlators --------------------------------------------------------
 *
 * record: a db_coo. */

/* Fills in the SNA correlator of the request identifier in the record, making and
 * storing one the first time.  The caller sets `origin`.
 * DBE_OK; DBE_NO_TARGET, src_domain is unknown; DBE_RECORD_REPLACED and the codes of
 * db_put after twenty attempts. */
DB_API int16_t db_reqid2corr(void *task, void *record);

/* Fills in the request identifier of the SNA correlator in the record, making one up for
 * a correlator from elsewhere: an empty user becomes "remuser", recursion_no 0, subreq_id
 * the date.  DBE_OK; DBE_NO_TARGET; the codes of db_put. */
DB_API int16_t db_corr2reqid(void *task, void *record);

/* ---- Record conversion ------------------------------------------------ */

/* Turns the stored form of a record into the caller's form.  external: the stored form,
 * key first; *external_len: in its bytes.  internal: the record, zeroed by the caller;
 * *internal_len: in its size.  Takes no lock; names behind numbers come from the tables
 * that the task's last call mapped, so a task without such a call gets
 * DBE_INIT_FAILED.  DBE_OK, DBE_BAD_RECORD, DBE_NO_TARGET, codes of a field. */
DB_API int16_t parse_keyed(void *task, uint32_t db_id, const void *external, void *internal, uint32_t *external_len,
                           uint32_t *internal_len);

/* For each db_id: how much of the record its key alone can fill, in bytes; 0 for types
 * without a keyed record. */
DB_API extern const uint32_t int_key_len[DB_TYPE_COUNT];

/* ---- Conversion of an older database ------------------------------------
 *
 * An older release kept the database under "db" as directories of text files, a binary
 * catalog and a directory of CM status files. db_mig_das converts all of it in place, in
 * stages: catalog, targets with their users, CM status, target groups, authorization, the
 * remote user. It may be called again after whatever end it had, a kill too: each stage
 * looks at what is there and is run, resumed or passed over. It holds both locks of the
 * installation from begin to end, SIGINT, SIGQUIT and SIGHUP with them; nothing else
 * should run meanwhile. Authorization and the remote user have no state of their own:
 * their records (both tables of access keys, the profiles ZVRUSER, ZVRBLD and ZVRADMN, the
 * user "remuser") are written anew by every call that comes so far.
 *
 * DBE_OK, or the code of the stage that failed; later stages are not run then.
 * DBE_IO_ERROR: a file, memory, or a state that cannot be gone on from (36388 logged for
 * the catalog, 36391 for CM status of a change file that the catalog has not, 36355 for
 * memory); DBE_MIGRATION; DBE_NO_TARGET: a group or a server link names no target;
 * DBE_TRANS_IN_PROGRESS: the task has a transaction open. */
DB_API int16_t db_mig_das(void *task);

enum { DB_MIG_DRY_RUN = 1 };
/* Stages, in their order. */
enum { DB_MIG_CATALOG, DB_MIG_TARGETS, DB_MIG_CM_STATUS, DB_MIG_GROUPS, DB_MIG_AUTHORIZATION, DB_MIG_REMOTE, DB_MIG_STAGES };
/* What an event tells. */
enum {
  DB_MIG_BEGIN = 1,    /* a stage begins; text: what it finds and will do, total: 0 when that is nothing */
  DB_MIG_PROGRESS = 2, /* done items of total */
  DB_MIG_NOTE = 3,     /* something was passed over or is odd; text: what, rc: number of the message that
                          was logged, or 0 */
  DB_MIG_COUNT = 4,    /* done: how many records of the kind that text names were converted */
  DB_MIG_END = 5       /* the stage has ended with rc */
};
/* Text of the count of targets that MAX TARGETS has no room for: they are not converted, and
 * their texts go with those of the others. */
#define DB_MIG_LEFT_OUT "targets left out"
typedef struct db_mig_event {
  uint32_t kind;
  uint32_t stage;
  uint32_t done;
  uint32_t total;
  int32_t rc;
  const char *text; /* null where none is told; stays for the time of the call only */
} db_mig_event;
typedef void (*db_mig_watcher)(void *context, const db_mig_event *event);
/* db_mig_das with someone watching (null: nobody). The watcher makes no calls of the
 * library. DB_MIG_DRY_RUN: everything is read and looked at as for the conversion, and
 * nothing is written; a stage that a conversion would fail in by what was read answers the
 * same code, and the following stages are looked at all the same. */
DB_API int16_t db_mig_watched(void *task, uint32_t options, db_mig_watcher watcher, void *context);

#ifdef __cplusplus
}
#endif
#endif
