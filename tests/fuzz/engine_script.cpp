#include "engine_script.h"

#include <algorithm>
#include <array>
#include <map>

#include "engine/damaged_images.h"
#include "engine/file_report.h"
#include "engine/journal.h"
#include "engine/os_file.h"
#include "engine/scratch_folder.h"

namespace zvrfuzz {
namespace {

using namespace zvrdb::test;
namespace engine = zvrdb::engine;

constexpr std::uint64_t disk_end = 16 << 20;
constexpr unsigned bases = 6;
constexpr unsigned cut = 255;

engine::os_ops small_disk;
engine::os_ops disk_below;
std::uint64_t random_state = 0;

std::int64_t write_on_small_disk(int file, std::uint64_t offset, const void* from, std::size_t n) {
  return offset > disk_end || n > disk_end - offset ? -1 : disk_below.write_at(file, offset, from, n);
}

// Share modes, which the memory disk leaves out.
struct open_file {
  std::string path;
  engine::open_how how;
};
std::map<int, open_file> open_files;

bool exclude(const engine::open_how& one, const engine::open_how& other) {
  return one.deny_read || (one.deny_write && other.write);
}
int open_shared(const char* path, engine::open_how how) {
  for (const auto& [file, other] : open_files)
    if (other.path == path && (exclude(how, other.how) || exclude(other.how, how))) return -1;
  const int file = disk_below.open(path, how);
  if (file >= 0) open_files[file] = {path, how};
  return file;
}
int close_shared(int file) {
  open_files.erase(file);
  return disk_below.close(file);
}

std::uint64_t next_random() {
  return ++random_state * 0x9E3779B97F4A7C15U;
}

disk_bytes make_base(unsigned base) {
  const bool big = base % 2 == 1;
  switch (base / 2) {
    case 0:
      return image_of_all_parts(big, 300);
    case 1:
      return build_file(sample_recipe(big, 12, 300, 90)).bytes;
    default:
      return build_file(sample_recipe(big, 60)).bytes;
  }
}

sample_record record_of(unsigned a, unsigned b) {
  return sample(static_cast<int>(a % 64) + 1, b < 200 ? b : (b - 200) * 140);
}

// A value of a key of the samples, as a caller has it, in as many bytes as are looked at.
std::string key_of(unsigned key, const sample_record& r) {
  const auto bytes_of = [](const auto& number) {
    return std::string(reinterpret_cast<const char*>(&number), sizeof number);
  };
  switch (key) {
    case 1:
      return static_cast<char>(r.name.size()) + r.name;
    case 2:
      return r.group + '\0';
    case 3:
      return bytes_of(r.number);
    case 4:
      return bytes_of(r.small);
    default:
      return bytes_of(r.weight);
  }
}

constexpr char key_types[] = {0, 2, 'S', 3, 4, 7};

// The fields of the samples, each in an area of just the size that the engine may fill.
struct reading {
  guarded_bytes name{record_buffer}, group{60}, number{4}, small{2}, weight{8}, payload{record_buffer};
  engine::field list[7] = {
      {'B', 2, 'U', 0, 0, 1, 0, name.data()},   {'S', 'S', 'D', 0, 60, 2, 0, group.data()},
      {'L', 3, 'D', 0, 4, 3, 0, number.data()}, {'H', 4, 'D', 0, 2, 4, 0, small.data()},
      {'D', 7, 'D', 0, 8, 5, 0, weight.data()}, {'B', 'N', 'N', 0, 0, 0, 0, payload.data()},
      {'E', 'E', 'N', 0, 0, 0, 0, nullptr}};
  bool intact() const {
    return name.intact() && group.intact() && number.intact() && small.intact() && weight.intact() &&
           payload.intact();
  }
};

const std::string& report_path() {
  static const scratch_folder folder;
  static const std::string path = folder.file("image");
  return path;
}

bool header_fn(void*, const engine::file_header&) {
  return true;
}
bool entry_fn(void* context, const engine::dump_entry& entry) {
  FUZZ_EXPECT(entry.value.size() <= 256 && entry.data.size() <= 1024);
  return ++*static_cast<std::uint32_t*>(context) < 100000;
}

}  // namespace

const disk_bytes& base_image(unsigned base) {
  static const std::array<disk_bytes, bases + 1> images = [] {
    std::array<disk_bytes, bases + 1> all;
    for (unsigned i = 0; i < bases; ++i) all[i] = make_base(i);
    return all;
  }();
  return images[std::min(base, bases)];
}

void take_changes(fuzz_input* input, disk_bytes* bytes) {
  for (unsigned left = input->u8(); left > 0 && input->left() > 0; --left) {
    const std::size_t page = input->u8();
    const std::size_t offset = input->u16();
    if (page == cut) {
      bytes->resize(std::min(bytes->size(), offset * 4));
      continue;
    }
    const std::string change = input->bytes(input->u8());
    const std::size_t at = page * 1024 + offset;
    if (at + change.size() > bytes->size()) bytes->resize(at + change.size());
    std::copy(change.begin(), change.end(), bytes->begin() + static_cast<std::ptrdiff_t>(at));
  }
}

file_from_input take_file(fuzz_input* input) {
  const unsigned base = input->u8();
  file_from_input file = {base_image(base), false};
  take_changes(input, &file.bytes);
  file.changed = base < 2 || base >= bases || file.bytes != base_image(base);
  return file;
}

std::string take_script(fuzz_input* input) {
  const std::size_t length = input->u16();
  return input->bytes(length);
}

void mount_small_disk(const disk_image& image) {
  engine::set_os_ops(nullptr);
  mount_memory_disk(image);
  disk_below = small_disk = engine::os();
  open_files.clear();
  small_disk.open = open_shared;
  small_disk.close = close_shared;
  small_disk.write_at = write_on_small_disk;
  small_disk.wait = [](unsigned) {};
  small_disk.random = next_random;
  random_state = 0;
  engine::set_os_ops(&small_disk);
}

engine_world::engine_world(std::string path, engine::journal_use journal)
    : path_(std::move(path)), journal_(journal) {
  for (handle& one : handles_) one.journal = journal_;
}

int engine_world::note(int result) {
  // Nothing but the results of engine.h: a find's status, 0, or a negative number of the table.
  FUZZ_EXPECT(result <= 3 && result >= -302);
  static const bool tell = std::getenv("ZVR_FUZZ_TELL") != nullptr;
  if (tell) std::fprintf(stderr, "%s -> %d\n", telling_, result);
  results_.push_back(result);
  return result;
}

bool engine_world::open() {
  std::snprintf(telling_, sizeof telling_, "open");
  int result = note(at_hand().open(path_));
  if (result == engine::e_write_flag && note(engine::_bopen(h(), path_.c_str(), 'E', 2, journal_)) == 0) {
    note(engine::clrwrit(h()));
    note(engine::cclose(h()));
    if (engine::checkpsp(h()) == 'O') engine::abandon(h());
    result = note(at_hand().open(path_));
  }
  if (result != 0) return false;
  note(engine::csetfile(h(), 4));
  if (note(engine::transstat(h())) == engine::e_trans_interrupted)
    note(engine::transroll(h(), nullptr, 0, nullptr));
  return true;
}

void engine_world::run(const std::string& script) {
  for (std::size_t i = 0; i + 2 < script.size(); i += 3)
    call(static_cast<unsigned char>(script[i]), static_cast<unsigned char>(script[i + 1]),
         static_cast<unsigned char>(script[i + 2]));
}

void engine_world::find(unsigned key, unsigned option, unsigned i) {
  const auto value = exact_copy(key_of(key, record_of(i, 0)));
  note(engine::dfind(h(), static_cast<int>(key), value.get(), key_types[key], static_cast<int>(option)));
}

int engine_world::read() {
  reading fields;
  const int result = engine::dread(h(), fields.list);
  FUZZ_EXPECT(fields.intact() && fields.list[0].flen >= 0 && fields.list[5].flen >= 0);
  return result;
}

void engine_world::reopen(unsigned how) {
  constexpr char accesses[] = {'S', 'S', 'S', 'E', 'P', 'R'};
  if (engine::checkpsp(h()) == 'O') {
    note(engine::transend(h(), 1));
    inside_ = false;
    note(at_hand().close());
    if (engine::checkpsp(h()) == 'O') engine::abandon(h());
  }
  reads_only_[hand_] = how % 16 == 15;
  note(at_hand().open(path_, accesses[how % sizeof accesses], reads_only_[hand_] ? 1 : 2));
  note(engine::csetfile(h(), 4));
}

void engine_world::call(unsigned which, unsigned a, unsigned b) {
  constexpr const char* names[] = {"insert", "insert", "find",   "step",        "read",
                                   "update", "remove", "lock",   "unlock",      "begin",
                                   "end",    "roll",   "state",  "flush",       "level",
                                   "keyval", "reopen", "switch", "last status", "find and read"};
  std::snprintf(telling_, sizeof telling_, "handle %u: %s %u %u", hand_, names[which % 20], a, b);
  switch (which % 20) {
    case 0:
    case 1:
      note(at_hand().insert(record_of(a, b)));
      break;
    case 2:
      find(1 + a % 5, b % 6, a / 5);
      break;
    case 3:
      note(engine::dseq(h(), static_cast<int>(a % 17), static_cast<int>(b % 6)));
      break;
    case 4:
      note(read());
      break;
    case 5:
      note(at_hand().update(record_of(a, b)));
      break;
    case 6:
      note(at_hand().remove());
      break;
    case 7:
      note(engine::dlock(h()));
      break;
    case 8:
      note(engine::dunlock(h()));
      break;
    case 9:
      if (note(engine::transbeg(h(), static_cast<int>(a % 5), nullptr)) == 0) inside_ = true;
      break;
    case 10:
      if (note(engine::transend(h(), static_cast<int>(a % 5))) == 0) inside_ = false;
      break;
    case 11:
      if (note(engine::transroll(h(), nullptr, static_cast<int>(a % 8 == 0 ? b % 4 : 0), nullptr)) == 0)
        inside_ = a % 8 == 0 && b % 4 != 0;
      break;
    case 12:
      note(engine::transstat(h()));
      break;
    case 13:
      note(engine::dflush(h()));
      break;
    case 14:
      note(engine::csetfile(h(), static_cast<int>(a % 6)));
      break;
    case 15: {
      reading fields;
      guarded_bytes value(256);
      if (engine::dread(h(), fields.list) == 0)
        note(engine::dkeyval(h(), static_cast<int>(a % 7), fields.list, static_cast<int>(b % 8) - 1,
                             value.data()));
      FUZZ_EXPECT(value.intact());
      break;
    }
    case 16:
      reopen(a);
      break;
    case 17:
      // While one is in a transaction nobody else writes: the layer above sees to it.
      if (inside_) break;
      hand_ = 1 - hand_;
      if (engine::checkpsp(h()) != 'O') reopen(0);
      break;
    case 18:
      note(engine::last_status(h()));
      engine::current_record(h());
      break;
    default:
      find(1, a % 6, b);
      note(read());
  }
}

void engine_world::close_handle(unsigned i) {
  handle& one = handles_[i];
  if (engine::checkpsp(one) != 'O') return;
  note(engine::csetfile(one, 4));
  note(engine::transroll(one, nullptr, 0, nullptr));
  if (note(one.close()) != 0) failed_to_close_ = true;
  if (engine::checkpsp(one) == 'O') engine::abandon(one);
}

void engine_world::close() {
  std::snprintf(telling_, sizeof telling_, "close");
  bool settled = false;
  for (const bool writer : {false, true})
    for (unsigned i = 0; i < 2; ++i) {
      if (engine::checkpsp(handles_[i]) != 'O' || reads_only_[i] == writer) continue;
      close_handle(i);
      settled = writer;
    }
  // A reader that is the last to close leaves the header as it is, for the next writer.
  if (!settled && note(handles_[0].open(path_)) == 0) close_handle(0);
}

bool report_on(const disk_bytes& image, bool tell) {
  const std::string& path = report_path();
  write_file(path, image);
  const check_result deep = check_file(path, true);
  const check_result light = check_file(path, false);
  if (tell) std::fprintf(stderr, "%s\n", deep.text().c_str());
  // What the light check finds, the deep one does.
  FUZZ_EXPECT(deep.outcome != engine::report_outcome::sound ||
              light.outcome == engine::report_outcome::sound);
  std::string reason;
  std::uint32_t entries = 0;
  const engine::report_outcome dumped =
      engine::dump_file(path.c_str(), header_fn, entry_fn, &entries, &reason);
  engine::file_summary summary;
  const engine::report_outcome summed = engine::summarize_file(path.c_str(), &summary, &reason);
  const bool sound = deep.outcome == engine::report_outcome::sound;
  FUZZ_EXPECT(!sound || (dumped == deep.outcome && summed == deep.outcome));
  return sound;
}

}  // namespace zvrfuzz
