#pragma once

#include <kestrel/Coding.h>
#include <kestrel/Export.h>

#include <memory>
#include <string>

namespace kestrel {

/// Stores values under keys, and graphs of objects, in the keyed archive format: a binary property
/// list with "$archiver" ("NSKeyedArchiver"), "$version", "$top" and "$objects", in which objects
/// refer to each other by number.
///
/// Values encoded outside of an object's `encodeWithCoder` go to "$top". Objects, lists and
/// dictionaries that occur several times are stored once. A graph that contains itself or is more
/// than 256 levels deep cannot be stored: `encodeObject` throws `ArchiveError`. Use from one thread
/// at a time.
class KESTREL_API KeyedArchiver {
 public:
  KeyedArchiver();
  ~KeyedArchiver();
  KeyedArchiver(const KeyedArchiver&) = delete;
  KeyedArchiver& operator=(const KeyedArchiver&) = delete;

  /// Stores an object. An empty value is stored as an entry too, unlike a key that is never
  /// encoded.
  void encodeObject(const CodedValue& value, const std::string& key);

  /// Store plain numbers.
  void encodeDouble(double value, const std::string& key);
  void encodeInt64(int64_t value, const std::string& key);
  void encodeBool(bool value, const std::string& key);

  /// Returns the archive. Do not encode anything afterwards.
  PropertyList::Data finishEncoding();

  /// An archive of a single object, for `KeyedUnarchiver::rootObject`.
  static PropertyList::Data archivedDataWithRootObject(const CodedValue& root);

  /// Writes such an archive to a file, replacing it in one step; false if writing failed. Throws
  /// like `encodeObject`.
  static bool archiveRootObject(const CodedValue& root, const std::string& path,
                                Error* error = nullptr);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
