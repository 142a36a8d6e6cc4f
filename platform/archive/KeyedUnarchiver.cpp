#include <kestrel/KeyedUnarchiver.h>

#include <array>
#include <charconv>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "platform/archive/CodingClasses.h"

namespace kestrel {

namespace keys = archive_keys;

namespace {

using Dictionary = PropertyList::Dictionary;
using Uid = PropertyList::Uid;

/// The numbers in a text such as "{{1, 2}, {3, 4}}"; throws when they are not as many.
template <size_t kCount>
std::array<double, kCount> numbersIn(const std::string& text) {
  std::array<double, kCount> numbers{};
  size_t count = 0;
  const char* const end = text.data() + text.size();
  for (const char* place = text.data(); place < end;) {
    if (std::string_view("{}, ").find(*place) != std::string_view::npos) {
      ++place;
      continue;
    }
    double number = 0;
    const auto [next, problem] = std::from_chars(place, end, number);
    if (problem != std::errc{} || count == kCount)
      throw ArchiveError("a structure's text is damaged");
    numbers[count++] = number;
    place = next;
  }
  if (count != kCount) throw ArchiveError("a structure's text is damaged");
  return numbers;
}

/// A dictionary's entry of a kind; throws when it is missing or of another.
template <typename T>
const T& require(const Dictionary& dictionary, const char* key) {
  const auto place = dictionary.find(key);
  const T* value = place == dictionary.end() ? nullptr : place->second.as<T>();
  if (!value) throw ArchiveError(std::string("'") + key + "' is missing or of the wrong kind");
  return *value;
}

PropertyList readArchive(std::span<const uint8_t> bytes) {
  Error error;
  auto list = PropertyList::fromData(bytes, &error);
  if (!list) throw ArchiveError("it is no archive: " + error.message);
  return std::move(*list);
}

}  // namespace

struct KeyedUnarchiver::State {
  PropertyList archive;
  const PropertyList::Array* objects = nullptr;
  const Dictionary* values = nullptr;  // of the object that is being made
  std::map<uint32_t, CodedValue> made;
  std::set<uint32_t> unfinished;
  KeyedUnarchiver* unarchiver = nullptr;

  explicit State(std::span<const uint8_t> bytes) : archive(readArchive(bytes)) {
    const auto* whole = archive.as<Dictionary>();
    if (!whole) throw ArchiveError("it is no archive");
    if (require<std::string>(*whole, keys::kArchiver) != keys::kArchiverName)
      throw ArchiveError("it is an archive of another kind");
    objects = &require<PropertyList::Array>(*whole, keys::kObjects);
    values = &require<Dictionary>(*whole, keys::kTop);
  }

  const PropertyList* entry(const std::string& key) const {
    const auto place = values->find(storedKey(key));
    return place == values->end() ? nullptr : &place->second;
  }

  const PropertyList& stored(Uid uid) const {
    if (uid.value >= objects->size())
      throw ArchiveError("it refers to an object that it does not have");
    return (*objects)[uid.value];
  }

  CodedValue decode(const PropertyList& value) {
    const Uid* uid = value.as<Uid>();
    return uid ? decode(*uid) : plain(value);
  }

  CodedValue decode(Uid uid) {
    const auto known = made.find(uid.value);
    if (known != made.end()) return known->second;
    if (unfinished.size() >= kDeepestArchive)
      throw ArchiveError("its objects lie too deep in each other");
    if (!unfinished.insert(uid.value).second) throw ArchiveError("an object contains itself");
    const PropertyList& object = stored(uid);
    const auto* dictionary = object.as<Dictionary>();
    CodedValue value = dictionary ? instance(*dictionary) : plain(object);
    unfinished.erase(uid.value);
    made.emplace(uid.value, value);
    return value;
  }

  static CodedValue plain(const PropertyList& value) {
    if (const auto* text = value.as<std::string>())
      return *text == keys::kNull ? CodedValue() : CodedValue(*text);
    if (const auto* flag = value.as<bool>()) return *flag;
    if (const auto* whole = value.as<int64_t>()) return *whole;
    if (const auto* real = value.as<double>()) return *real;
    if (const auto* data = value.as<PropertyList::Data>()) return *data;
    if (const auto* date = value.as<PropertyList::Date>()) return *date;
    throw ArchiveError("an object is of an unknown kind");
  }

  /// The names of an object's class and of those that it derives from.
  std::vector<std::string> classNames(const Dictionary& object) const {
    const auto* names = stored(require<Uid>(object, keys::kClass)).as<Dictionary>();
    if (!names) throw ArchiveError("a class is no class");
    std::vector<std::string> all{require<std::string>(*names, keys::kClassName)};
    const auto place = names->find(keys::kClasses);
    const auto* list = place == names->end() ? nullptr : place->second.as<PropertyList::Array>();
    if (!list) return all;
    for (const PropertyList& name : *list)
      if (const auto* text = name.as<std::string>()) all.push_back(*text);
    return all;
  }

  CodedValue instance(const Dictionary& object) {
    const std::vector<std::string> names = classNames(object);
    for (const std::string& name : names) {
      if (const auto value = builtIn(name, object)) return *value;
      if (const auto factory = codingFactory(name)) return make(factory, object);
    }
    throw ArchiveError("the class '" + names.front() + "' is unknown");
  }

  CodedValue make(const CodingFactory& factory, const Dictionary& object) {
    const Dictionary* const outer = std::exchange(values, &object);
    try {
      CodedValue value = factory(*unarchiver);
      values = outer;
      return value;
    } catch (...) {
      values = outer;
      throw;
    }
  }

  std::optional<CodedValue> builtIn(const std::string& name, const Dictionary& object) {
    if (name == "NSArray" || name == "NSSet" || name == "NSOrderedSet")
      return list(require<PropertyList::Array>(object, keys::kListObjects));
    if (name == "NSDictionary") return dictionary(object);
    if (name == "NSString") return require<std::string>(object, keys::kString);
    if (name == "NSData") return require<PropertyList::Data>(object, keys::kData);
    if (name == "NSDate") return PropertyList::Date{require<double>(object, keys::kTime)};
    if (name == "NSNull") return CodedValue();
    if (name == "NSValue") return structure(object);
    return std::nullopt;
  }

  CodedValue list(const PropertyList::Array& references) {
    CodedValue::Array values_of_it;
    for (const PropertyList& reference : references) values_of_it.push_back(decode(reference));
    return values_of_it;
  }

  CodedValue dictionary(const Dictionary& object) {
    const auto& names = require<PropertyList::Array>(object, keys::kListKeys);
    const auto& references = require<PropertyList::Array>(object, keys::kListObjects);
    if (names.size() != references.size())
      throw ArchiveError("a dictionary has more keys than values, or fewer");
    CodedValue::Dictionary entries;
    for (size_t i = 0; i < names.size(); ++i)
      entries.insert_or_assign(decode(names[i]).as<std::string>(), decode(references[i]));
    return entries;
  }

  std::string structureText(const Dictionary& object, const char* key) {
    const auto place = object.find(key);
    if (place == object.end()) throw ArchiveError("a structure is incomplete");
    return decode(place->second).as<std::string>();
  }

  CodedValue structure(const Dictionary& object) {
    switch (require<int64_t>(object, keys::kStructure)) {
      case 1: {
        const auto [x, y] = numbersIn<2>(structureText(object, keys::kPoint));
        return Point{x, y};
      }
      case 2: {
        const auto [width, height] = numbersIn<2>(structureText(object, keys::kSize));
        return Size{width, height};
      }
      case 3: {
        const auto [x, y, width, height] = numbersIn<4>(structureText(object, keys::kRect));
        return Rect{{x, y}, {width, height}};
      }
      default:
        throw ArchiveError("a structure is of an unknown kind");
    }
  }
};

KeyedUnarchiver::KeyedUnarchiver(std::span<const uint8_t> bytes)
    : state_(std::make_unique<State>(bytes)) {
  state_->unarchiver = this;
}

KeyedUnarchiver::~KeyedUnarchiver() = default;

bool KeyedUnarchiver::containsValueForKey(const std::string& key) const {
  return state_->entry(key) != nullptr;
}

CodedValue KeyedUnarchiver::decodeObjectForKey(const std::string& key) {
  const PropertyList* entry = state_->entry(key);
  return entry ? state_->decode(*entry) : CodedValue();
}

double KeyedUnarchiver::decodeDoubleForKey(const std::string& key) {
  const CodedValue value = decodeObjectForKey(key);
  return value.isNull() ? 0 : value.as<double>();
}

int64_t KeyedUnarchiver::decodeInt64ForKey(const std::string& key) {
  const CodedValue value = decodeObjectForKey(key);
  return value.isNull() ? 0 : value.as<int64_t>();
}

bool KeyedUnarchiver::decodeBoolForKey(const std::string& key) {
  const CodedValue value = decodeObjectForKey(key);
  return !value.isNull() && value.as<bool>();
}

CodedValue KeyedUnarchiver::rootObject() { return decodeObjectForKey(keys::kRoot); }

CodedValue KeyedUnarchiver::unarchiveObjectWithFile(const std::string& path) {
  Error error;
  const auto bytes = PropertyList::bytesOfFile(path, &error);
  if (!bytes) throw ArchiveError("cannot read '" + path + "': " + error.message);
  return KeyedUnarchiver(*bytes).rootObject();
}

}  // namespace kestrel
