// A record file of any bytes, and calls of the engine on it: each ends with a code.  A file
// that the check finds sound stays sound, and is left with the same bytes with a journal and
// without.
//
// Input: flags (1: with a journal), a file and a script as told in engine_script.h.
#include "engine/format.h"
#include "engine/journal.h"
#include "engine/os_file.h"
#include "engine_script.h"

namespace {

using namespace zvrfuzz;
using zvrdb::engine::journal_use;

constexpr char path[] = "/disk/fuzzed";

struct outcome {
  disk_bytes bytes;
  std::vector<int> results;
  bool closed;
};

outcome work(const disk_bytes& image, const std::string& script, journal_use journal) {
  mount_small_disk({{path, {image, 17}}});
  outcome result = {{}, {}, true};
  {
    engine_world world(path, journal);
    if (world.open()) world.run(script);
    world.close();
    result.results = world.results();
    result.closed = !world.failed_to_close();
  }
  FUZZ_EXPECT(zvrdb::test::disk_open_files() == 0);
  result.bytes = zvrdb::test::disk_now().at(path).bytes;
  zvrdb::engine::set_os_ops(nullptr);
  return result;
}

// The first full writing of the header clears its spare bytes; with a journal an operation
// that only moved the generation is none.
bool same_bytes(const disk_bytes& before, const disk_bytes& without, const disk_bytes& with) {
  if (without == with) return true;
  if (without.size() != with.size()) return false;
  for (std::size_t i = 0; i < without.size(); ++i) {
    const bool spare = i < zvrdb::engine::header_size && without[i] == 0 && with[i] == before[i];
    if (without[i] != with[i] && !spare) return false;
  }
  return true;
}

void tell_difference(const outcome& without, const outcome& with) {
  for (std::size_t i = 0; i < without.results.size() && i < with.results.size(); ++i)
    if (without.results[i] != with.results[i])
      std::fprintf(stderr, "result %zu: %d without a journal, %d with\n", i, without.results[i],
                   with.results[i]);
  for (std::size_t i = 0; i < without.bytes.size() && i < with.bytes.size(); ++i)
    if (without.bytes[i] != with.bytes[i]) {
      std::fprintf(stderr, "byte %zu of page %zu: %02x without a journal, %02x with\n", i % 1024, i / 1024,
                   without.bytes[i], with.bytes[i]);
      break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zvrdb::engine::checkpoint_at = 32 * 1024;
  zvrdb::engine::defer_to = 128 * 1024;
  fuzz_input input(data, size);
  const unsigned flags = input.u8();
  const file_from_input file = take_file(&input);
  const std::string script = take_script(&input).substr(0, 600);
  const bool sound = report_on(file.bytes);
  FUZZ_EXPECT(sound || file.changed);
  const journal_use journal = flags & 1 ? journal_use::on : journal_use::off;
  const outcome after = work(file.bytes, script, journal);
  const bool sound_after = report_on(after.bytes);
  if (!sound) return 0;
  if (!sound_after) report_on(after.bytes, true);
  FUZZ_EXPECT(sound_after && after.closed);
  if (journal == journal_use::off) return 0;
  const outcome without = work(file.bytes, script, journal_use::off);
  const bool alike = same_bytes(file.bytes, without.bytes, after.bytes);
  if (without.results != after.results || !alike) tell_difference(without, after);
  FUZZ_EXPECT(without.results == after.results);
  FUZZ_EXPECT(alike);
  return 0;
}
