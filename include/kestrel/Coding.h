#pragma once

#include <kestrel/Export.h>
#include <kestrel/Geometry.h>
#include <kestrel/PropertyList.h>

#include <concepts>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace kestrel {

class KeyedArchiver;
class KeyedUnarchiver;

/// Thrown by the archiver and the unarchiver: a graph cannot be stored, bytes are not an archive,
/// or a value has the wrong type. `what()` is one sentence.
class ArchiveError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// An object that can be stored in a keyed archive and restored from it.
class KESTREL_API Coding {
 public:
  virtual ~Coding();

  /// The name under which the class is stored.
  virtual std::string codingName() const = 0;

  /// Stores the object's values, each under a key.
  virtual void encodeWithCoder(KeyedArchiver& archiver) const = 0;
};

/// A value in an archive or passed between objects: nothing, a number, a text, bytes, a date, a
/// geometric structure, or a reference to a list, a dictionary or an object.
///
/// Lists, dictionaries and objects are shared: copies of the value refer to the same one.
class KESTREL_API CodedValue {
 public:
  using Array = std::vector<CodedValue>;
  using Dictionary = std::map<std::string, CodedValue>;
  using Data = PropertyList::Data;
  using Date = PropertyList::Date;
  using Value = std::variant<std::monostate, bool, int64_t, double, std::string, Data, Date, Point,
                             Size, Rect, std::shared_ptr<Array>, std::shared_ptr<Dictionary>,
                             std::shared_ptr<Coding>>;

  CodedValue() = default;
  CodedValue(bool value) : value_(value) {}
  CodedValue(int value) : value_(int64_t{value}) {}
  CodedValue(int64_t value) : value_(value) {}
  CodedValue(double value) : value_(value) {}
  CodedValue(const char* value) : value_(std::string(value)) {}
  CodedValue(std::string value) : value_(std::move(value)) {}
  CodedValue(Data value) : value_(std::move(value)) {}
  CodedValue(Date value) : value_(value) {}
  CodedValue(Point value) : value_(value) {}
  CodedValue(Size value) : value_(value) {}
  CodedValue(Rect value) : value_(value) {}
  CodedValue(Array value) : value_(std::make_shared<Array>(std::move(value))) {}
  CodedValue(Dictionary value) : value_(std::make_shared<Dictionary>(std::move(value))) {}
  CodedValue(std::shared_ptr<Array> value);
  CodedValue(std::shared_ptr<Dictionary> value);
  CodedValue(std::shared_ptr<Coding> value);
  template <std::derived_from<Coding> T>
  CodedValue(std::shared_ptr<T> value) : CodedValue(std::shared_ptr<Coding>(std::move(value))) {}

  const Value& value() const { return value_; }
  bool isNull() const { return std::holds_alternative<std::monostate>(value_); }

  /// The value as a `T`, one of the variant's types; throws `ArchiveError` if it has another type.
  /// A number of either type can be read as a `double`.
  template <typename T>
  T as() const {
    if constexpr (std::is_same_v<T, double>) {
      if (const auto* whole = std::get_if<int64_t>(&value_)) return static_cast<double>(*whole);
    }
    const T* value = std::get_if<T>(&value_);
    if (!value) throw ArchiveError("a value is of another kind than the one expected");
    return *value;
  }

  /// The object as a `T`; null if there is no value. Throws `ArchiveError` if it is something else.
  template <typename T>
  std::shared_ptr<T> object() const {
    if (isNull()) return nullptr;
    auto object = std::dynamic_pointer_cast<T>(as<std::shared_ptr<Coding>>());
    if (!object) throw ArchiveError("an object is of another class than the one expected");
    return object;
  }

  /// The text; nullopt if there is no value. Throws `ArchiveError` if it is something else.
  std::optional<std::string> text() const;

  /// Equal values, or the same shared list, dictionary or object.
  bool operator==(const CodedValue& other) const { return value_ == other.value_; }

 private:
  Value value_;
};

/// Makes an object of a class from the unarchiver, which is positioned at that object's values.
using CodingFactory = std::function<std::shared_ptr<Coding>(KeyedUnarchiver& unarchiver)>;

/// Tells every unarchiver of the process how to make the class stored as `name`; replaces an
/// earlier registration of that name. Safe from any thread.
KESTREL_API void registerCodingClass(const std::string& name, CodingFactory factory);

}  // namespace kestrel
