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

/// How many times as long as the archive the texts and data may be that it hands out, when each use
/// is counted: a few are stored once and used often.
constexpr size_t kMostRepetition = 64;
constexpr size_t kSparedBytes = size_t{1} << 16;

PropertyList readArchive(std::span<const uint8_t> bytes) {
  Error error;
  auto list = PropertyList::fromData(bytes, &error);
  if (!list) throw ArchiveError("it is no archive: " + error.message);
  return std::move(*list);
}

}  // namespace

struct KeyedUnarchiver::State {
  using BuiltIn = CodedValue (State::*)(const Dictionary& object);

  /// How objects of a class are made: by the one or by the other.
  struct Kind {
    BuiltIn builtIn = nullptr;
    CodingFactory factory;
  };

  PropertyList archive;
  const PropertyList::Array* objects = nullptr;
  const Dictionary* values = nullptr;  // of the object that is being made
  std::map<uint32_t, CodedValue> made;
  std::set<uint32_t> unfinished;
  std::map<uint32_t, Kind> kinds;  // of the classes, by the number of their object
  size_t bytesLeft = 0;
  KeyedUnarchiver* unarchiver = nullptr;

  explicit State(std::span<const uint8_t> bytes)
      : archive(readArchive(bytes)), bytesLeft(bytes.size() * kMostRepetition + kSparedBytes) {
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
    CodedValue decoded = uid ? decode(*uid) : plain(value);
    if (const auto* text = std::get_if<std::string>(&decoded.value())) spend(text->size());
    if (const auto* data = std::get_if<CodedValue::Data>(&decoded.value())) spend(data->size());
    return decoded;
  }

  /// Counts what is handed out as a copy.
  void spend(size_t bytes) {
    if (bytes > bytesLeft) throw ArchiveError("its texts multiply");
    bytesLeft -= bytes;
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

  /// What an object's class is understood as: that class itself, or the first one known of those
  /// that it derives from.
  const Kind& kindOf(const Dictionary& object) {
    const Uid uid = require<Uid>(object, keys::kClass);
    const auto known = kinds.find(uid.value);
    if (known != kinds.end()) return known->second;
    const auto* names = stored(uid).as<Dictionary>();
    if (!names) throw ArchiveError("a class is no class");
    const auto& name = require<std::string>(*names, keys::kClassName);
    std::optional<Kind> kind = kindNamed(name);
    const auto place = names->find(keys::kClasses);
    const auto* bases = place == names->end() ? nullptr : place->second.as<PropertyList::Array>();
    for (size_t i = 0; !kind && bases && i < bases->size(); ++i)
      if (const auto* base = (*bases)[i].as<std::string>()) kind = kindNamed(*base);
    if (!kind) throw ArchiveError("the class '" + name + "' is unknown");
    return kinds.emplace(uid.value, std::move(*kind)).first->second;
  }

  static std::optional<Kind> kindNamed(const std::string& name) {
    static const std::map<std::string, BuiltIn> kBuiltIn{
        {"NSArray", &State::list},      {"NSSet", &State::list},
        {"NSOrderedSet", &State::list}, {"NSDictionary", &State::dictionary},
        {"NSString", &State::text},     {"NSData", &State::data},
        {"NSDate", &State::date},       {"NSNull", &State::nothing},
        {"NSValue", &State::structure}};
    const auto place = kBuiltIn.find(name);
    if (place != kBuiltIn.end()) return Kind{place->second, nullptr};
    CodingFactory factory = codingFactory(name);
    return factory ? std::optional(Kind{nullptr, std::move(factory)}) : std::nullopt;
  }

  CodedValue instance(const Dictionary& object) {
    const Kind& kind = kindOf(object);
    return kind.builtIn ? (this->*kind.builtIn)(object) : make(kind.factory, object);
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

  CodedValue text(const Dictionary& object) { return require<std::string>(object, keys::kString); }
  CodedValue data(const Dictionary& object) {
    return require<PropertyList::Data>(object, keys::kData);
  }
  CodedValue date(const Dictionary& object) {
    return PropertyList::Date{require<double>(object, keys::kTime)};
  }
  CodedValue nothing(const Dictionary& /*object*/) { return {}; }

  CodedValue list(const Dictionary& object) {
    CodedValue::Array values_of_it;
    for (const PropertyList& reference : require<PropertyList::Array>(object, keys::kListObjects))
      values_of_it.push_back(decode(reference));
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
