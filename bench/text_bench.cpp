// What reading of text records costs, as Markdown: the parse of a full route table and of
// one connection.  Exits with 1 when the route table takes longer than its limit.
#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "support/temp_installation.h"
#include "textrec/keyword_tables.h"
#include "textrec/parse.h"
#include "textrec/text_records.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned rounds = 200;
constexpr unsigned routes = 1600;
constexpr double limit_us = 2000;

struct Sample {
  const char* name;
  std::uint32_t db_id;
  const zvrdb::textrec::keyword_entry* table;
  std::uint32_t record_len;
  std::string text;
};

std::string route_table() {
  std::string text = "NETWORK PROTOCOL:         TCP/IP\n";
  for (unsigned i = 0; i < routes; ++i)
    text += "RGN" + std::to_string(i) + ".REN" + std::to_string(i) +
            "  DATA8  LEVEL2  4MEGABYTES  ANY  CONN" + std::to_string(i % 50) + "  " + std::to_string(i % 9) +
            "\n\n";
  return text;
}

std::string connection() {
  return "TYPE:         STS\nPROTOCOL:         TCP/IP\nREMOTE SERVER NAME:  OSLO\nTCP/IP TIME-OUT:  60\n"
         "NEXT DSU:  NORTH.OSLO01\nTRANSMISSION TIME-OUT:  60\nRETRY LIMIT:  3\nSEND MU_ID TIME-OUT:  30\n"
         "RECEIVE MU_ID TIME-OUT:  30\n";
}

// Median of the time of one parse, in microseconds.
double measure(void* task, const Sample& sample) {
  std::vector<unsigned char> record(sample.record_len);
  std::vector<double> times;
  for (unsigned i = 0; i < rounds; ++i) {
    std::vector<char> text(sample.text.begin(), sample.text.end());
    text.push_back(0);
    std::memset(record.data(), 0, record.size());
    const auto before = Clock::now();
    const std::int16_t rc = zvrdb::textrec::parse(task, sample.db_id, "", sample.table, text.data(),
                                                  record.data(), sample.record_len);
    times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - before).count());
    if (rc != DBE_OK) return -1;
  }
  std::nth_element(times.begin(), times.begin() + rounds / 2, times.end());
  return times[rounds / 2];
}

}  // namespace

int main() {
  using namespace zvrdb::textrec;
  const zvrdb::test::TempInstallation installation;
  void* task = co_init_task("bench", nullptr, 1);
  if (!task) return 1;
  const Sample samples[] = {
      {"route table of 1600 lines", DB_RTE, rte_keywords, rte_record_len, route_table()},
      {"connection of 9 lines", DB_SCN, scn_keywords, scn_record_len, connection()},
  };
  std::printf("| text | parse, median of %u (us) |\n|---|---|\n", rounds);
  bool good = true;
  for (const Sample& sample : samples) {
    const double time = measure(task, sample);
    good = good && time >= 0 && time < limit_us;
    std::printf("| %s | %.1f |\n", sample.name, time);
  }
  coi_term_task(task, 0);
  return good ? 0 : 1;
}
