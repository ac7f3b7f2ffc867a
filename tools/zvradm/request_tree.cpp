// request-tree, last-request: one request as a whole.
#include <zvrdb/records.h>
#include <zvrdb/zvrdb.h>

#include <cstring>
#include <map>
#include <memory>

#include "json_output.h"
#include "request_commands.h"
#include "request_list.h"
#include "request_name.h"
#include "session.h"

namespace zvradm {

namespace {

std::string field_text(std::span<const unsigned char> record, std::size_t offset, std::size_t width) {
  const auto* at = reinterpret_cast<const char*>(record.data() + offset);
  return {at, strnlen(at, width)};
}

// What stands below one function.
struct function_branch {
  bool has_record = false;
  std::vector<std::string> fanouts;
  std::map<std::string, std::vector<std::string>> domains;  // with their targets
  std::map<std::string, bool> domain_records;
  bool has_vector = false;
};

using branches = std::map<std::string, function_branch>;

db_rqf_id root_argument(const std::string& text) {
  try {
    return parse_request(text, request_form::root);
  } catch (const request_fault& fault) {
    throw usage_fault(fault.what());
  }
}

request_filter below(const db_rqf_id& root) {
  request_filter filter;
  filter.server = std::string(root.request.src_domain);
  filter.user = std::string(root.request.user, strnlen(root.request.user, sizeof root.request.user));
  filter.sequence = root.request.seq_no;
  filter.recursion = root.request.recursion_no;
  return filter;
}

branches read_branches(void* task, const db_rqf_id& root) {
  branches all;
  const auto each = [&](const char* suffix,
                        const std::function<void(function_branch&, std::span<const unsigned char>)>& add) {
    const record_type& type = record_type_named(suffix);
    read_requests(task, type, filter_bytes(type, below(root)), type.list_length,
                  [&](std::span<const unsigned char> record) {
                    add(all[field_text(record, offsetof(db_rqf_id, subreq_id), sizeof(db_rqf_id::subreq_id))],
                        record);
                  });
  };
  each("rqf", [](function_branch& branch, auto) { branch.has_record = true; });
  each("fan", [](function_branch& branch, auto record) {
    branch.fanouts.push_back(field_text(record, offsetof(db_fan_id, rgn), sizeof(db_fan_id::rgn)) + "." +
                             field_text(record, offsetof(db_fan_id, ren), sizeof(db_fan_id::ren)));
  });
  each("rqd", [](function_branch& branch, auto record) {
    const std::string domain = field_text(record, offsetof(db_rqd_id, domain), sizeof(db_rqd_id::domain));
    branch.domains[domain];
    branch.domain_records[domain] = true;
  });
  each("rqt", [](function_branch& branch, auto record) {
    branch.domains[field_text(record, offsetof(db_rqd_id, domain), sizeof(db_rqd_id::domain))].push_back(
        field_text(record, offsetof(db_rqt_id, target), sizeof(db_rqt_id::target)));
  });
  each("rqv", [](function_branch& branch, auto) { branch.has_vector = true; });
  return all;
}

void print_line(unsigned depth, const std::string& text) {
  std::printf("%*s%s\n", static_cast<int>(2 * depth), "", text.c_str());
}

const char* unless(bool has_record) {
  return has_record ? "" : " (no record)";
}

std::string correlator_behind(void* task, const db_rqf_id& function) {
  const void* keys[] = {&function};
  db_coo found{};
  const std::int16_t code = db_get(task, DB_COO, 1, keys, &found, sizeof found);
  if (code == DBE_NOT_FOUND) return "";
  require_ok("get coo \"" + request_text(function, request_form::function) + "\"", code);
  return "  correlator " + correlator_text(found);
}

void show_tree(void* task, db_rqf_id root) {
  const std::string name = request_text(root, request_form::root);
  const void* keys[] = {&root};
  db_rqr_id found{};
  const std::int16_t code = db_get(task, DB_RQR, 1, keys, &found, sizeof found);
  if (code != DBE_NOT_FOUND) require_ok("request-tree show \"" + name + "\"", code);
  const branches all = read_branches(task, root);
  if (code == DBE_NOT_FOUND && all.empty()) throw library_refusal("request-tree show \"" + name + "\"", code);
  print_line(0, "request " + name + unless(code == DBE_OK));
  for (const auto& [function, branch] : all) {
    std::memset(root.subreq_id, 0, sizeof root.subreq_id);
    std::memcpy(root.subreq_id, function.data(), function.size());
    print_line(1, "function " + function + unless(branch.has_record) + correlator_behind(task, root));
    for (const std::string& fanout : branch.fanouts) print_line(2, "fan-out " + fanout);
    for (const auto& [domain, targets] : branch.domains) {
      print_line(2, "domain " + domain + unless(branch.domain_records.count(domain) != 0));
      for (const std::string& target : targets) print_line(3, "target " + target);
    }
    if (branch.has_vector) print_line(2, "vector");
  }
}

struct last_options {
  std::string request;
  bool words = false;
};

// The recursion may be left out where it does not matter.
db_rqf_id any_recursion(const std::string& text) {
  try {
    return parse_request(text + ".0", request_form::root);
  } catch (const request_fault&) {
    return root_argument(text);
  }
}

void print_last(void* task, const std::string& request) {
  const db_rqf_id asked = any_recursion(request);
  const std::string what = "last-request \"" + request + "\"";
  const record_type& type = record_type_named("rqr");
  std::vector<unsigned char> record(type.get_length);
  require_ok(what, db_get_lst_rec(task, &asked, record.data(), type.get_length));
  db_rqf_id found{};
  std::memcpy(&found.request, record.data(), sizeof found.request);
  const bool same = std::memcmp(found.request.user, asked.request.user, sizeof asked.request.user) == 0 &&
                    std::strcmp(found.request.src_domain, asked.request.src_domain) == 0 &&
                    found.request.seq_no == asked.request.seq_no;
  if (!same)
    throw refusal(what + ": it has no root record; the one below it is \"" +
                  request_text(found, request_form::root) + "\"");
  json line{{"request", request_text(found, request_form::root)}};
  line.update(record_to_json(type, record));
  print_json(line);
}

}  // namespace

void add_request_tree(CLI::App& app, globals& all) {
  auto request = std::make_shared<std::string>();
  CLI::App& tree = *app.add_subcommand("request-tree", "One request with all its records");
  tree.require_subcommand(1);
  tree.footer(R"(Examples:
  zvradm request-tree show OSLO.KLUND.17.0
  zvradm request-tree del OSLO.KLUND.17.0)");
  CLI::App& show = *tree.add_subcommand("show", "Show the tree, indented, with its correlators");
  show.add_option("REQUEST", *request, "SERVER.USER.SEQUENCE.RECURSION")->required();
  show.footer(R"(Records above which one is missing are shown below its place, marked "no record".

Example:
  zvradm request-tree show OSLO.KLUND.17.0)");
  show.callback([&all, request] {
    const db_rqf_id root = root_argument(*request);
    const session s(base_directory(all));
    show_tree(s.task(), root);
  });
  CLI::App& del = *tree.add_subcommand("del", "Delete the request, its records and its correlators");
  del.add_option("REQUEST", *request, "SERVER.USER.SEQUENCE.RECURSION")->required();
  del.footer(R"(All of it goes in one transaction, or nothing. Without a root record nothing is deleted.

Example:
  zvradm request-tree del OSLO.KLUND.17.0)");
  del.callback([&all, request] {
    const db_rqf_id root = root_argument(*request);
    const session s(base_directory(all));
    require_ok("request-tree del \"" + *request + "\"", db_del_rq_tree(s.task(), &root));
  });
}

void add_last_request(CLI::App& app, globals& all) {
  auto request = std::make_shared<std::string>();
  CLI::App& sub =
      *app.add_subcommand("last-request", "Print the root record of the highest recursion of a request");
  sub.add_option("REQUEST", *request,
                 "SERVER.USER.SEQUENCE; a .RECURSION behind it does not matter")
      ->required();
  sub.footer(R"(Example:
  zvradm last-request OSLO.KLUND.17)");
  sub.callback([&all, request] {
    (void)any_recursion(*request);
    const session s(base_directory(all));
    print_last(s.task(), *request);
  });
}

}  // namespace zvradm
