// What the fuzzers of the engine share: record files made from a few bytes of input, and
// calls of the engine taken from it.
//
// A file:   a base (0 to 5: a made file, see base_image; else an empty one), the number of
//           changes, and that many changes: page, offset (2), count, so many bytes; page 255
//           cuts the file off at offset * 4
// A script: its length (2), and bytes: a call and its two arguments each
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/engine_handle.h"
#include "engine/memory_disk.h"
#include "fuzz_input.h"

namespace zvrfuzz {

using zvrdb::test::disk_bytes;

// 0 and 1 have a part of each kind, a lock and an interrupted transaction among them; 2 to 5
// are at rest, in both byte orders.  The same at each call.
const disk_bytes& base_image(unsigned base);

struct file_from_input {
  disk_bytes bytes;
  bool changed;  // is not as it was made
};
file_from_input take_file(fuzz_input* input);
void take_changes(fuzz_input* input, disk_bytes* bytes);
std::string take_script(fuzz_input* input);

// The memory disk, small and quick: what lies beyond 16 MiB is beyond its end, nobody waits,
// and random numbers are the same in each run.
void mount_small_disk(const zvrdb::test::disk_image& image);

// Two handles of one file, and the results of all calls made by them.  With ZVR_FUZZ_TELL in
// the environment each call is told with its result.
class engine_world {
 public:
  engine_world(std::string path, zvrdb::engine::journal_use journal);
  // Opens the first handle, as an administrator would: a standing flag is cleared, an
  // interrupted transaction undone.  False when it can't be opened.
  bool open();
  void run(const std::string& script);
  // Ends what is under way and closes both.
  void close();
  const std::vector<int>& results() const { return results_; }
  bool failed_to_close() const { return failed_to_close_; }

 private:
  int note(int result);
  void call(unsigned which, unsigned a, unsigned b);
  void find(unsigned key, unsigned option, unsigned i);
  void reopen(unsigned how);
  void close_handle(unsigned i);
  int read();
  zvrdb::test::handle& at_hand() { return handles_[hand_]; }
  zvrdb::engine::PSP* h() { return at_hand().get(); }

  std::string path_;
  zvrdb::engine::journal_use journal_;
  zvrdb::test::handle handles_[2];
  bool inside_ = false;  // a transaction
  bool reads_only_[2] = {};
  unsigned hand_ = 0;
  char telling_[64] = "";
  std::vector<int> results_;
  bool failed_to_close_ = false;
};

// Check, dump and summary of an image.  True when the deep check finds it sound and the
// light one does too; notes count as sound.
bool report_on(const disk_bytes& image, bool tell = false);

}  // namespace zvrfuzz
