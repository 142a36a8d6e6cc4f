#include <kestrel/AtomicFile.h>
#include <kestrel/KeyedArchiver.h>

#include <fmt/format.h>

#include <optional>

#include "platform/archive/CodingClasses.h"

namespace kestrel {

namespace keys = archive_keys;

namespace {

/// Structures as text, each number with all the digits that it takes to read it back.
std::string textOf(Point point) { return fmt::format("{{{}, {}}}", point.x, point.y); }
std::string textOf(Size size) { return fmt::format("{{{}, {}}}", size.width, size.height); }
std::string textOf(const Rect& rect) {
  return fmt::format("{{{}, {}}}", textOf(rect.origin), textOf(rect.size));
}

}  // namespace

struct KeyedArchiver::State {
  using Dictionary = PropertyList::Dictionary;
  using Uid = PropertyList::Uid;

  PropertyList::Array objects{keys::kNull};
  Dictionary top;
  Dictionary* values = &top;               // of the object that is being encoded
  std::map<const void*, Uid> shared;       // by the shared object's address
  std::map<const void*, bool> unfinished;  // those among them whose values are not all known
  std::vector<CodedValue> kept;            // so that no address is used twice
  std::map<std::string, Uid> classes;
  std::map<std::string, Uid> texts;
  int depth = 0;

  Uid append(PropertyList object) {
    objects.push_back(std::move(object));
    return {static_cast<uint32_t>(objects.size() - 1)};
  }

  Uid classUid(const std::string& name) {
    const auto known = classes.find(name);
    if (known != classes.end()) return known->second;
    PropertyList::Array names{name};
    if (name != keys::kRootClass) names.push_back(keys::kRootClass);
    const Uid uid = append(Dictionary{{keys::kClassName, name}, {keys::kClasses, names}});
    return classes[name] = uid;
  }

  /// Stores what `object` refers to, which `fill` answers, once.
  template <typename Fill>
  Uid encodeShared(const void* object, const CodedValue& value, Fill fill) {
    if (unfinished.contains(object))
      throw ArchiveError("an object that contains itself cannot be stored");
    const auto known = shared.find(object);
    if (known != shared.end()) return known->second;
    if (++depth > kDeepestArchive)
      throw ArchiveError("objects lie too deep in each other to be stored");
    unfinished[object] = true;
    kept.push_back(value);
    const Uid uid = append(Dictionary{});
    Dictionary filled = fill();
    objects[uid.value] = std::move(filled);
    unfinished.erase(object);
    --depth;
    return shared[object] = uid;
  }

  Uid structure(int64_t kind, const char* key, const std::string& text) {
    Dictionary values_of_it{{keys::kStructure, kind}, {key, encode(text)}};
    values_of_it[keys::kClass] = classUid("NSValue");
    return append(std::move(values_of_it));
  }

  Uid encode(std::monostate /*nothing*/, const CodedValue& /*value*/) { return {0}; }
  Uid encode(bool value, const CodedValue& /*whole*/) { return append(value); }
  Uid encode(int64_t value, const CodedValue& /*whole*/) { return append(value); }
  Uid encode(double value, const CodedValue& /*whole*/) { return append(value); }
  Uid encode(const CodedValue::Data& value, const CodedValue& /*whole*/) { return append(value); }

  Uid encode(const std::string& value, const CodedValue& /*whole*/) {
    const auto known = texts.find(value);
    if (known != texts.end()) return known->second;
    // A text that would be taken for "nothing" is boxed.
    const Uid uid =
        value == keys::kNull
            ? append(Dictionary{{keys::kString, value}, {keys::kClass, classUid("NSString")}})
            : append(value);
    return texts[value] = uid;
  }

  Uid encode(CodedValue::Date value, const CodedValue& /*whole*/) {
    return append(Dictionary{{keys::kTime, value.seconds}, {keys::kClass, classUid("NSDate")}});
  }

  Uid encode(Point value, const CodedValue& /*whole*/) {
    return structure(1, keys::kPoint, textOf(value));
  }
  Uid encode(Size value, const CodedValue& /*whole*/) {
    return structure(2, keys::kSize, textOf(value));
  }
  Uid encode(const Rect& value, const CodedValue& /*whole*/) {
    return structure(3, keys::kRect, textOf(value));
  }

  Uid encode(const std::shared_ptr<CodedValue::Array>& list, const CodedValue& whole) {
    return encodeShared(list.get(), whole, [&] {
      PropertyList::Array uids;
      for (const CodedValue& value : *list) uids.push_back(encode(value));
      return Dictionary{{keys::kListObjects, uids}, {keys::kClass, classUid("NSArray")}};
    });
  }

  Uid encode(const std::shared_ptr<CodedValue::Dictionary>& dictionary, const CodedValue& whole) {
    return encodeShared(dictionary.get(), whole, [&] {
      PropertyList::Array names;
      PropertyList::Array uids;
      for (const auto& [key, value] : *dictionary) {
        names.push_back(encode(key));
        uids.push_back(encode(value));
      }
      return Dictionary{{keys::kListKeys, names},
                        {keys::kListObjects, uids},
                        {keys::kClass, classUid("NSDictionary")}};
    });
  }

  Uid encode(const std::shared_ptr<Coding>& object, const CodedValue& whole) {
    return encodeShared(object.get(), whole, [&] {
      Dictionary own;
      Dictionary* const outer = std::exchange(values, &own);
      object->encodeWithCoder(*archiver);
      values = outer;
      own[keys::kClass] = classUid(object->codingName());
      return own;
    });
  }

  Uid encode(const CodedValue& value) {
    return std::visit([&](const auto& kind) { return encode(kind, value); }, value.value());
  }

  KeyedArchiver* archiver = nullptr;
};

KeyedArchiver::KeyedArchiver() : state_(std::make_unique<State>()) { state_->archiver = this; }

KeyedArchiver::~KeyedArchiver() = default;

void KeyedArchiver::encodeObject(const CodedValue& value, const std::string& key) {
  const PropertyList::Uid uid = state_->encode(value);
  state_->values->insert_or_assign(storedKey(key), uid);
}

void KeyedArchiver::encodeDouble(double value, const std::string& key) {
  state_->values->insert_or_assign(storedKey(key), value);
}

void KeyedArchiver::encodeInt64(int64_t value, const std::string& key) {
  state_->values->insert_or_assign(storedKey(key), value);
}

void KeyedArchiver::encodeBool(bool value, const std::string& key) {
  state_->values->insert_or_assign(storedKey(key), value);
}

PropertyList::Data KeyedArchiver::finishEncoding() {
  return PropertyList(PropertyList::Dictionary{{keys::kArchiver, keys::kArchiverName},
                                               {keys::kVersion, keys::kVersionNumber},
                                               {keys::kTop, std::move(state_->top)},
                                               {keys::kObjects, std::move(state_->objects)}})
      .toData();
}

PropertyList::Data KeyedArchiver::archivedDataWithRootObject(const CodedValue& root) {
  KeyedArchiver archiver;
  archiver.encodeObject(root, keys::kRoot);
  return archiver.finishEncoding();
}

bool KeyedArchiver::archiveRootObject(const CodedValue& root, const std::string& path,
                                      Error* error) {
  const Error failure = replaceFile(path, archivedDataWithRootObject(root));
  if (error && failure) *error = failure;
  return !failure;
}

}  // namespace kestrel
