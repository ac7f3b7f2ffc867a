#include "requests/requests_fixture.h"

#include <cstring>
#include <sstream>

namespace request_test {

namespace {

constexpr std::uint32_t all_trace = 0x1FF;

std::vector<Type> make_types() {
  const std::vector<unsigned> root = {wild_source, wild_user, wild_sequence, wild_recursion};
  std::vector<unsigned> function = root;
  function.push_back(wild_function);
  std::vector<unsigned> fanout = function, domain = function;
  fanout.insert(fanout.end(), {wild_rgn, wild_ren});
  domain.push_back(wild_server);
  std::vector<unsigned> target = domain;
  target.push_back(wild_target);
  return {{DB_RQR, "rqr", 88, 4222, root},     {DB_RQF, "rqf", 104, 10204, function},
          {DB_FAN, "fan", 120, 25198, fanout}, {DB_RQD, "rqd", 168, 10204, domain},
          {DB_RQT, "rqt", 232, 10204, target}, {DB_RQV, "rqv", 104, 64620, function}};
}

bool has(std::uint32_t db_id, unsigned part) {
  return (type_of(db_id).all() & part) != 0;
}

}  // namespace

const std::vector<Type>& request_types() {
  static const std::vector<Type> types = make_types();
  return types;
}

const Type& type_of(std::uint32_t db_id) {
  for (const Type& type : request_types())
    if (type.db_id == db_id) return type;
  ADD_FAILURE() << "no request type " << db_id;
  return request_types().front();
}

void put_text(bytes& record, std::size_t offset, std::size_t width, const std::string& text) {
  std::memset(record.data() + offset, 0, width);
  std::memcpy(record.data() + offset, text.data(), std::min(text.size(), width));
}

std::string text_at(const bytes& record, std::size_t offset, std::size_t width) {
  const char* at = reinterpret_cast<const char*>(record.data() + offset);
  return std::string(at, strnlen(at, width));
}

bytes Id::of(std::uint32_t db_id) const {
  bytes id(232);
  put_text(id, 0, 16, user);
  put_text(id, 16, 64, source);
  put_number(id, 80, sequence);
  put_number(id, 84, recursion);
  put_text(id, 88, 16, function);
  if (db_id == DB_FAN) {
    put_text(id, 104, 8, rgn);
    put_text(id, 112, 8, ren);
  } else {
    put_text(id, 104, 64, domain);
    put_text(id, 168, 64, target);
  }
  return bytes(id.begin(), id.begin() + static_cast<long>(type_of(db_id).id_len));
}

Id Id::wild(unsigned mask) const {
  Id filter = *this;
  if (mask & wild_source) filter.source = "*";
  if (mask & wild_user) filter.user = "*";
  if (mask & wild_sequence) filter.sequence = 0xFFFFFFFFu;
  if (mask & wild_recursion) filter.recursion = 0xFFFF;
  if (mask & wild_function) filter.function = "*";
  if (mask & wild_server) filter.domain = "*";
  if (mask & wild_target) filter.target = "*";
  if (mask & wild_rgn) filter.rgn = "*";
  if (mask & wild_ren) filter.ren = "*";
  return filter;
}

std::string Id::text(std::uint32_t db_id) const {
  std::ostringstream out;
  out << source << '.' << user << '.' << sequence << '.' << recursion;
  if (has(db_id, wild_function)) out << '.' << function;
  if (has(db_id, wild_rgn)) out << '.' << rgn << '.' << ren;
  if (has(db_id, wild_server)) out << '.' << domain;
  if (has(db_id, wild_target)) out << '.' << target;
  return out.str();
}

Id Id::read(std::uint32_t db_id, const bytes& record) {
  Id id;
  id.user = text_at(record, 0, 16);
  id.source = text_at(record, 16, 64);
  id.sequence = number_at<std::uint32_t>(record, 80);
  id.recursion = number_at<std::uint16_t>(record, 84);
  if (has(db_id, wild_function)) id.function = text_at(record, 88, 16);
  if (has(db_id, wild_rgn)) id.rgn = text_at(record, 104, 8), id.ren = text_at(record, 112, 8);
  if (has(db_id, wild_server)) id.domain = text_at(record, 104, 64);
  if (has(db_id, wild_target)) id.target = text_at(record, 168, 64);
  return id;
}

Id everything() {
  return Id{}.wild(0xFFFF);
}

// Blocks are filled with bytes other than zero, texts and counts made good.
bytes full_record(std::uint32_t db_id, const Id& id, unsigned seed) {
  const Type& type = type_of(db_id);
  bytes record(type.record_len);
  for (std::size_t i = type.id_len; i < record.size(); ++i)
    record[i] = static_cast<unsigned char>(1 + (i * 7 + seed) % 255);
  const bytes head = id.of(db_id);
  std::copy(head.begin(), head.end(), record.begin());
  const std::string text = numbered("text of ", seed);
  switch (db_id) {
    case DB_RQR:
      put_text(record, 90, 258, text);
      break;
    case DB_RQF:
      put_text(record, 4380, 258, text);
      break;
    case DB_FAN:
      put_number<std::uint16_t>(record, 124, 24560);
      break;
    case DB_RQD:
      put_text(record, 172, 256, text);
      std::fill(record.begin() + 468, record.begin() + 9692, 0);  // is not stored
      break;
    case DB_RQT:
      put_text(record, 236, 256, text);
      put_number<std::uint16_t>(record, 520, 1);
      put_text(record, 556, 1024, text);
      std::fill(record.begin() + 1580, record.begin() + 9692, 0);  // is not stored
      break;
    case DB_RQV:
      std::fill(record.begin() + 104, record.begin() + 616, 0);  // is not stored
      put_number<std::uint32_t>(record, 616, 64000);
      break;
  }
  return record;
}

// `content` where the type's first own field is.
bytes short_record(std::uint32_t db_id, const Id& id, std::uint64_t content) {
  bytes record = id.of(db_id);
  if (db_id == DB_RQV) {
    record.resize(10204);
    put_number(record, 9692, content);
  } else {
    record.resize(record.size() + (db_id == DB_RQR ? 270 : 8));
    put_number(record, record.size() - 8, content);
  }
  return record;
}

void RequestsTest::SetUp() {
  TargetsTest::SetUp();
  for (const char* name : {"LOCAL", "SRC", "SRC2", "SRV", "SRV2", "T1", "T2", "T3"})
    ASSERT_EQ(put(target_test::Record(name).ren(name)), DBE_OK) << name;
}

int RequestsTest::put_on(void* own, std::uint32_t db_id, const Id& id, const bytes& record) {
  const bytes key = id.of(db_id);
  const void* keys[] = {key.data()};
  bytes copy = record;
  return db_put(own, db_id, 1, keys, copy.data(), static_cast<std::uint16_t>(copy.size()));
}
int RequestsTest::put_record(std::uint32_t db_id, const Id& id, const bytes& record) {
  return put_on(task, db_id, id, record);
}
int RequestsTest::put_request(std::uint32_t db_id, const Id& id, std::uint64_t content) {
  return put_record(db_id, id, short_record(db_id, id, content));
}
int RequestsTest::get_request(std::uint32_t db_id, const Id& id, bytes& buffer) {
  const bytes key = id.of(db_id);
  const void* keys[] = {key.data()};
  return db_get(task, db_id, 1, keys, buffer.data(), static_cast<std::uint16_t>(buffer.size()));
}
int RequestsTest::del_request(std::uint32_t db_id, const Id& id) {
  const bytes key = id.of(db_id);
  const void* keys[] = {key.data()};
  return db_del(task, db_id, 1, keys);
}
bool RequestsTest::there(std::uint32_t db_id, const Id& id) {
  bytes buffer(int_key_len[db_id]);
  const int rc = get_request(db_id, id, buffer);
  EXPECT_TRUE(rc == DBE_OK || rc == DBE_NOT_FOUND) << rc;
  return rc == DBE_OK;
}

int RequestsTest::begin(std::uint32_t db_id, const Id& filter, bytes& state) {
  bytes copy = filter.of(db_id);
  state.assign(list_len, 0x55);
  return db_init_list(task, db_id, copy.data(), state.data(), list_len);
}
int RequestsTest::more(std::uint32_t db_id, bytes& state, Id* found) {
  bytes buffer(int_key_len[db_id]);
  const int rc =
      db_get_more(task, db_id, state.data(), buffer.data(), static_cast<std::uint16_t>(buffer.size()));
  if (rc == DBE_OK) *found = Id::read(db_id, buffer);
  return rc;
}

Listed RequestsTest::list(std::uint32_t db_id, const Id& filter) {
  bytes state;
  Listed listed = {begin(db_id, filter, state), {}, 0};
  if (listed.rc != DBE_OK) return listed;
  Id found;
  while ((listed.end = more(db_id, state, &found)) == DBE_OK && listed.ids.size() < 100000)
    listed.ids.push_back(found.text(db_id));
  return listed;
}

std::vector<std::string> RequestsTest::all(std::uint32_t db_id) {
  const Listed listed = list(db_id, everything());
  EXPECT_EQ(listed.rc, DBE_OK);
  EXPECT_EQ(listed.end, DBE_END_OF_LIST);
  return listed.ids;
}

std::vector<std::string> RequestsTest::everything_stored() {
  std::vector<std::string> stored;
  for (const Type& type : request_types()) {
    bytes state;
    EXPECT_EQ(begin(type.db_id, everything(), state), DBE_OK);
    for (;;) {
      bytes buffer(std::min<std::size_t>(type.record_len, 10204));
      const int rc = db_get_more(task, type.db_id, state.data(), buffer.data(),
                                 static_cast<std::uint16_t>(buffer.size()));
      if (rc != DBE_OK) {
        EXPECT_EQ(rc, DBE_END_OF_LIST);
        break;
      }
      const std::string content(buffer.begin(), buffer.end());
      stored.push_back(
          numbered(type.suffix + (" " + Id::read(type.db_id, buffer).text(type.db_id)) + " of content ",
                   std::hash<std::string>{}(content)));
    }
  }
  return stored;
}

std::vector<std::string> RequestsTest::entered(const std::function<void()>& work) {
  const std::size_t before = installation_->read("log/trace.log").size();
  co_set_trace(task, all_trace);
  work();
  co_set_trace(task, 0);
  std::istringstream text(installation_->read("log/trace.log").substr(before));
  std::vector<std::string> functions;
  for (std::string line; std::getline(text, line);) {
    const std::size_t end = line.find(": >>>>>>>>>> ENTRY");
    if (end == std::string::npos) continue;
    const std::size_t start = line.rfind(' ', end) + 1;
    functions.push_back(line.substr(start, end - start));
  }
  return functions;
}

db_coo RequestsTest::correlator_of(const Id& id, const std::string& origin) {
  db_coo record = {};
  const bytes identifier = id.of(DB_RQF);
  std::memcpy(&record, identifier.data(), identifier.size());
  std::memcpy(record.origin, origin.data(), origin.size());
  return record;
}

int RequestsTest::put_correlator(const Id& id, std::uint32_t sequence) {
  db_coo record = correlator_of(id);
  record.year = 2001;
  record.month = 2;
  record.day = 3;
  record.sequence = sequence;
  const void* keys[] = {&record};
  return db_put(task, DB_COO, 1, keys, &record, sizeof record);
}

bool RequestsTest::has_correlator(const Id& id) {
  const db_coo key = correlator_of(id);
  const void* keys[] = {&key};
  db_coo found;
  const int rc = db_get(task, DB_COO, 1, keys, &found, sizeof found);
  EXPECT_TRUE(rc == DBE_OK || rc == DBE_NOT_FOUND) << rc;
  return rc == DBE_OK;
}

}  // namespace request_test
