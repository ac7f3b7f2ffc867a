// The commit journal: work with it is killed or loses power anywhere, then bytes of journal
// and record file are changed, and the file is opened again.
//
// Input: flags; a base (see engine_script.h); a script of work; how far it came, in 65536ths
// of its writes (2); what a power cut does to them (0: it was a kill); changes to the journal,
// then to the record file; calls behind the repair.
//   flags 1 the changed groups get sound checksums   2 the record file is another one of the name
//         4, 8 how long the journal may become
#include <algorithm>
#include <map>
#include <random>

#include "engine/crc32c.h"
#include "engine/format.h"
#include "engine/journal.h"
#include "engine/os_file.h"
#include "engine_script.h"

namespace {

using namespace zvrfuzz;
using namespace zvrdb::test;
namespace engine = zvrdb::engine;
using records = std::map<std::string, sample_record>;

constexpr char path[] = "/disk/file";
constexpr char journal_path[] = "/disk/file.jnl";
constexpr std::size_t short_journal = 64 * 1024;

struct prepared {
  disk_image image;
  records content;
};

bool read_all(handle* h, records* out) {
  int found = engine::dseq(*h, 1, engine::seq_first);
  for (int i = 0; found == 0 && i < 500; ++i, found = engine::dseq(*h, 1, engine::seq_next)) {
    sample_record r;
    if (h->read(&r) != 0) return false;
    (*out)[r.name] = r;
  }
  return found == engine::e_not_found;
}

// A file at rest with its journal beside it, which is cut short: it grows when it must.
const prepared& start_of(unsigned base) {
  static std::map<unsigned, prepared> all;
  auto [at, is_new] = all.try_emplace(2 + base % 4);
  if (!is_new) return at->second;
  engine::checkpoint_at = engine::journal_size;
  mount_small_disk({{path, {base_image(at->first), 5000}}});
  {
    handle h;
    h.journal = engine::journal_use::on;
    FUZZ_EXPECT(h.open_for_work(path) == 0 && h.insert(sample(99)) == 0);
    FUZZ_EXPECT(read_all(&h, &at->second.content) && h.close() == 0);
  }
  at->second.image = disk_now();
  at->second.image.at(journal_path).bytes.resize(short_journal);
  return at->second;
}

// What the file must hold after a crash, from an event on.
struct milestone {
  std::size_t events;
  records state;
};

class work {
 public:
  explicit work(const records& start) : now_(start), committed_(start) {
    h_.journal = engine::journal_use::on;
    FUZZ_EXPECT(h_.open_for_work(path) == 0);
    milestones.push_back({0, committed_});
  }
  void run(const std::string& script) {
    for (std::size_t i = 0; i + 2 < script.size(); i += 3)
      call(static_cast<unsigned char>(script[i]), static_cast<unsigned char>(script[i + 1]),
           static_cast<unsigned char>(script[i + 2]));
  }
  void close() {
    if (inside_) roll_back();
    FUZZ_EXPECT(h_.close() == 0);
  }
  std::vector<milestone> milestones;

 private:
  void call(unsigned which, unsigned a, unsigned b) {
    const sample_record r = sample(static_cast<int>(a % 64) + 1, b < 200 ? b : (b - 200) * 60);
    switch (which % 6) {
      case 0:
        FUZZ_EXPECT(h_.insert(r) == (now_.contains(r.name) ? engine::e_not_found : 0));
        now_.emplace(r.name, r);
        break;
      case 1:
        FUZZ_EXPECT((h_.find_name(r.name) == 0) == now_.contains(r.name));
        if (!now_.contains(r.name)) break;
        FUZZ_EXPECT(h_.update(r) == 0);
        now_[r.name] = r;
        break;
      case 2:
        FUZZ_EXPECT((h_.find_name(r.name) == 0) == now_.contains(r.name));
        if (!now_.contains(r.name)) break;
        FUZZ_EXPECT(h_.remove() == 0);
        now_.erase(r.name);
        break;
      case 3:
        if (inside_) break;
        FUZZ_EXPECT(engine::transbeg(h_, 3, nullptr) == 0);
        inside_ = true;
        break;
      case 4:
        if (!inside_) break;
        if (a % 2) {
          FUZZ_EXPECT(engine::transend(h_, 1) == 0);
          inside_ = false;
        } else {
          roll_back();
        }
        break;
      default:
        FUZZ_EXPECT(engine::dflush(h_) == 0);
    }
    if (!inside_) committed_ = now_;
    milestones.push_back({disk_events().size(), committed_});
  }
  void roll_back() {
    FUZZ_EXPECT(engine::transroll(h_, nullptr, 0, nullptr) == 0);
    inside_ = false;
    now_ = committed_;
  }

  handle h_;
  records now_, committed_;
  bool inside_ = false;
};

disk_image crash(const disk_image& start, std::size_t events, unsigned power_cut) {
  if (power_cut == 0) return after_kill(start, disk_events(), events);
  std::mt19937 coin(power_cut);
  std::map<std::size_t, write_fate> fates;
  for (const std::size_t i : undecided_writes(disk_events(), events))
    fates[i] = static_cast<write_fate>(coin() % 3);
  return after_power_cut(start, disk_events(), events, fates, &coin);
}

// CRC and forerunner of the head and of every group that is there at all.
void mend_checksums(disk_bytes* bytes) {
  const auto crc_of = [&](std::size_t at, std::size_t length, std::size_t field) {
    engine::store_le32(bytes->data() + at + field, 0);
    const std::uint32_t crc = engine::crc32c(0, bytes->data() + at, length);
    engine::store_le32(bytes->data() + at + field, crc);
    return crc;
  };
  if (bytes->size() < engine::journal_groups) return;
  engine::store_le32(bytes->data() + 508, 0);
  std::uint32_t chain = engine::crc32c(0, bytes->data(), 508);
  engine::store_le32(bytes->data() + 508, chain);
  for (std::size_t at = engine::journal_groups; at + engine::group_head_size <= bytes->size();) {
    const std::size_t length = engine::load_le32(bytes->data() + at + 4);
    if (std::memcmp(bytes->data() + at, "ZVRG", 4) != 0 || length < engine::group_head_size ||
        length > bytes->size() - at)
      return;
    engine::store_le32(bytes->data() + at + 44, chain);
    chain = crc_of(at, length, 60);
    at += (length + engine::journal_sector - 1) / engine::journal_sector * engine::journal_sector;
  }
}

bool is_any(const std::vector<milestone>& milestones, const records& found) {
  return std::any_of(milestones.begin(), milestones.end(),
                     [&](const milestone& m) { return m.state == found; });
}

// Before or after, never between: what was acknowledged at the crash, or one step more.
bool is_acknowledged(const std::vector<milestone>& milestones, std::size_t events, const records& found) {
  std::size_t step = 0;
  while (step + 1 < milestones.size() && milestones[step + 1].events <= events) ++step;
  return found == milestones[step].state ||
         (step + 1 < milestones.size() && found == milestones[step + 1].state);
}

// As the layer above opens a file.  0, or the code of what refused.
int recover(handle* h) {
  h->journal = engine::journal_use::on;
  const int opened = h->open_for_work(path);
  if (opened != 0) return opened;
  const int state = engine::transstat(*h);
  if (state == engine::e_trans_interrupted) return engine::transroll(*h, nullptr, 0, nullptr);
  return state == engine::e_trans_empty ? engine::transend(*h, 1) : state;
}

enum class promise {
  all,    // nothing but the crash: what was acknowledged is there
  whole,  // the journal may be lost: refused, or a state that there was
  code,   // anything, as long as each call ends
};

void verify(const disk_image& image, const std::vector<milestone>& milestones, std::size_t events,
            promise kept, const std::string& calls) {
  mount_small_disk(image);
  {
    handle h;
    const int code = recover(&h);
    FUZZ_EXPECT(kept != promise::all || code == 0);
    FUZZ_EXPECT(kept != promise::whole || code == 0 || code == engine::e_write_flag || code == engine::e_io);
    if (code == 0) {
      records found;
      const bool read = read_all(&h, &found);
      FUZZ_EXPECT(kept == promise::code || read);
      FUZZ_EXPECT(kept != promise::all || is_acknowledged(milestones, events, found));
      FUZZ_EXPECT(kept != promise::whole || is_any(milestones, found));
    }
    const int closed = engine::checkpsp(h) == 'O' ? h.close() : 0;
    FUZZ_EXPECT(kept == promise::code || code != 0 || closed == 0);
    if (engine::checkpsp(h) == 'O') engine::abandon(h);
    if (code != 0 && kept != promise::code) kept = promise::code;
  }
  {
    engine_world world(path, engine::journal_use::on);
    if (world.open()) world.run(calls);
    world.close();
    FUZZ_EXPECT(kept == promise::code || !world.failed_to_close());
  }
  FUZZ_EXPECT(disk_open_files() == 0);
  const bool sound = report_on(disk_now().at(path).bytes);
  FUZZ_EXPECT(kept == promise::code || sound);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz_input input(data, size);
  const unsigned flags = input.u8();
  const prepared& start = start_of(input.u8());
  engine::checkpoint_at = flags & 4 ? 16 * 1024 : flags & 8 ? 8 * 1024 : engine::journal_size;

  mount_small_disk(start.image);
  work done(start.content);
  done.run(take_script(&input).substr(0, 120));
  done.close();
  const std::size_t events = disk_events().size() * input.u16() / 0xFFFF;
  const unsigned power_cut = input.u8();
  disk_image image = crash(start.image, events, power_cut);
  engine::set_os_ops(nullptr);

  disk_bytes journal = image.at(journal_path).bytes;
  const disk_bytes journal_before = journal;
  take_changes(&input, &journal);
  const bool journal_changed = journal != journal_before;
  if (flags & 1 && journal_changed) mend_checksums(&journal);
  disk_bytes file = image.at(path).bytes;
  const disk_bytes file_before = file;
  take_changes(&input, &file);
  image.at(journal_path).bytes = journal;
  image.at(path).bytes = file;
  if (flags & 2) image.at(path).identity += 1000;

  promise kept = promise::all;
  if (journal_changed || flags & 2) kept = promise::whole;
  // What a power cut took of the file only the journal can bring back.
  if (file != file_before || (kept != promise::all && power_cut != 0) || (journal_changed && flags & 1))
    kept = promise::code;
  verify(image, done.milestones, events, kept, take_script(&input).substr(0, 60));
  engine::set_os_ops(nullptr);
  return 0;
}
