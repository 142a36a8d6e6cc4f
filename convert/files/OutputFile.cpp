#include <kestrel/convert/OutputFile.h>

#include <kestrel/convert/Failure.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace kestrel {

namespace fs = std::filesystem;

namespace {

/// The target, where nothing speaks against it before anything is written.
const std::string& sensible(const std::string& target, bool replaces, const std::string& input) {
  if (target.empty()) throw Failure::settings("the output's name is empty", "output");
  std::error_code error;
  const bool isFile = fs::is_regular_file(target, error);
  if (isFile && !input.empty() && fs::equivalent(target, input, error))
    throw Failure::output(target, "'" + target + "' is the input itself; choose another output");
  if (isFile && !replaces) throw Failure(Failure::Kind::kExists, "'" + target + "' exists", target);
  return target;
}

}  // namespace

OutputFile::OutputFile(const std::string& target, bool replaces, const std::string& input)
    : target_(sensible(target, replaces, input)),
      file_(target, replaces ? AtomicFile::Existing::kReplace : AtomicFile::Existing::kKeep) {
  require(file_.error());
}

void OutputFile::require(const Error& error) const {
  if (!error) return;
  if (error.code == -EEXIST)
    throw Failure(Failure::Kind::kExists, "'" + target_ + "' exists", target_);
  throw Failure::output(target_, "cannot write '" + target_ + "': " + error.message);
}

void OutputFile::write(std::span<const uint8_t> bytes) {
  file_.write(bytes);
  require(file_.error());
}

void OutputFile::write(std::string_view text) {
  write({reinterpret_cast<const uint8_t*>(text.data()), text.size()});
}

void OutputFile::commit() { require(file_.commit()); }

}  // namespace kestrel
