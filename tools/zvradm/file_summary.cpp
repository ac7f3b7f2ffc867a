// file summary: counts and fill of a record file.
#include <cmath>
#include <memory>

#include "commands.h"
#include "database_files.h"
#include "file_header_json.h"
#include "json_output.h"
#include "table_output.h"

namespace zvradm {

namespace {

using zvrdb::engine::file_summary;
using zvrdb::engine::report_outcome;

struct summary_options {
  std::string file;
  bool as_table = false;
};

double rounded(double share) {
  return std::round(share * 1000) / 1000;
}

json summary_json(const std::string& file, const file_summary& s) {
  json keys = json::array();
  for (std::size_t key = 0; key < s.entries_by_key.size(); ++key)
    if (s.entries_by_key[key] != 0)
      keys.push_back({{"key", key}, {"entries", s.entries_by_key[key]}, {"bytes", s.bytes_by_key[key]}});
  json object{{"file", file},
              {"depth", s.header.depth},
              {"records", s.records},
              {"free_numbers", s.free_numbers},
              {"locks", s.locks}};
  object["nodes"] = {{"inner", s.inner_nodes},
                     {"leaves", s.leaves},
                     {"empty_leaves", s.empty_leaves},
                     {"free", s.free_nodes},
                     {"log", s.log_nodes},
                     {"unused", s.unused_nodes},
                     {"unreachable", s.unreachable_nodes}};
  object["leaf_fill"] = rounded(s.leaf_fill);
  object["inner_fill"] = rounded(s.inner_fill);
  object["keys"] = std::move(keys);
  object["header"] = file_header_json(s.header);
  return object;
}

void print_summary_table(const json& summary) {
  table t{{"what", "value"}, {}, {false, true}};
  const auto percent = [](const json& share) {
    return std::to_string(std::lround(share.get<double>() * 100)) + " %";
  };
  t.rows.push_back({"size in bytes", json_line(summary["header"]["size"])});
  t.rows.push_back({"generation", json_line(summary["header"]["generation"])});
  t.rows.push_back({"byte order", cell_text(summary["header"]["byte_order"])});
  t.rows.push_back({"depth", json_line(summary["depth"])});
  t.rows.push_back({"records", json_line(summary["records"])});
  t.rows.push_back({"free record numbers", json_line(summary["free_numbers"])});
  t.rows.push_back({"record locks", json_line(summary["locks"])});
  for (const auto& [name, count] : summary["nodes"].items())
    t.rows.push_back({"nodes: " + name, json_line(count)});
  t.rows.push_back({"fill of leaves", percent(summary["leaf_fill"])});
  t.rows.push_back({"fill of inner nodes", percent(summary["inner_fill"])});
  t.rows.push_back({"write in progress", summary["header"]["write_flag"] == true ? "yes" : "no"});
  print_table(t, stdout);
  if (summary["header"].contains("note")) std::printf("\nnote: %s\n", cell_text(summary["header"]["note"]).c_str());
  std::printf("\n");
  table keys{{"key", "entries", "bytes"}, {}, {true, true, true}};
  for (const json& key : summary["keys"])
    keys.rows.push_back({json_line(key["key"]), json_line(key["entries"]), json_line(key["bytes"])});
  print_table(keys, stdout);
}

void summarize(const summary_options& options) {
  require_record_file_name(options.file);
  file_summary summary{};
  std::string reason;
  const report_outcome outcome = zvrdb::engine::summarize_file(options.file.c_str(), &summary, &reason);
  if (outcome == report_outcome::unreadable) throw refusal(options.file + ": not readable: " + reason);
  const json object = summary_json(options.file, summary);
  if (options.as_table)
    print_summary_table(object);
  else
    print_json(object);
  if (outcome == report_outcome::problems)
    throw refusal(options.file +
                  ": damaged, so the summary is not whole; 'zvradm file check --deep' tells where");
}

}  // namespace

void add_file_summary(CLI::App& file, globals& all) {
  (void)all;
  auto options = std::make_shared<summary_options>();
  CLI::App& sub = *file.add_subcommand("summary", "Print counts, depth and fill of a record file");
  sub.add_option("FILE", options->file, "Record file")->required();
  sub.add_flag("--table", options->as_table, "Tables for people");
  sub.footer(R"(A note is added when the file's journal has changes that the file does not have yet.

Examples:
  zvradm file summary /srv/zvr/db/trgcfg
  zvradm file summary --table /srv/zvr/db/trgcfg)");
  sub.callback([options] { summarize(*options); });
}

}  // namespace zvradm
