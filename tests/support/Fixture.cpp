#include "tests/support/Fixture.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

#include "tests/support/FixtureTable.h"
#include "tests/support/Hash.h"
#include "tests/support/Process.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

const fs::path kSourceDir = KESTREL_SOURCE_DIR;
const fs::path kListedDir = kSourceDir / "tests" / "fixtures";

/// Held by one process at a time; the kernel lets go of it when a process dies.
class FileLock {
 public:
  explicit FileLock(const fs::path& path)
      : descriptor_(open(path.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0644)) {
    if (descriptor_ < 0 || flock(descriptor_, LOCK_EX) != 0) {
      throw std::system_error(errno, std::generic_category(), path.string());
    }
  }
  ~FileLock() { close(descriptor_); }
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

 private:
  int descriptor_;
};

std::string readAll(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

const FixtureTable& table() {
  static const FixtureTable kTable = [] {
    const fs::path list = kListedDir / "fixtures.txt";
    std::ifstream text(list);
    if (!text) throw std::runtime_error("cannot read " + list.string());
    return readFixtureTable(text);
  }();
  return kTable;
}

bool isFileOfOurs(const std::string& name) { return fs::exists(kListedDir / name); }

std::string unknown(const std::string& name) {
  return "no fixture '" + name + "' in tests/fixtures/fixtures.txt";
}

/// Covers the command and all that it reads.
uint64_t contentHash(const std::string& name) {
  const auto row = table().find(name);
  if (row == table().end()) {
    if (!isFileOfOurs(name)) throw std::runtime_error(unknown(name));
    return hash(readAll(kListedDir / name));
  }
  uint64_t result = hash(name);
  for (const std::string& argument : row->second) {
    const std::string text = withFixturePaths(
        argument, [&](const std::string& input) { return hexadecimal(contentHash(input)); });
    result = hash(text + '\n', result);
  }
  return result;
}

void make(const std::string& name, const fs::path& file) {
  const fs::path partial =
      file.parent_path() / ("partial-" + std::to_string(getpid()) + file.extension().string());
  std::vector<std::string> command{"ffmpeg", "-v", "error", "-nostdin", "-y"};
  for (const std::string& argument : table().at(name)) {
    command.push_back(withFixturePaths(
        argument, [](const std::string& input) { return fixture(input).string(); }));
  }
  command.push_back(partial.string());

  const RunResult result = run(command);
  if (result.status != 0) {
    fs::remove(partial);
    throw std::runtime_error("cannot make fixture '" + name + "': " + result.err);
  }
  fs::rename(partial, file);
}

}  // namespace

fs::path fixtureDir() {
  const char* folder = std::getenv("KESTREL_FIXTURE_DIR");
  return folder != nullptr && *folder != '\0' ? folder : KESTREL_FIXTURE_DIR;
}

fs::path fixture(const std::string& name) {
  if (!table().contains(name) && isFileOfOurs(name)) return kListedDir / name;

  const fs::path folder = fixtureDir() / hexadecimal(contentHash(name));
  const fs::path file = folder / name;
  if (fs::exists(file)) return file;

  fs::create_directories(folder);
  const FileLock lock(folder / "lock");
  if (!fs::exists(file)) make(name, file);
  return file;
}

fs::path discFixture(const std::string& name) {
  const fs::path script = kListedDir / "dvd" / "make_disc.py";
  const fs::path folder = fixtureDir() / hexadecimal(hash(name, hash(readAll(script))));
  const fs::path finished = folder / "disc";
  if (fs::exists(finished)) return finished;

  fs::create_directories(folder);
  const FileLock lock(folder / "lock");
  if (fs::exists(finished)) return finished;
  const fs::path partial = folder / ("partial-" + std::to_string(getpid()));
  fs::create_directories(partial);
  const RunResult result = run({"python3", script.string(), name, partial.string()});
  if (result.status != 0) {
    fs::remove_all(partial);
    throw std::runtime_error("cannot make disc '" + name + "': " + result.err);
  }
  fs::rename(partial, finished);
  return finished;
}

std::vector<std::string> fixtureNames() {
  std::vector<std::string> names;
  for (const auto& [name, arguments] : table()) names.push_back(name);
  return names;
}

fs::path mediaFile(const std::string& name) {
  const char* folder = std::getenv("KESTREL_MEDIA_DIR");
  if (folder != nullptr && *folder != '\0') return fs::path(folder) / name;
  return (kSourceDir / ".." / "shared" / "media" / name).lexically_normal();
}

}  // namespace kestrel::test
