#pragma once

#include <kestrel/Error.h>
#include <kestrel/Export.h>

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace kestrel {

/// A tree of plain values: what a property list file holds. It is a value like any other; copying
/// it copies the whole tree.
///
/// Files are property lists, which many other programs and Python's `plistlib` read and write. Both
/// the binary form ("bplist00") and the XML one are read; the binary one is written.
class KESTREL_API PropertyList {
 public:
  using Data = std::vector<uint8_t>;
  using Array = std::vector<PropertyList>;
  using Dictionary = std::map<std::string, PropertyList>;

  /// A moment, in seconds since 2001-01-01 00:00 UTC.
  struct Date {
    double seconds = 0;
    bool operator==(const Date&) const = default;
  };

  /// A number that stands for an object of a keyed archive.
  struct Uid {
    uint32_t value = 0;
    bool operator==(const Uid&) const = default;
  };

  using Value =
      std::variant<bool, int64_t, double, std::string, Data, Date, Uid, Array, Dictionary>;

  PropertyList() : value_(Dictionary{}) {}
  ~PropertyList();
  PropertyList(const PropertyList& other);
  PropertyList(PropertyList&& other) noexcept;
  PropertyList& operator=(const PropertyList& other);
  PropertyList& operator=(PropertyList&& other) noexcept;
  PropertyList(bool value) : value_(value) {}
  PropertyList(int value) : value_(int64_t{value}) {}
  PropertyList(int64_t value) : value_(value) {}
  PropertyList(double value) : value_(value) {}
  PropertyList(const char* value) : value_(std::string(value)) {}
  PropertyList(std::string value) : value_(std::move(value)) {}
  PropertyList(Data value) : value_(std::move(value)) {}
  PropertyList(Date value) : value_(value) {}
  PropertyList(Uid value) : value_(value) {}
  PropertyList(Array value) : value_(std::move(value)) {}
  PropertyList(Dictionary value) : value_(std::move(value)) {}

  const Value& value() const { return value_; }

  /// The value of a kind, null when this is of another.
  template <typename T>
  const T* as() const {
    return std::get_if<T>(&value_);
  }
  template <typename T>
  T* as() {
    return std::get_if<T>(&value_);
  }

  /// A number of either kind.
  std::optional<double> number() const;

  /// A dictionary's entry; null where there is none and when this is no dictionary.
  const PropertyList* find(const std::string& key) const;

  bool operator==(const PropertyList& other) const { return value_ == other.value_; }

  /// Reads a property list; none when it is not one, and `error`, where given, tells why.
  ///
  /// Whatever the bytes are, reading ends soon and takes memory in proportion to their number:
  /// objects that contain themselves, that lie more than 256 deep or that are used over and over
  /// to multiply are refused. Integers of more than 64 bits with sign are, too.
  static std::optional<PropertyList> fromData(std::span<const uint8_t> bytes,
                                              Error* error = nullptr);

  /// The bytes of a file of up to 512 MB, none when it can't be read.
  static std::optional<Data> bytesOfFile(const std::string& path, Error* error = nullptr);

  /// Reads such a file as a property list.
  static std::optional<PropertyList> fromFile(const std::string& path, Error* error = nullptr);

  /// The binary form. Equal strings are stored once.
  Data toData() const;

  /// Replaces a file as a whole; false when it could not be written, and the old file is then as it
  /// was.
  bool writeToFile(const std::string& path, Error* error = nullptr) const;

 private:
  Value value_;
};

}  // namespace kestrel
