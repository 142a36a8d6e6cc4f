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

/// A tree of values as stored in a property list file. Copies are deep.
///
/// Property lists can be read and written by many other programs and by Python's `plistlib`. Both
/// the binary form ("bplist00") and the XML form are read; the binary form is written.
class KESTREL_API PropertyList {
 public:
  using Data = std::vector<uint8_t>;
  using Array = std::vector<PropertyList>;
  using Dictionary = std::map<std::string, PropertyList>;

  /// A point in time in seconds since 2001-01-01 00:00 UTC.
  struct Date {
    double seconds = 0;
    bool operator==(const Date&) const = default;
  };

  /// The number of an object in a keyed archive.
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

  /// The value as a `T`; null if it has another type.
  template <typename T>
  const T* as() const {
    return std::get_if<T>(&value_);
  }
  template <typename T>
  T* as() {
    return std::get_if<T>(&value_);
  }

  /// The value of a number of either type; nullopt for anything else.
  std::optional<double> number() const;

  /// The entry of a dictionary; null if it does not exist or this is not a dictionary.
  const PropertyList* find(const std::string& key) const;

  bool operator==(const PropertyList& other) const { return value_ == other.value_; }

  /// Parses a property list. On failure returns nullopt and sets `error` unless it is null.
  ///
  /// Any bytes are safe: time and memory stay proportional to their number. Rejects objects that
  /// contain themselves, are nested more than 256 levels deep or are reused so often that they
  /// multiply, and integers that do not fit 64 bits with sign.
  static std::optional<PropertyList> fromData(std::span<const uint8_t> bytes,
                                              Error* error = nullptr);

  /// The contents of a file of up to 512 MB; nullopt if it cannot be read.
  static std::optional<Data> bytesOfFile(const std::string& path, Error* error = nullptr);

  /// Reads and parses such a file.
  static std::optional<PropertyList> fromFile(const std::string& path, Error* error = nullptr);

  /// The binary form. Equal strings are stored once.
  Data toData() const;

  /// Replaces a file in one step. On failure returns false and leaves the old file unchanged.
  bool writeToFile(const std::string& path, Error* error = nullptr) const;

 private:
  Value value_;
};

}  // namespace kestrel
