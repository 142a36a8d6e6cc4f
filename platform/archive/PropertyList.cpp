#include <kestrel/AtomicFile.h>
#include <kestrel/PropertyList.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

#include "platform/archive/BinaryPropertyList.h"
#include "platform/archive/XmlPropertyList.h"

namespace kestrel {

namespace {

constexpr size_t kLargestFile = size_t{512} << 20;

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

Error systemError() { return {-errno, std::generic_category().message(errno)}; }

Error readFile(const std::string& path, PropertyList::Data& bytes) {
  const std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rbe"));
  if (!file) return systemError();
  uint8_t block[1 << 16];
  while (const size_t count = std::fread(block, 1, sizeof block, file.get())) {
    if (bytes.size() + count > kLargestFile) return {-EFBIG, "it is too large"};
    bytes.insert(bytes.end(), block, block + count);
  }
  return std::ferror(file.get()) ? systemError() : Error{};
}

}  // namespace

PropertyList::~PropertyList() = default;
PropertyList::PropertyList(const PropertyList& other) = default;
PropertyList::PropertyList(PropertyList&& other) noexcept = default;
PropertyList& PropertyList::operator=(const PropertyList& other) = default;
PropertyList& PropertyList::operator=(PropertyList&& other) noexcept = default;

std::optional<double> PropertyList::number() const {
  if (const auto* whole = as<int64_t>()) return static_cast<double>(*whole);
  if (const auto* real = as<double>()) return *real;
  return std::nullopt;
}

const PropertyList* PropertyList::find(const std::string& key) const {
  const auto* dictionary = as<Dictionary>();
  if (!dictionary) return nullptr;
  const auto place = dictionary->find(key);
  return place == dictionary->end() ? nullptr : &place->second;
}

std::optional<PropertyList> PropertyList::fromData(std::span<const uint8_t> bytes, Error* error) {
  try {
    return isXmlPropertyList(bytes) ? readXmlPropertyList(bytes) : readBinaryPropertyList(bytes);
  } catch (const PropertyListError& problem) {
    if (error) *error = {-EILSEQ, problem.what()};
    return std::nullopt;
  }
}

std::optional<PropertyList::Data> PropertyList::bytesOfFile(const std::string& path, Error* error) {
  Data bytes;
  const Error failure = readFile(path, bytes);
  if (!failure) return bytes;
  if (error) *error = failure;
  return std::nullopt;
}

std::optional<PropertyList> PropertyList::fromFile(const std::string& path, Error* error) {
  const auto bytes = bytesOfFile(path, error);
  return bytes ? fromData(*bytes, error) : std::nullopt;
}

PropertyList::Data PropertyList::toData() const {
  Data all;
  writeBinaryPropertyList(*this, [&](std::span<const uint8_t> bytes) {
    all.insert(all.end(), bytes.begin(), bytes.end());
  });
  return all;
}

bool PropertyList::writeToFile(const std::string& path, Error* error) const {
  AtomicFile file(path);
  writeBinaryPropertyList(*this, [&](std::span<const uint8_t> bytes) { file.write(bytes); });
  const Error failure = file.commit();
  if (error && failure) *error = failure;
  return !failure;
}

}  // namespace kestrel
