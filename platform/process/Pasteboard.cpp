#include <kestrel/Bundle.h>
#include <kestrel/Pasteboard.h>
#include <kestrel/PropertyList.h>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <utility>

#include "platform/process/PrivateFolder.h"

namespace kestrel {

namespace {

constexpr char kFolder[] = "kestrel-pasteboards";

/// Where pasteboards lie: below the session's own folder, or beside other temporary files; "" where
/// there is no safe place.
std::string folder() {
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime && *runtime == '/') {
    const std::string path = fmt::format("{}/{}", runtime, kFolder);
    if (makePrivateFolder(path)) return path;
  }
  const std::string path = fmt::format("{}/{}-{}", temporaryDirectory(), kFolder, geteuid());
  return makePrivateFolder(path) ? path : "";
}

/// A name as the name of a file: what may mean something there is written by its code.
std::string fileName(const std::string& name) {
  std::string text;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    text += std::isalnum(byte) && byte < 0x80 ? std::string(1, c) : fmt::format("_{:02x}", byte);
  }
  return text + ".plist";
}

/// Keeps other writers away, in this process and others, while it lives.
class WriterLock {
 public:
  explicit WriterLock(const std::string& path)
      : file_(open((path + ".lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600)) {
    while (file_ >= 0 && flock(file_, LOCK_EX) != 0 && errno == EINTR) continue;
  }
  ~WriterLock() {
    if (file_ >= 0) close(file_);
  }
  WriterLock(const WriterLock&) = delete;
  WriterLock& operator=(const WriterLock&) = delete;

 private:
  int file_;
};

PropertyList::Dictionary contents(const std::string& path) {
  const auto list = PropertyList::fromFile(path);
  const auto* texts = list ? list->as<PropertyList::Dictionary>() : nullptr;
  return texts ? *texts : PropertyList::Dictionary{};
}

void store(PropertyList::Dictionary texts, const std::string& path) {
  PropertyList(std::move(texts)).writeToFile(path);
}

}  // namespace

Pasteboard::Pasteboard(std::string name) : name_(std::move(name)) {
  const std::string place = folder();
  if (!place.empty()) path_ = place + "/" + fileName(name_);
}

Pasteboard Pasteboard::pasteboardWithName(const std::string& name) { return Pasteboard(name); }

void Pasteboard::clearContents() {
  if (path_.empty()) return;
  const WriterLock lock(path_);
  store({}, path_);
}

void Pasteboard::setStringForType(const std::string& text, const std::string& type) {
  if (path_.empty()) return;
  const WriterLock lock(path_);
  PropertyList::Dictionary texts = contents(path_);
  texts.insert_or_assign(type, text);
  store(std::move(texts), path_);
}

void Pasteboard::replaceContents(const std::string& text, const std::string& type) {
  if (path_.empty()) return;
  const WriterLock lock(path_);
  store({{type, text}}, path_);
}

std::optional<std::string> Pasteboard::stringForType(const std::string& type) const {
  if (path_.empty()) return std::nullopt;
  const PropertyList::Dictionary texts = contents(path_);
  const auto place = texts.find(type);
  const auto* text = place == texts.end() ? nullptr : place->second.as<std::string>();
  return text ? std::optional(*text) : std::nullopt;
}

}  // namespace kestrel
