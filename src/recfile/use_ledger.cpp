#include "recfile/use_ledger.h"

#include <atomic>

#include "engine/planted_fault.h"
#include "memory/trace.h"
#include "recfile/recfile.h"

namespace zvrdb::recfile {
namespace {

struct ledger_row {
  std::uint32_t incarnation;  // of the task that the bits belong to
  std::uint32_t open_files;   // bit a file index
};

// A change of one count, complete in itself, so that doing it twice does no harm.
struct ledger_step {
  std::uint32_t file;
  std::uint32_t use_count;
  std::uint32_t place;
  ledger_row row;
};

struct use_ledger {
  std::uint32_t step_written;  // 1 while `step` may not be done yet
  ledger_step step;
  ledger_row rows[CO_MAX_TASKS];
};
static_assert(sizeof(use_ledger) <= CO_AREA_LEDGER_SIZE);

use_ledger* ledger_of(void* task) {
  return static_cast<use_ledger*>(co_croca(task, CO_AREA_LEDGER));
}
DBR_CNTL* cntl_of(void* task) {
  return static_cast<DBR_CNTL*>(co_croca(task, CO_AREA_DBR_CNTL));
}

void do_step(DBR_CNTL* cntl, use_ledger* ledger) {
  const ledger_step step = ledger->step;
  if (step.file < file_count && step.place < CO_MAX_TASKS) {
    cntl->files[step.file].use_count = static_cast<std::uint16_t>(step.use_count);
    ledger->rows[step.place] = step.row;
  }
  std::atomic_ref(ledger->step_written).store(0, std::memory_order_release);
}

void finish_step(DBR_CNTL* cntl, use_ledger* ledger) {
  if (std::atomic_ref(ledger->step_written).load(std::memory_order_acquire) == 1) do_step(cntl, ledger);
}

void take_step(DBR_CNTL* cntl, use_ledger* ledger, const ledger_step& step) {
  ledger->step = step;
  std::atomic_ref(ledger->step_written).store(1, std::memory_order_release);
  do_step(cntl, ledger);
}

std::uint32_t lowered(std::uint16_t count) {
  return count == 0 ? 0u : count - 1u;
}

// Takes back all counts of one row.
void give_back_row(DBR_CNTL* cntl, use_ledger* ledger, std::uint32_t place) {
  for (unsigned file = 0; file < file_count; ++file) {
    const ledger_row row = ledger->rows[place];
    const std::uint32_t bit = 1u << file;
    if ((row.open_files & bit) == 0) continue;
    const std::uint16_t count = cntl->files[file].use_count;
    const std::uint32_t left = engine::planted(engine::planted_fault::use_count_leaked) ? count : lowered(count);
    take_step(cntl, ledger,
              {file, left, place, {row.incarnation, row.open_files & ~bit}});
  }
}

// This task's row; bits that an earlier task at the same place left are taken back.
ledger_row own_row(DBR_CNTL* cntl, use_ledger* ledger, std::uint32_t place, std::uint32_t incarnation) {
  if (ledger->rows[place].incarnation != incarnation) {
    give_back_row(cntl, ledger, place);
    return {incarnation, 0};
  }
  return ledger->rows[place];
}

void count(void* task, unsigned index, bool open) {
  DBR_CNTL* cntl = cntl_of(task);
  use_ledger* ledger = ledger_of(task);
  const std::uint32_t place = co_task_place(task);
  if (!ledger || place >= CO_MAX_TASKS) {
    std::uint16_t& use_count = cntl->files[index].use_count;
    use_count = static_cast<std::uint16_t>(open ? use_count + 1u : lowered(use_count));
    return;
  }
  finish_step(cntl, ledger);
  ledger_row row = own_row(cntl, ledger, place, co_task_incarnation(task));
  const std::uint32_t bit = 1u << index;
  row.open_files = open ? row.open_files | bit : row.open_files & ~bit;
  const std::uint16_t now = cntl->files[index].use_count;
  take_step(cntl, ledger, {index, open ? now + 1u : lowered(now), place, row});
}

}  // namespace

void count_open(void* task, unsigned index) {
  count(task, index, true);
}
void count_close(void* task, unsigned index) {
  count(task, index, false);
}

std::uint32_t known_users(void* task, unsigned index) {
  const use_ledger* ledger = ledger_of(task);
  if (!ledger) return 0;
  std::uint32_t users = 0;
  for (const ledger_row& row : ledger->rows) users += row.open_files >> index & 1u;
  return users;
}

void reap_dead_use_counts(void* task) {
  const trace_bracket bracket(task, __func__);
  DBR_CNTL* cntl = cntl_of(task);
  use_ledger* ledger = ledger_of(task);
  if (!cntl || !ledger) return;
  finish_step(cntl, ledger);
  for (std::uint32_t place = 0; place < CO_MAX_TASKS; ++place) {
    const ledger_row row = ledger->rows[place];
    if (row.open_files == 0 || co_task_alive(task, place, row.incarnation)) continue;
    ZVR_TRACE(task, 4, 2, "Taking back use counts of dead task at place %lu",
              static_cast<unsigned long>(place));
    give_back_row(cntl, ledger, place);
  }
}

}  // namespace zvrdb::recfile
