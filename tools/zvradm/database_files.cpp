#include "database_files.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <string_view>

#include "refusals.h"

namespace zvradm {

namespace {

constexpr std::array<std::string_view, 3> text_records{"routetab", "snadscfg", "user_config"};

const char* why_passed_over(const std::string& name) {
  std::error_code ignored;
  const std::filesystem::path path(name);
  if (std::filesystem::is_directory(path, ignored)) return "a folder";
  const std::string file = path.filename().string();
  if (path.extension() == ".jnl") return "a journal";
  if (path.parent_path().filename() != "db") return nullptr;
  return std::find(text_records.begin(), text_records.end(), file) != text_records.end() ? "a text record"
                                                                                         : nullptr;
}

}  // namespace

std::vector<std::string> record_files_among(const std::vector<std::string>& names) {
  std::vector<std::string> files;
  for (const std::string& name : names) {
    if (const char* why = why_passed_over(name))
      std::fprintf(stderr, "zvradm: %s: %s, passed over\n", name.c_str(), why);
    else
      files.push_back(name);
  }
  return files;
}

void require_record_file_name(const std::string& name) {
  if (const char* why = why_passed_over(name)) throw refusal(name + ": " + why + " and no record file");
}

}  // namespace zvradm
