// Drives a fuzzer without libFuzzer: each input of its corpus as it stands, then a fixed
// number of mutations of them, the same at each run.
//
//   PROGRAM CORPUS-FOLDER MUTATIONS [SEED]    the corpus and its mutations
//   PROGRAM FILE...                           these inputs alone
//
// The inputs run in a child process that shares the input at hand with its parent, so
// that whatever ends the child, the input it died of is kept (fuzz-finding-NAME).
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

#include "fuzz_input.h"

namespace {

constexpr std::size_t largest_input = 1 << 20;
constexpr unsigned seconds_per_input = 20;

struct shared_state {
  std::uint64_t runs;
  std::size_t size;
  std::uint8_t input[largest_input];
};

std::string content_of(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void run(shared_state* shared, const std::string& input) {
  shared->size = std::min(input.size(), largest_input);
  std::memcpy(shared->input, input.data(), shared->size);
  ++shared->runs;
  alarm(seconds_per_input);
  // An area of just its size, freed again: what keeps a pointer to it shows.
  const std::string just = input.substr(0, shared->size);
  const auto copy = zvrfuzz::exact_copy(just);
  LLVMFuzzerTestOneInput(copy.get(), just.size());
  alarm(0);
}

class mutator {
 public:
  mutator(const std::vector<std::string>& corpus, std::uint32_t seed) : corpus_(corpus), random_(seed) {}

  std::string next() {
    std::string text = corpus_[below(corpus_.size())];
    for (std::size_t i = 1 + below(5); i > 0; --i) change(&text);
    return text;
  }

 private:
  std::size_t below(std::size_t n) { return n == 0 ? 0 : random_() % n; }
  char odd_byte() {
    constexpr unsigned char bytes[] = {0, 1, 0x7F, 0x80, 0xFF, '\n', ':', ' ', '0', '.', '=', '#', 0x1A, 'A'};
    return static_cast<char>(bytes[below(sizeof bytes)]);
  }
  void change(std::string* text) {
    const std::size_t at = below(text->size() + 1);
    const bool inside = at < text->size();
    switch (below(8)) {
      case 0:
        if (inside) (*text)[at] = static_cast<char>((*text)[at] ^ (1 << below(8)));
        break;
      case 1:
        if (inside) (*text)[at] = odd_byte();
        break;
      case 2:
        if (inside) (*text)[at] = static_cast<char>((*text)[at] + 1 - 2 * static_cast<int>(below(2)));
        break;
      case 3:
        text->insert(at, 1 + below(below(4) == 0 ? 300 : 4), odd_byte());
        break;
      case 4:
        text->erase(at, 1 + below(16));
        break;
      case 5:
        text->insert(at, text->substr(below(text->size() + 1), below(64)));
        break;
      case 6: {
        const std::string& other = corpus_[below(corpus_.size())];
        const std::string piece = other.substr(below(other.size() + 1), 1 + below(64));
        text->replace(at, piece.size(), piece);
        break;
      }
      default:
        for (std::size_t i = at; i < std::min(text->size(), at + 4); ++i) (*text)[i] = odd_byte();
    }
  }

  const std::vector<std::string>& corpus_;
  std::mt19937 random_;
};

std::vector<std::string> corpus_in(const char* folder) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  std::vector<std::string> corpus;
  for (const auto& file : files) corpus.push_back(content_of(file));
  return corpus;
}

void run_everything(shared_state* shared, int argc, char** argv) {
  if (!std::filesystem::is_directory(argv[1])) {
    for (int i = 1; i < argc; ++i) run(shared, content_of(argv[i]));
    return;
  }
  const std::vector<std::string> corpus = corpus_in(argv[1]);
  FUZZ_EXPECT(!corpus.empty());
  for (const std::string& input : corpus) run(shared, input);
  mutator mutations(corpus, argc > 3 ? static_cast<std::uint32_t>(std::atol(argv[3])) : 1);
  for (long left = argc > 2 ? std::atol(argv[2]) : 0; left > 0; --left) run(shared, mutations.next());
}

int report(const shared_state* shared, int status, const char* program) {
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
    std::printf("%llu inputs\n", static_cast<unsigned long long>(shared->runs));
    return 0;
  }
  const std::string name = "fuzz-finding-" + std::filesystem::path(program).filename().string();
  std::ofstream(name, std::ios::binary)
      .write(reinterpret_cast<const char*>(shared->input), static_cast<std::streamsize>(shared->size));
  std::fprintf(stderr, "input %llu failed (status %d); it is kept in %s\n",
               static_cast<unsigned long long>(shared->runs), status,
               std::filesystem::absolute(name).c_str());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s CORPUS-FOLDER MUTATIONS [SEED] | FILE...\n", argv[0]);
    return 2;
  }
  void* area = mmap(nullptr, sizeof(shared_state), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (area == MAP_FAILED) return 1;
  auto* shared = static_cast<shared_state*>(area);
  const pid_t child = fork();
  if (child < 0) return 1;
  if (child == 0) {
    run_everything(shared, argc, argv);
    return 0;
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child) return 1;
  return report(shared, status, argv[0]);
}
