/* zvrco: the common services of the product, for Linux.
 *
 * Tasks, trace, message log, memory, named semaphores and shared memory, files,
 * common areas, identity and time.  Every program of the product may use them.
 *
 * An installation is a base directory (environment variable ORVO_PATH).  What its
 * processes share lives in one folder under /dev/shm, named from the device and
 * inode of the base directory.  One task is one thread of control: a task is used
 * on the thread that made it.
 *
 * Status results are 0 or a 16-bit code (CO_*); no operation throws.  A handle that is
 * null, ended (until 64 more tasks of the process have ended), or a parent's (in a forked
 * child) is answered with CO_BAD_ARGUMENT, null or 0, as are null pointers that must be
 * followed.  Buffers belong to the caller; a
 * returned text stays as long as a task of the process lives, if not told otherwise.
 *
 * Files of the base directory that these services read or write:
 *   orvo.cfg          base configuration (co_parse_config)
 *   users             authorization levels (co_get_uauth)
 *   hwfilter          names of hardware parameters left out of inventories
 *   messages/zvr.msg  texts in place of single messages of the product
 *   log/messages.log  the message log;  log/trace.log  trace lines
 * Environment: ORVO_PATH base directory; ZVR_TRACE trace word of this process ("all"
 * or a number); ZVR_TRACE_FILE where its trace lines go; ZVR_MESSAGES another message
 * file; ZVR_SYSLOG (not "0") sends messages to syslog too; LC_ALL, LC_COLLATE, LANG of
 * the process that makes the shared state fix the collation.
 */
#ifndef ZVRCO_H
#define ZVRCO_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define CO_API __attribute__((visibility("default")))
#define CO_PRINTF(fmt, args) __attribute__((format(printf, fmt, args)))

/* Results. */
enum {
  CO_OK = 0,
  CO_END_OF_DIR = 8199,      /* co_readdir: no further entry */
  CO_NOT_FOUND = 8449,       /* co_open: the file does not exist */
  CO_IO_ERROR = 8450,        /* a system call failed; errno is kept */
  CO_FILE_STATUS = 8457,     /* co_get_mod without a buffer: status block filled */
  CO_BAD_ARGUMENT = 8458,    /* null pointer, unknown handle, path too long */
  CO_NO_MEMORY = 8459,
  CO_FAILURE = 8464          /* the common services cannot work: no installation, foreign shared folder */
};

/* ---- Task and process ------------------------------------------------- */

/* The slots of a task block that belong to the request frame of zvrdb and to the
 * task stubs.  The block starts with them and is zeroed when made. */
typedef struct co_task_slots {
  void *dbr_tcb;    /* the frame's own block; set and cleared by the frame only */
  uint16_t task_rc; /* result of the task's body */
  uint16_t in_das;  /* 1 while the task is inside a database call */
} co_task_slots;

typedef void (*co_task_entry)(void *task);
typedef void (*co_exit_fn)(void *task, uint32_t reason);

/* Makes a task for the calling thread.  flag: 1 the main task of a command, 0 a
 * started task.  Attaches to the installation, which it sets up when this is its
 * first task.  name is cut to 31 characters; entry is not called.  A process can have
 * tasks of one installation at a time: ORVO_PATH is looked at again for its first task
 * after its last one ended.  Null when that fails; co_init_error tells why (text of this
 * thread, until its next try).
 * At exit() the tasks of the exiting thread end with reason 1; tasks of other threads,
 * and all of a killed process, go without their exit functions.
 * A forked child has no tasks: it makes its own, and cannot use its parent's. */
CO_API void *co_init_task(const char *name, co_task_entry entry, uint32_t flag);
CO_API const char *co_init_error(void);
/* Ends the task: calls its exit functions (last registered first), releases what
 * semaphores it still holds, gives its place in the registry back.  An exit function may
 * leave the program; ending its task again does nothing. */
CO_API void coi_term_task(void *task, uint32_t reason);
CO_API co_task_slots *co_slots(void *task);
/* fn(task, reason) runs when the task ends.  At most 16: CO_NO_MEMORY beyond. */
CO_API uint16_t co_reg_exit(void *task, co_exit_fn fn);
/* Records build date and time (at most 19 characters each) of a component in this
 * task, again in place of before.  At most 16 components: CO_NO_MEMORY beyond. */
CO_API uint16_t co_reg_version(void *task, uint32_t component, const char *date, const char *time);
/* Sleeps; co_test_delay_factor scales it. */
CO_API uint16_t co_delay(void *task, uint32_t milliseconds);
/* State of a signal (0 to 31) of the installation; it stays as it was last set. */
CO_API uint16_t co_get_signal(void *task, uint32_t number, uint32_t *value);
CO_API uint16_t co_set_signal(void *task, uint32_t number, uint32_t value);
/* Names the calling thread (15 characters show); task may be null. */
CO_API uint16_t co_set_title(void *task, const char *title);
/* Build date and time that co_reg_version recorded for a component in this task.
 * CO_NOT_FOUND when it recorded none. */
CO_API uint16_t co_version(void *task, uint32_t component, const char **date, const char **time);
/* Tells a failure of the start, when there is no task yet: formats to standard error. */
CO_API uint16_t co_init_log(uint32_t number, const char *format, ...) CO_PRINTF(2, 3);
/* Reads the names of hardware parameters that inventories leave out, one a line,
 * '#' comments, from "hwfilter" of the base directory; none when there is no file. */
#define CO_HARDWARE_NAME 81u
CO_API uint16_t co_read_hw_filter(void *task);
CO_API int co_hw_filtered(void *task, const char *name);

/* The registry of live tasks.  A place is taken from co_init_task to
 * coi_term_task and proved by a held kernel lock, never by a process number; its
 * incarnation rises each time the place is taken. */
#define CO_MAX_TASKS 1024u
typedef struct co_task_info {
  uint32_t place;       /* 0 to CO_MAX_TASKS - 1 */
  uint32_t incarnation; /* from 1 */
  int32_t process;      /* process number, for people only */
  char name[32];
} co_task_info;
CO_API uint32_t co_task_place(void *task);
CO_API uint32_t co_task_incarnation(void *task);
/* 1 when the task that took the place in that incarnation still lives. */
CO_API int co_task_alive(void *task, uint32_t place, uint32_t incarnation);
/* Fills at most max entries with the live tasks; the number of all of them. */
CO_API uint32_t co_live_tasks(void *task, co_task_info *out, uint32_t max);

/* Console events.  Between co_hold_events and co_release_events SIGINT, SIGQUIT
 * and SIGHUP are held back and delivered at the release; nothing is held
 * otherwise.  Installed once per process at the first use; no system call after
 * that unless an event came.
 * An event goes to the handler that the program had when the guard was installed (at
 * the default one the process ends); it is held while any task of the process is
 * inside, and comes once however often it was raised.  Limits: an event that the
 * program ignores stays ignored; a handler that the program installs later replaces
 * the guard for its signal, which is then not held. */
CO_API void co_hold_events(void *task);
CO_API void co_release_events(void *task);

/* ---- Trace ------------------------------------------------------------ */

/* The live control word: bit (level, 0 to 7) is on for component 2, bit 8 for level 0
 * component 39; any other pair is off.  Never null: points at a private zero before the
 * first task. */
CO_API extern const volatile uint32_t *co_trace_word;
static inline uint32_t co_trc_test(void *task, uint32_t level, uint32_t component) {
  uint32_t word = *co_trace_word;
  (void)task;
  if (word == 0u) return 0u;
  if (component == 2u && level < 8u) return (word >> level) & 1u;
  return component == 39u && level == 0u ? (word >> 8) & 1u : 0u;
}
/* Writes one line of at most 2047 bytes: time, process, task, level/component, function,
 * text; control characters become blanks. */
CO_API void co_trc2(void *task, uint32_t level, uint32_t component, const char *function, const char *format, ...)
    CO_PRINTF(5, 6);
/* Sets the control word of the installation, for all its processes but those that
 * were started with ZVR_TRACE. */
CO_API uint16_t co_set_trace(void *task, uint32_t word);

/* ---- Message log ------------------------------------------------------ */

/* Logs a numbered message.  format describes the inserts as fields joined by '|'
 * ("", "%s", "%hd", "%s|%ld", ...), at most nine; the three zeros are always zero.  A
 * line of the log: time, process, task, ZVR, number, severity (I, W, E), text.  A
 * number without text is logged with its inserts. */
CO_API uint16_t co_log2(void *task, uint32_t number, uint32_t zero1, uint32_t zero2, uint32_t zero3,
                        const char *format, ...) CO_PRINTF(6, 7);
#define CO_MESSAGE_BUFFER 147u
#define CO_MESSAGE_PREFIX 19u
/* With out: logs nothing, renders the message into out (CO_MESSAGE_BUFFER bytes):
 * a fixed prefix of CO_MESSAGE_PREFIX bytes (ZVR, number, severity, blanks), then the
 * text, cut to its room, with its NUL.  Without: as co_log2. */
CO_API uint16_t co_log2_notest(void *task, uint32_t number, char *out, uint32_t zero1, uint32_t zero2,
                               const char *format, ...) CO_PRINTF(6, 7);
/* Text of a message of the message file, with its %1 %2 ... places, or null. */
CO_API const char *co_message_text(void *task, uint32_t number);
/* Path of the log that messages of this installation go to. */
CO_API const char *co_log_path(void *task);

/* ---- Memory ----------------------------------------------------------- */

enum { CO_MEM_PRIVATE = 1, CO_MEM_SHARED = 2 };
/* Zero-filled memory.  CO_MEM_SHARED: the named segment of the installation,
 * attached if it exists and at least size bytes long, created otherwise; null when
 * it exists and is shorter.  A segment is mapped once a process, however many of
 * its tasks ask.  Names are of letters, digits and '_', at most 63.  Private memory that
 * is left over, and segments, are given back when the task ends. */
CO_API void *co_malloc(void *task, uint32_t size, uint32_t kind, const char *tag);
/* Frees private memory of this task, or gives this task's use of a segment back (its
 * name stays); caller is for traces.  Null is allowed. */
CO_API void co_free_int(void *task, void *address, const char *caller);
/* Address of the named segment in this process, mapped if need be; null when
 * there is none. */
CO_API void *co_shmfind(void *task, const char *name);
/* Bytes of the named segment, 0 when there is none. */
CO_API uint64_t co_shmlen(void *task, const char *name);
/* Lets go of a segment that this task holds an address of.  When nobody else, in
 * any process, still has it mapped and it is not the one named in keep, its name
 * is removed. */
CO_API void co_shm_letgo(void *task, void *address, const char *keep);
/* Removes every segment but the one named in keep that no process has mapped. */
CO_API void co_shm_sweep(void *task, const char *keep);

/* ---- Semaphores ------------------------------------------------------- */

/* Finds or makes the semaphore (name of 1 to 31 characters) and stores a handle that
 * is not 0.  CO_NO_MEMORY beyond 32 names, CO_FAILURE when the shared folder is gone. */
CO_API uint16_t co_open_sema4(void *task, const char *name, uint32_t *handle, uint32_t zero, uint32_t one);
/* Waits until this task owns it; a second request by the owner succeeds and is
 * not counted.  An owner that died hands it on.  CO_FAILURE when another task of the
 * same thread owns it (waiting would be for ever). */
CO_API uint16_t co_req_sema4(void *task, uint32_t handle, uint32_t zero);
/* Takes it only if that needs no wait: 1 taken (or owned already), 0 not. */
CO_API int co_try_sema4(void *task, uint32_t handle);
/* Releases it; nothing happens (0) when this task is not the owner.  CO_FAILURE on
 * another thread than the one that took it. */
CO_API uint16_t co_clear_sema4(void *task, uint32_t handle);
/* Non-zero when this task owns it; takes nothing. */
CO_API uint16_t co_lock_sema4(void *task, uint32_t handle);
/* The mark "in a transaction", kept beside the semaphore; written by the owner. */
CO_API void co_mark_sema4(void *task, uint32_t handle, uint32_t mark);
/* What the death of an owner left, asked and cleared by the present owner:
 * 0 nobody died, 1 an owner died, 2 an owner died with the mark set.  What was asked for
 * is forgotten when the asker releases the semaphore: should it die before, the next
 * owner is told the same. */
CO_API uint32_t co_sema4_death(void *task, uint32_t handle);

/* ---- Files and directories -------------------------------------------- */

#define CO_PATH_MAX 256u
enum {
  CO_OPEN_READ = 0x8000000,     /* existing file, reading */
  CO_OPEN_REPLACE = 0x8001301,  /* create or truncate, writing */
  CO_OPEN_OLD_TEXT = 0x8000100, /* existing file, reading (older database) */
  CO_OPEN_OLD = 2               /* existing file, reading (older database) */
};
/* Paths are NUL-terminated and shorter than CO_PATH_MAX (else CO_BAD_ARGUMENT), absolute
 * or of the process's working directory.  CO_NOT_FOUND: there is no such file or a
 * directory on the way is missing; CO_IO_ERROR: any other failure.  A handle is not 0. */
CO_API uint16_t co_open(void *task, const char *path, uint32_t flags, uint32_t *handle);
/* *length in: bytes wanted; out: bytes read, less only at the end of the file. */
CO_API uint16_t co_read(void *task, uint32_t handle, void *buffer, uint32_t *length);
/* Writes all of it or fails. */
CO_API uint16_t co_write(void *task, uint32_t handle, const void *buffer, uint32_t length);
CO_API uint16_t co_fsync(void *task, uint32_t handle);
CO_API uint16_t co_close(void *task, uint32_t handle);
/* Goes to the start; *out (may be null) is 0. */
CO_API uint16_t co_lseek(void *task, uint32_t handle, uint32_t zero1, uint32_t zero2, uint32_t *out);
CO_API uint16_t co_remove(void *task, const char *path, uint32_t flag);
CO_API uint16_t co_rename(void *task, const char *from, const char *to, uint32_t one);
CO_API uint16_t co_mkdir(void *task, const char *path);
CO_API uint16_t co_rmdir(void *task, const char *path);
/* At most 64 directories are open in a process: CO_NO_MEMORY beyond.  co_readdir gives
 * bare names, "." and ".." too, then CO_END_OF_DIR; size is that of name. */
CO_API uint16_t co_opendir(void *task, const char *path, uint32_t *handle, uint32_t one);
CO_API uint16_t co_readdir(void *task, uint32_t *handle, char *name, uint32_t size);
CO_API uint16_t co_closedir(void *task, uint32_t *handle);
/* stamp: 8 bytes, the time of the last change in nanoseconds (may be null); status: 14
 * bytes are filled (seconds of the last change u64 at 0, size u32 at 8, attributes at
 * 13, bit 0x40 marks an entry that listings skip: directories and names with a leading
 * dot).  CO_FILE_STATUS without a buffer, 0 with one, CO_NOT_FOUND, CO_IO_ERROR. */
#define CO_STATUS_BLOCK 16u
CO_API uint16_t co_get_mod(void *task, const char *path, void *stamp, void *buffer, void *status);
/* Gives a file the default access: owner and group read and write. */
CO_API uint16_t co_dflt_mod(void *task, const char *path, uint32_t one);

/* ---- Names and strings ------------------------------------------------ */

#define CO_SEPARATOR '/'
/* Base directory without a separator at its end; buffer of CO_PATH_MAX bytes. */
CO_API uint16_t co_get_orvo_path(void *task, char *buffer, uint32_t zero);
/* Appends name to directory behind one separator, in place when out is null; size is
 * that of the result's buffer.  CO_BAD_ARGUMENT, and nothing written, when too long. */
CO_API uint16_t co_build_objname(void *task, char *directory, const char *name, char *out, uint32_t size);
/* Path (CO_PATH_MAX bytes) of the temporary file for a replacement of target, a path
 * below the base directory: BASE/db/tmp/t<class><e or n>_<escaped path>, 'e' when the
 * target exists.  sem_index 0 to 9.  CO_BAD_ARGUMENT for other paths and too long ones.
 * co_db_get_name takes a bare name apart: 1 and the target's path (CO_PATH_MAX bytes)
 * and *existed for a name of that class, otherwise 0 and nothing written.  Both need a
 * task in the process. */
CO_API uint16_t co_db_get_tmpnam(const char *target, char *temporary, uint16_t sem_index, uint16_t exists);
CO_API int co_db_get_name(char *target, const char *entry, uint16_t sem_index, uint16_t *existed);
/* Dotted form (buffer of CO_DOTTED_NAME bytes) of a change file name: 76 bytes, 11 token
 * offsets and 65 bytes of text, in which a token ends at its NUL or with the name.  The
 * offset 255 ends the name; one of 65 to 254 is no token and is passed over.  A dot
 * inside a token is written with a backslash before it. */
#define CO_DOTTED_NAME 144u
CO_API void co_glob_to_dot(void *task, char *out, const void *in);
/* Index in the table (0 to 10) of the first token that is "REF", "UPD" or "FIX" of such a
 * name, 255 when there is none. */
CO_API uint8_t co_find_subtree(void *task, const void *name);
/* "domain.user.sequence.recursion.function" (buffer of CO_REQUEST_TEXT bytes) of a request
 * identifier; its first 104 bytes are read. */
#define CO_REQUEST_TEXT 128u
CO_API void co_bld_reqid(void *task, const void *request_key, char *out);
/* Steps by characters of the installation's locale; what is no character counts as one
 * byte.  co_next_char stays at the NUL, co_prev_char at start; co_mblen of the NUL is 0. */
CO_API const char *co_next_char(void *task, const char *position);
CO_API const char *co_prev_char(void *task, const char *start, const char *position);
CO_API int co_mblen(void *task, const char *position);
CO_API void co_strip_trailing_blanks(void *task, char *text);
/* Order of two names under the collation of the installation, which was fixed
 * when its shared state was made. */
CO_API int co_collate(void *task, const char *a, const char *b);
CO_API const char *co_collation_name(void *task);

/* ---- Common areas ----------------------------------------------------- */

enum {
  CO_AREA_CONFIG = 1,        /* base configuration record, 4640 bytes */
  CO_AREA_LOCAL_TARGET = 2,  /* name of the local target, 64 bytes and a NUL */
  CO_AREA_DBR_CNTL = 3,      /* the shared control block of zvrdb */
  CO_AREA_TARGET_KEYS = 13,  /* u32 loaded flag, 2432 bytes */
  CO_AREA_DEFAULT_KEYS = 14, /* the same */
  CO_AREA_FOCAL_POINTS = 24, /* u32, u32 count, CO_FOCAL_CAPACITY entries of 80 bytes */
  CO_AREA_LEDGER = 40        /* open files by task (zvrdb): which use counts a dead task left */
};
#define CO_CONFIG_LENGTH 4640u
#define CO_FOCAL_CAPACITY 65535u
#define CO_AREA_DBR_CNTL_SIZE (1024u * 1024u)
#define CO_AREA_LEDGER_SIZE (256u * 1024u)
/* Address of common area n, the same memory for all tasks of the installation,
 * zero before anyone has written it; null for an unknown n. */
CO_API void *co_croca(void *task, uint32_t n);
/* Reads "orvo.cfg" of the base directory anew into area 1 and its workstation name
 * into area 2. */
/* Codes: CO_BAD_ARGUMENT for a faulty file (co_init_error tells line and reason; nothing
 * is changed), CO_FAILURE. */
CO_API uint16_t co_reload_config(void *task);
/* Parses the text of an "orvo.cfg" (NUL-terminated) into a record of CO_CONFIG_LENGTH
 * bytes, which the caller zeroed.  Lines "KEYWORD: value" in any order, '#' comments;
 * numbers decimal, 0x.. or 0..; blanks around a value are not its own; a text may fill
 * its field and has no NUL then; a SERVER line without a name is passed over; a missing
 * FILE PATH is ".\\" (3 bytes).  On a fault: CO_BAD_ARGUMENT, *line (from 1) and reason
 * tell it; what was read so far stays. */
CO_API uint16_t co_parse_config(const char *text, void *record, uint32_t *line, char *reason, uint32_t reason_size);
/* Changes the local target's name (at most 63 bytes) in areas 2 and 1, not in the file. */
CO_API uint16_t co_set_target(void *task, const char *name);

/* ---- Identity and time ------------------------------------------------ */

/* Name of the local target; buffer of 65 bytes. */
CO_API uint16_t co_get_target(void *task, char *out, uint32_t zero);
/* Level of a user: by the file "users" (lines "user level [target]", level 0 to 253 or
 * "none", '#' comments; the line with this target comes before the one without), else
 * by the highest of the system's groups zvradm 2, zvrbld 1, zvrusr 0.  254 not
 * authorized ("none"), 255 unknown user.  target may be null.  CO_IO_ERROR and 255 when
 * there is a file "users" that cannot be read. */
CO_API uint16_t co_get_uauth(void *task, const char *user, const char *target, uint16_t *level);
typedef struct co_date { uint16_t year; uint8_t month; uint8_t day; } co_date;
typedef struct co_time { uint8_t hour; uint8_t minute; uint8_t second; uint8_t hundredth; } co_time;
/* Local date and time; either may be null. */
CO_API void co_date_time(void *task, co_date *date, co_time *time);
/* Days from b to a by the civil calendar, kept within 16 bits. */
CO_API int16_t co_date_diff(void *task, const co_date *a, const co_date *b);

/* ---- The shared state as a whole -------------------------------------- */

/* The folder of the installation's shared state. */
CO_API const char *co_shared_folder(void *task);
/* 0 when dropped or absent; co_init_error tells the reason of CO_FAILURE.
 * Drops the shared state of the installation at base (or ORVO_PATH when null) if no
 * task of it lives.  CO_FAILURE when some do: at most max of them are told in
 * out, *count of them in all. */
CO_API uint16_t co_reset(const char *base, co_task_info *out, uint32_t max, uint32_t *count);

/* ---- Seams for tests -------------------------------------------------- */

/* Delays last milliseconds * numerator / denominator; (1, 1) is the rule. */
CO_API void co_test_delay_factor(uint32_t numerator, uint32_t denominator);
/* Milliseconds asked of co_delay by this process so far, before scaling. */
CO_API uint64_t co_test_delayed(void);
/* A clock that stands at this moment for this process; null lets it run again. */
CO_API void co_test_set_clock(const co_date *date, const co_time *time);
/* The allocation after n more fails, once; negative: none. */
CO_API void co_test_fail_malloc(int32_t n);
/* Asked before each step of this process that changes files: "open" (of co_open for
 * writing), "write", "fsync", "close", "remove", "rename", "mkdir", "rmdir"; path is null
 * for the steps on a handle.  An answer other than 0 is the step's result, and it is not
 * done (a "close" is done all the same).  The function may end the process.  Null:
 * nobody is asked. */
typedef uint16_t (*co_test_step_fn)(const char *step, const char *path);
CO_API void co_test_file_steps(co_test_step_fn ask);

#ifdef __cplusplus
}
#endif
#endif
