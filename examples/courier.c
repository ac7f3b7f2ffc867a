/* Three tasks of one program. It is called by its name "courier", and by the name
 * "sorter" when it starts itself a second time as a program of its load table:
 *
 *   courier   the command: starts the other two, waits for their words, prints them
 *   carrier   a thread of the same process, a row of the task table
 *   sorter    a program of its own, a row of the load table
 *
 * Each answers through a pipe whose number it is given as an argument.
 *
 *   cc -std=c99 -D_GNU_SOURCE courier.c -o courier $(pkg-config --cflags --libs zvrtask zvrdb)
 *   ln -s courier sorter && ORVO_PATH=/srv/zvr PATH=.:$PATH ./courier OSLO
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#include <zvrdb/zvrdb.h>
#include <zvrtask/zvrtask.h>

static void answer(const char *descriptor, const char *name, const char *target, void *task) {
  char line[160];
  uint32_t number = 0;
  const int16_t rc = db_get_trg_index(task, target, &number);
  const int length =
      rc == DBE_OK          ? snprintf(line, sizeof line, "%s: %s is target %u\n", name, target, (unsigned)number)
      : rc == DBE_NO_TARGET ? snprintf(line, sizeof line, "%s: %s: no such target\n", name, target)
                            : snprintf(line, sizeof line, "%s: %s: code %d, see log/messages.log\n", name, target, rc);
  const int out = atoi(descriptor);
  if (write(out, line, (size_t)length) != (ssize_t)length) perror(name);
  close(out);
}

/* Body of carrier and sorter: arguments are name, descriptor, target. */
static uint16_t look_up(void *task, const char *name, int count, char **arguments) {
  if (count < 3) return 2;
  answer(arguments[1], name, arguments[2], task);
  return 0;
}

/* Starts `helper` and prints what it says. The result of co_create_task. */
static uint16_t ask(void *task, const char *helper, char *target) {
  int ends[2];
  char descriptor[12];
  char self[ZVR_TASK_NAME];
  char *arguments[3];
  char text[512];
  ssize_t got;
  uint16_t rc;
  const int in_this_process = strcmp(helper, "carrier") == 0;
  if (pipe(ends) != 0) return 1;
  snprintf(descriptor, sizeof descriptor, "%d", ends[1]);
  snprintf(self, sizeof self, "%s", helper);
  arguments[0] = self;
  arguments[1] = descriptor;
  arguments[2] = target;
  rc = co_create_task(task, helper, 3, arguments);
  /* A thread closes the end itself, a program has one of its own. */
  if (rc != 0 || !in_this_process) close(ends[1]);
  while ((got = read(ends[0], text, sizeof text)) > 0) fwrite(text, 1, (size_t)got, stdout);
  fflush(stdout);
  close(ends[0]);
  return rc;
}

static uint16_t courier(void *task, const char *name, int count, char **arguments) {
  uint16_t rc;
  (void)name;
  if (count < 2) {
    fprintf(stderr, "usage: courier TARGET\n");
    return 2;
  }
  rc = ask(task, "carrier", arguments[1]);
  if (rc == 0) rc = ask(task, "sorter", arguments[1]);
  if (rc != 0) fprintf(stderr, "courier: the task was not started: %u\n", (unsigned)rc);
  return rc == 0 ? 0 : 1;
}

static const zvr_task_row tasks[] = {
    {"courier", courier, 0, NULL},
    {"carrier", look_up, 0, NULL},
    {"sorter", look_up, 0, NULL},
    {"", NULL, 0, NULL},
};

static const zvr_load_row loads[] = {
    {"sorter", "sorter"},
    {"", NULL},
};

const zvr_program zvr_this_program = {tasks, loads, "Courier", __DATE__, __TIME__};
