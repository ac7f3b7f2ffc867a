// auth USER [TARGET]: what a user may do.
#include <zvrdb/records.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "commands.h"
#include "json_output.h"
#include "record_keys.h"
#include "session.h"

namespace zvradm {

namespace {

struct auth_options {
  std::string user, target;
};

// The record as JSON with words, or null when there is none.
json read_record(void* task, const char* suffix, const std::string& name) {
  const record_type& type = record_type_named(suffix);
  const record_keys keys(type, {name});
  std::vector<unsigned char> record(type.get_length);
  const std::int16_t code =
      db_get(task, type.db_id, keys.count(), keys.data(), record.data(), type.get_length);
  if (code == DBE_NOT_FOUND) return nullptr;
  require_ok(call_text("get", type, {name}), code);
  return record_to_json(type, record, {.words = true});
}

json rights_of(void* task, const json& profile) {
  if (!profile.is_string() || profile.get_ref<const std::string&>().empty()) return nullptr;
  json rights = read_record(task, "apr", profile.get<std::string>());
  for (const char* name : {"name", "carried23", "carried24", "carried25"})
    if (rights.is_object()) rights.erase(name);
  return rights;
}

void print_authorization(const globals& all, const auth_options& options) {
  const record_type& type = record_type_named("ua");
  std::vector<std::string> words{options.user};
  if (!options.target.empty()) words.push_back(options.target);
  const record_keys keys(type, words);
  const session s(base_directory(all));
  std::vector<unsigned char> answer(type.get_length);
  const std::int16_t code =
      db_get(s.task(), type.db_id, keys.count(), keys.data(), answer.data(), type.get_length);
  if (code != DBE_OK && code != DBE_NOT_FOUND && code != DBE_NOT_AUTHORIZED)
    throw library_refusal(call_text("get", type, words), code);
  json line{{"user", options.user}, {"rc", code}, {"code", code_name(code)}};
  line["level"] = code == DBE_OK ? json(answer[type.field_named("level").offset]) : json(nullptr);
  const json record = read_record(s.task(), "usr", options.user);
  for (const char* name : {"profile", "tak_mask", "dak_mask", "all_targets", "login_trgs"})
    if (record.is_object()) line[name] = record[name];
  if (!record.is_object()) line["profile"] = nullptr;
  line["rights"] = rights_of(s.task(), line["profile"]);
  print_json(line);
  std::uint32_t number = 0;
  if (!options.target.empty() && db_get_trg_index(s.task(), options.target.c_str(), &number) == DBE_NO_TARGET) {
    std::fflush(stdout);
    std::fprintf(stderr, "zvradm: note: there is no target \"%s\"\n", options.target.c_str());
  }
  const std::string what = "auth \"" + options.user + "\": " + code_name(code) + " (" + std::to_string(code) + "): ";
  const std::string users = base_directory(all) + "/users";
  if (code == DBE_NOT_FOUND)
    throw refusal(what + "the level is not known: neither a line '" + options.user + " LEVEL' of " + users +
                  " nor one of the system's groups zvradm, zvrbld, zvrusr tells it");
  if (code != DBE_OK) throw refusal(what + "the user is not authorized: " + users + " gives the level 'none'");
}

}  // namespace

void add_auth(CLI::App& app, globals& all) {
  auto options = std::make_shared<auth_options>();
  CLI::App& sub = *app.add_subcommand("auth", "Print the authorization level and the profile of a user");
  sub.add_option("USER", options->user, "Name of the user, of at most 16 bytes")->required();
  sub.add_option("TARGET", options->target, "The level on this target");
  sub.footer(R"(The level is that of the file 'users' or of the system's groups; null when it is not
known or the user is not authorized: exit code 1 then. The profile comes from the user's
record and "rights" from the profile of that name; null when there is none.

Examples:
  zvradm auth KLUND
  zvradm auth KLUND OSLO)");
  sub.callback([&all, options] { print_authorization(all, *options); });
}

}  // namespace zvradm
