#include <kestrel/AtomicFile.h>
#include <kestrel/CodingBase.h>
#include <kestrel/KeyedArchiver.h>
#include <kestrel/KeyedUnarchiver.h>
#include <kestrel/Log.h>

#include <fmt/format.h>

#include <filesystem>
#include <system_error>

namespace kestrel {

namespace {

[[noreturn]] void unknownKey(const std::string& key) {
  throw ArchiveError(fmt::format("there is no property '{}'", key));
}

}  // namespace

std::vector<std::string> CodingBase::allCoderKeys() const { return {}; }

CodedValue CodingBase::valueForKey(const std::string& key) const { unknownKey(key); }

void CodingBase::setValueForKey(const CodedValue& /*value*/, const std::string& key) {
  unknownKey(key);
}

std::shared_ptr<CodingBase> CodingBase::alloc() const { return std::make_shared<CodingBase>(); }

void CodingBase::tryBlock(const std::function<void()>& block) const {
  try {
    block();
  } catch (const std::exception& problem) {
    log(problem.what());
  } catch (...) {
    log("an unknown exception");
  }
}

void CodingBase::encoder(KeyedArchiver& archiver, const std::string& key) const {
  archiver.encodeObject(valueForKey(key), key);
}

void CodingBase::decoder(KeyedUnarchiver& unarchiver, const std::string& key) {
  if (unarchiver.containsValueForKey(key)) setValueForKey(unarchiver.decodeObjectForKey(key), key);
}

void CodingBase::copyTo(CodingBase& target, const std::string& key) const {
  target.setValueForKey(valueForKey(key), key);
}

std::string CodingBase::codingName() const { return "CodingBase"; }

void CodingBase::encodeWithCoder(KeyedArchiver& archiver) const {
  for (const std::string& key : allCoderKeys()) encoder(archiver, key);
}

void CodingBase::initWithCoder(KeyedUnarchiver& unarchiver) {
  for (const std::string& key : allCoderKeys()) decoder(unarchiver, key);
}

std::shared_ptr<CodingBase> CodingBase::copy() const {
  auto other = alloc();
  for (const std::string& key : allCoderKeys()) copyTo(*other, key);
  return other;
}

bool CodingBase::writeToFile(const std::string& path, bool /*atomically*/) const {
  tryBlock([&] {
    KeyedArchiver archiver;
    for (const std::string& key : allCoderKeys()) encoder(archiver, key);
    const PropertyList::Data bytes = archiver.finishEncoding();
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    if (const Error error = replaceFile(path, bytes))
      log(fmt::format("cannot write '{}': {}", path, error.message));
  });
  return true;
}

void CodingBase::initWithContentsOfFile(const std::string& path) {
  tryBlock([&] {
    Error error;
    const auto bytes = PropertyList::bytesOfFile(path, &error);
    if (!bytes) return log(fmt::format("cannot read '{}': {}", path, error.message));
    KeyedUnarchiver unarchiver(*bytes);
    for (const std::string& key : allCoderKeys()) decoder(unarchiver, key);
  });
}

}  // namespace kestrel
