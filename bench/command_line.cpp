#include "command_line.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

namespace bench {
namespace {

void print_usage(const char* program, const std::vector<Switch>& switches) {
  const char* slash = std::strrchr(program, '/');
  std::string line = std::string("usage: ") + (slash ? slash + 1 : program);
  int width = 0;
  for (const Switch& s : switches) {
    line += std::string(" [") + s.name + (s.value ? std::string(" ") + s.value : "") + "]";
    width = std::max(width, static_cast<int>(std::strlen(s.name)));
  }
  std::fprintf(stderr, "%s\n", line.c_str());
  for (const Switch& s : switches) std::fprintf(stderr, "  %-*s  %s\n", width, s.name, s.help);
}

}  // namespace

bool read_command_line(int argc, char** argv, const std::vector<Switch>& switches) {
  for (int i = 1; i < argc; ++i) {
    const auto known = std::find_if(switches.begin(), switches.end(),
                                    [&](const Switch& s) { return std::strcmp(s.name, argv[i]) == 0; });
    if (known == switches.end() || (known->value && i + 1 == argc)) {
      print_usage(argv[0], switches);
      return false;
    }
    known->take(known->value ? argv[++i] : nullptr);
  }
  return true;
}

}  // namespace bench
