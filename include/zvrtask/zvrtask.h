/* zvrtask: the shell that every program of the product starts with.
 *
 * A program is a task: a named body of code. It is linked from its own sources, which
 * define zvr_this_program, and the static library zvrtask, which holds main(). One
 * program file may carry several tasks: the name it is called by chooses.
 *
 *   static uint16_t copy(void *task, const char *name, int count, char **arguments);
 *   static const zvr_task_row tasks[] = {{"copier", copy, 0, NULL}, {"", NULL, 0, NULL}};
 *   static const zvr_load_row loads[] = {{"sorter", "/opt/product/bin/sorter"}, {"", NULL}};
 *   const zvr_program zvr_this_program = {tasks, loads, "Command line", __DATE__, __TIME__};
 *
 * Libraries: zvrtask, zvrco, the system's threads (pkg-config zvrtask).
 */
#ifndef ZVRTASK_H
#define ZVRTASK_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Bytes of a name with its NUL; what is longer than 11 characters is cut. */
#define ZVR_TASK_NAME 12u

/* Exit code of a program that could not be started: its name is not in the task table
 * (35854), or the common services refused. */
#define ZVR_EXIT_NOT_STARTED 99
/* Results of co_create_task beside 0. */
enum {
  ZVR_TASK_NOT_STARTED = 281, /* the program or the thread cannot be started: 35844 */
  ZVR_TASK_UNKNOWN = 288      /* no row of either table has the name: 35854 */
};

/* The body of a task. Its result is the task's result; as the exit code of a process the
 * system keeps the low 8 bits. */
typedef uint16_t (*zvr_task_entry)(void *task, const char *name, int argument_count, char **arguments);
/* Runs at the end of a process that does not come through its start-up. */
typedef void (*zvr_end_hook)(void);

/* A task of this program. The last row has an empty name. task_size is for systems
 * whose task blocks are sized by the program; the common services for Linux give every
 * task a block of the same size. */
typedef struct zvr_task_row {
  char name[ZVR_TASK_NAME];
  zvr_task_entry entry;
  uint32_t task_size;
  zvr_end_hook end_hook; /* may be null */
} zvr_task_row;

/* A separate program. The last row has an empty name. path is its program file, found
 * along PATH when it holds no '/'. Of the program "STS" (in any case) path is a command
 * line: program file and arguments, parted by blanks, a part with blanks in double
 * quotes. */
typedef struct zvr_load_row {
  char name[ZVR_TASK_NAME];
  const char *path;
} zvr_load_row;

typedef struct zvr_program {
  const zvr_task_row *tasks;
  const zvr_load_row *loads;
  const char *command_line_title; /* title of the program "orvo"; others are titled by name */
  const char *build_date;         /* "Dec 11 2000" */
  const char *build_time;         /* "23:34:09" */
} zvr_program;

/* Defined by the program. */
extern const zvr_program zvr_this_program;

/* The process entry, which main() of this library is: finds the task by the name that
 * the program was called by (what stands behind the last '/' or '\', its first 11
 * bytes, up to the first dot, in lower case), starts the common services, runs the task
 * and leaves the process with its result. Does not return. */
void zvr_run_program(int argument_count, char **arguments);

/* Runs the task of a row (from 0) of the task table on the calling thread, with `task`
 * for its handle, and keeps its result in the task block. 288, and nothing is run, when
 * there is no such row. */
uint16_t call_task(void *task, uint16_t task_index, int argument_count, char **arguments);

/* Starts a program of the load table or, if it has none of that name, a task of the task
 * table in a thread. 0, 281 or 288; nobody waits for what was started.
 *
 * A program: gets path and arguments[1] to arguments[argument_count - 1]; arguments[0],
 * if there is one, is set to path. "STS" gets its command line alone and is detached:
 * a session of its own, its standard streams closed off. An ended program is reaped.
 * A thread: gets at most six arguments, copied and cut to 19, 19, 64, 19, 19 and 19
 * bytes; a null one stays null. Its stack is of 256,000 bytes. */
uint16_t co_create_task(void *task, const char *name, int argument_count, char **arguments);

#ifdef __cplusplus
}
#endif
#endif
