// One store under measurement: ours and those of others behind one interface, so that all
// do the same work on the same records.
//
// Every change outside begin() ... commit() is a commit of its own that survives a power cut.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace bench {

inline constexpr std::size_t name_len = 76;    // unique key
inline constexpr std::size_t group_len = 8;    // repeating key
inline constexpr std::size_t body_len = 300;

struct Record {
  unsigned char name[name_len];
  unsigned char group[group_len];
  std::uint32_t kind;              // repeating key of 4 bytes
  unsigned char body[body_len];
};

// A record that lies somewhere in the store; good until the next call.
struct RecordView {
  const unsigned char* name;
  const unsigned char* body;
};
using Visit = std::function<void(const RecordView&)>;

// What a store can be asked for.
enum class Ability : unsigned {
  change = 1,       // insert, replace, erase
  get = 2,
  scan = 4,         // in the order of names
  list = 8,         // by group
  share = 16,       // several processes at once
  bulk = 32,        // many changes in one transaction
};
constexpr unsigned all_abilities = 63;

class Rival {
 public:
  Rival() = default;
  virtual ~Rival() = default;
  Rival(const Rival&) = delete;
  Rival& operator=(const Rival&) = delete;

  virtual std::string name() const = 0;
  // How it is set up, for the reader of the table.
  virtual std::string settings() const = 0;
  virtual bool is_ours() const { return false; }
  virtual unsigned abilities() const { return all_abilities; }
  bool can(Ability a) const { return (abilities() & static_cast<unsigned>(a)) != 0; }

  // In this process; makes the store in the folder if it is not there.
  virtual void open(const std::string& folder) = 0;
  virtual void close() = 0;
  virtual void begin() = 0;
  virtual void commit() = 0;
  virtual void insert(const Record& record) = 0;
  virtual void replace(const Record& record) = 0;   // a new body for the same keys
  virtual void erase(const Record& record) = 0;     // with its keys
  // Copies the record out.  False when it is not there.
  virtual bool get(const unsigned char* name, Record* out) = 0;
  virtual void scan(const Visit& visit) = 0;
  virtual void list(const unsigned char* group, const Visit& visit) = 0;
  // Files that hold the data once the store is closed (logs and journals aside).
  virtual std::vector<std::string> data_files() const = 0;
  // What the store keeps outside its folder goes too.
  virtual void drop(const std::string& /*folder*/) {}
};

// The i-th record: names in scattered order, a hundred records to a group.
inline constexpr std::uint32_t records_of_group = 100;
void make_record(std::uint32_t i, Record* out);
void make_record_name(std::uint32_t i, Record* out);   // the name alone
// The number that a name was made from.
std::uint32_t number_of(const unsigned char* name);
// Group of the i-th record when `all` of them are there.
void make_group(std::uint32_t number, unsigned char* out);

using Rivals = std::vector<std::unique_ptr<Rival>>;

std::unique_ptr<Rival> make_engine();
std::unique_ptr<Rival> make_calls();   // db_put, db_get, db_del of an installation
std::unique_ptr<Rival> make_floor();   // one page written, flushed, read: what the disk can do
// Those whose packages were there when this program was built.
void add_sqlite(Rivals* rivals);
void add_lmdb(Rivals* rivals);
void add_berkeley(Rivals* rivals);
void add_tdb(Rivals* rivals);

}  // namespace bench
