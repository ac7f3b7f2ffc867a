// A process of its own that works on a record file as it is told over a pipe: one
// command a line in, one number a line out.
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>

#include "engine/engine_handle.h"
#include "engine/faulty_os.h"

namespace zvrdb::test {
namespace {

std::string path_of_last_open;

int open_file(handle* h, std::istream& words) {
  char access = 'S';
  int mode = 2;
  int journal = 0;
  words >> path_of_last_open >> access >> mode;
  if (words >> h->options >> journal) h->journal = journal ? engine::journal_use::on : engine::journal_use::off;
  int result = h->open(path_of_last_open, access, mode);
  return result ? result : engine::csetfile(*h, 4);
}

// Updates the current record so that its number becomes n; the lock stays when asked.
int change(handle* h, int i, int n) {
  sample_record changed = sample(i);
  changed.number = n;
  return h->update(changed);
}

int read_number(handle* h, int* number) {
  sample_record found;
  int result = h->read(&found);
  *number = found.number;
  return result;
}

int clear_flag(handle* h, std::istream& words) {
  std::string path;
  words >> path;
  int result = engine::_bopen(*h, path.c_str(), 'E', 2);
  if (result) return result;
  result = engine::clrwrit(*h);
  return result ? result : engine::cclose(*h);
}

int run(handle* h, const std::string& line) {
  std::istringstream words(line);
  std::string command;
  int a = 0, b = 0;
  words >> command;
  if (command == "open") return open_file(h, words);
  if (command == "clear") return clear_flag(h, words);
  if (command == "die") std::raise(SIGKILL);
  words >> a >> b;
  if (command == "insert") return h->insert(sample(a));
  if (command == "find") return h->find_name(sample(a).name);
  if (command == "seq") return engine::dseq(*h, a, b);
  if (command == "number") {
    int number = 0;
    int result = read_number(h, &number);
    return result ? result : number;
  }
  if (command == "lock") return engine::dlock(*h);
  if (command == "unlock") return engine::dunlock(*h);
  if (command == "change") return change(h, a, b);
  if (command == "remove") return h->remove();
  if (command == "begin") return engine::transbeg(*h, 3, nullptr);
  if (command == "end") return engine::transend(*h, 1);
  if (command == "back") return engine::transroll(*h, nullptr, 0, nullptr);
  if (command == "state") return engine::transstat(*h);
  if (command == "close") return h->close();
  if (command == "kill_after_flag") {
    kill_after_flag(a);
    return 0;
  }
  std::cerr << "agent: unknown command " << line << std::endl;
  std::abort();
}

}  // namespace
}  // namespace zvrdb::test

int main() {
  zvrdb::test::install_faulty_os();
  zvrdb::test::handle h;
  std::string line;
  while (std::getline(std::cin, line)) std::cout << zvrdb::test::run(&h, line) << std::endl;
}
