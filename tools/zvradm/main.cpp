#include <clocale>

#include "commands.h"

int main(int argc, char** argv) {
  // Only for the width of characters in tables; the order of names is the
  // installation's own.
  std::setlocale(LC_CTYPE, "C.UTF-8");
  return zvradm::run_command_line(argc, argv);
}
