#include "tool_driver.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace tool_test {

namespace {

// Standard streams are files, so that neither side can wait for the other.
int open_stream(const std::string& path, int flags) {
  const int descriptor = open(path.c_str(), flags | O_CLOEXEC, 0600);
  if (descriptor < 0) throw std::runtime_error(path + " cannot be opened");
  return descriptor;
}

}  // namespace

std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream all;
  all << file.rdbuf();
  return all.str();
}

void write_file(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

std::vector<std::string> tool_result::lines() const {
  std::vector<std::string> all;
  std::istringstream text(out);
  for (std::string line; std::getline(text, line);) all.push_back(line);
  return all;
}

tool_result run_tool(const std::vector<std::string>& arguments, const std::string& in) {
  char folder[] = "/dev/shm/zvradm-run.XXXXXX";
  if (!mkdtemp(folder)) throw std::runtime_error("no scratch folder");
  const std::string at = folder;
  write_file(at + "/in", in);
  const int in_fd = open_stream(at + "/in", O_RDONLY);
  const int out_fd = open_stream(at + "/out", O_WRONLY | O_CREAT);
  const int err_fd = open_stream(at + "/err", O_WRONLY | O_CREAT);
  std::vector<char*> argv{const_cast<char*>("zvradm")};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    dup2(in_fd, STDIN_FILENO);
    dup2(out_fd, STDOUT_FILENO);
    dup2(err_fd, STDERR_FILENO);
    execv(ZVRADM_PATH, argv.data());
    _exit(127);
  }
  for (const int descriptor : {in_fd, out_fd, err_fd}) close(descriptor);
  int status = 0;
  waitpid(child, &status, 0);
  tool_result result;
  result.exit = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  result.out = read_file(at + "/out");
  result.err = read_file(at + "/err");
  std::filesystem::remove_all(at);
  return result;
}

scratch_base::scratch_base() {
  char folder[] = "/dev/shm/zvradm-test.XXXXXX";
  if (!mkdtemp(folder)) throw std::runtime_error("no scratch folder");
  folder_ = folder;
  path_ = folder_ + "/base";
}

scratch_base::~scratch_base() {
  if (std::filesystem::exists(path_)) run_tool({"--base", path_, "reset"});
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

tool_result scratch_base::tool(std::vector<std::string> arguments, const std::string& in) const {
  arguments.insert(arguments.begin(), {"--base", path_});
  return run_tool(arguments, in);
}

tool_result scratch_base::init(const std::vector<std::string>& more) const {
  std::vector<std::string> arguments{"init", "--name", "OSLO", "--rgn", "NORTH", "--ren", "OSLO01"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return tool(arguments);
}

}  // namespace tool_test
