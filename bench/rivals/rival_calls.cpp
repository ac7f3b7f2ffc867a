// The library as its callers see it: db_put, db_get and db_del of the records of requests in an
// installation, converted from and to their outer form.
#include <sys/stat.h>
#include <unistd.h>
#include <zvrco/zvrco.h>
#include <zvrdb/records.h>
#include <zvrdb/zvrdb.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>

#include "bench_installation.h"
#include "measurement.h"
#include "rivals/rival.h"

namespace bench {
namespace {

constexpr std::size_t record_len = sizeof(db_rqt_id) + body_len;

template <std::size_t Width>
void put_text(char (&field)[Width], const std::string& text) {
  std::memset(field, 0, Width);
  std::memcpy(field, text.data(), text.size());
}

std::string target_name(std::uint32_t i) {
  return numbered("TARGET.", i);
}

class Calls final : public Rival {
 public:
  std::string name() const override { return "zvrdb calls"; }
  std::string settings() const override {
    return "db_put, db_get, db_del of an installation with 101 targets; records of 532 bytes in their outer form";
  }
  bool is_ours() const override { return true; }
  unsigned abilities() const override {
    return static_cast<unsigned>(Ability::change) | static_cast<unsigned>(Ability::get) |
           static_cast<unsigned>(Ability::share) | static_cast<unsigned>(Ability::bulk);
  }
  void open(const std::string& folder) override {
    base_ = folder;
    const bool there = access((base_ + "/orvo.cfg").c_str(), F_OK) == 0;
    if (!there) lay_out();
    setenv("ORVO_PATH", base_.c_str(), 1);
    task_.emplace();
    if (!there) put_targets();
    // The first call attaches; it is not what is measured.
    std::uint32_t number = 0;
    expect(db_get_trg_index(*task_, target_name(0).c_str(), &number), "first call");
  }
  void close() override { task_.reset(); }
  void begin() override { expect(db_start_trans(*task_, DB_RQT), "start of a transaction"); }
  void commit() override { expect(db_commit(*task_, DB_RQT), "commit"); }
  void insert(const Record& record) override {
    identify(record.name);
    std::memcpy(buffer_, &id_, sizeof id_);
    std::memcpy(buffer_ + sizeof id_, record.body, body_len);
    const void* keys[] = {&id_};
    expect(db_put(*task_, DB_RQT, 1, keys, buffer_, record_len), "put");
  }
  void replace(const Record& record) override { insert(record); }
  void erase(const Record& record) override {
    identify(record.name);
    const void* keys[] = {&id_};
    expect(db_del(*task_, DB_RQT, 1, keys), "delete");
  }
  bool get(const unsigned char* name, Record* out) override {
    identify(name);
    const void* keys[] = {&id_};
    const std::int16_t rc = db_get(*task_, DB_RQT, 1, keys, buffer_, record_len);
    if (rc != DBE_OK) return false;
    std::memcpy(out->name, name, name_len);
    std::memcpy(out->body, buffer_ + sizeof id_, body_len);
    return true;
  }
  void scan(const Visit&) override {}
  void list(const unsigned char*, const Visit&) override {}
  std::vector<std::string> data_files() const override { return {"db/userreq"}; }
  void drop(const std::string& folder) override {
    std::uint32_t alive = 0;
    if (access((folder + "/orvo.cfg").c_str(), F_OK) == 0) co_reset(folder.c_str(), nullptr, 0, &alive);
  }

 private:
  void lay_out() const {
    for (const char* part : {"db", "log", "messages"}) std::filesystem::create_directories(base_ + "/" + part);
    std::ofstream(base_ + "/orvo.cfg") << "WORKSTATION NAME:     LOCAL\n"
                                       << "MAX TARGETS:          1000\n"
                                       << "CONFIGURATION:        SERVER_NO_COMMS\n"
                                       << "MAX LOCAL TARGETS:    1000\n"
                                       << "MAX SERVER TARGETS:   1000\n";
  }
  void put_targets() {
    db_trg record;
    for (std::uint32_t i = 0; i <= records_of_group; ++i) {
      std::memset(&record, 0, sizeof record);
      put_text(record.trg_name, i < records_of_group ? target_name(i) : "LOCAL");
      record.trg_type = DB_TRG_LOCAL | DB_TRG_CLIENT;
      const void* keys[] = {record.trg_name};
      if (i == 0) expect(db_start_trans(*task_, DB_TRG), "start of the transaction");
      expect(db_put(*task_, DB_TRG, 1, keys, &record, sizeof record), "put of a target");
    }
    expect(db_commit(*task_, DB_TRG), "commit");
  }
  void identify(const unsigned char* name) {
    const std::uint32_t i = number_of(name);
    db_rqf_id& request = id_.destination.function;
    put_text(request.request.user, "KLUND");
    put_text(request.request.src_domain, "LOCAL");
    request.request.seq_no = (i / records_of_group) * 2654435761u;
    put_text(request.subreq_id, "INSTALL");
    put_text(id_.destination.domain, "LOCAL");
    put_text(id_.target, target_name(i % records_of_group));
  }

  std::string base_;
  std::optional<Task> task_;
  db_rqt_id id_{};
  unsigned char buffer_[record_len] = {};
};

}  // namespace

std::unique_ptr<Rival> make_calls() {
  return std::make_unique<Calls>();
}

}  // namespace bench
