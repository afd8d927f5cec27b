#include "support/Worker.h"

#include <filesystem>
#include <map>
#include <stdexcept>
#include <utility>

namespace vak::test {
namespace {

constexpr const char* kAsked = "--worker";

std::map<std::string, Worker::Work>& Workers() {
  static std::map<std::string, Worker::Work> workers;
  return workers;
}

}  // namespace

Worker::Worker(std::string name, Work work) : name_(std::move(name)) {
  if (!Workers().emplace(name_, work).second) throw std::logic_error("two workers of one name");
}

Worker::Words Worker::Line(Words arguments) const {
  arguments.insert(arguments.begin(), {std::filesystem::read_symlink("/proc/self/exe").string(), kAsked, name_});
  return arguments;
}

bool Worker::RunIfAsked(int argc, char** argv, int& status) {
  if (argc < 3 || std::string(argv[1]) != kAsked) return false;
  status = Workers().at(argv[2])(Words(argv + 3, argv + argc));
  return true;
}

}  // namespace vak::test
