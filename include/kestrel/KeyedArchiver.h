#pragma once

#include <kestrel/Coding.h>
#include <kestrel/Export.h>

#include <memory>
#include <string>

namespace kestrel {

/// Stores values under keys, and whole graphs of objects, in the keyed archive layout: a binary
/// property list with "$archiver" ("NSKeyedArchiver"), "$version", "$top" and "$objects", in which
/// objects refer to each other by number.
///
/// Values encoded outside any object's `encodeWithCoder` lie in "$top". Objects, lists and
/// dictionaries that are met twice are stored once. A graph that contains itself, or is more than
/// 256 deep, cannot be stored: `encodeObject` throws `ArchiveError`. One thread uses an archiver.
class KESTREL_API KeyedArchiver {
 public:
  KeyedArchiver();
  ~KeyedArchiver();
  KeyedArchiver(const KeyedArchiver&) = delete;
  KeyedArchiver& operator=(const KeyedArchiver&) = delete;

  /// Stores an object; no value is an entry of its own, other than a missing one.
  void encodeObject(const CodedValue& value, const std::string& key);

  /// Store plain numbers.
  void encodeDouble(double value, const std::string& key);
  void encodeInt64(int64_t value, const std::string& key);
  void encodeBool(bool value, const std::string& key);

  /// The archive. Nothing may be encoded afterwards.
  PropertyList::Data finishEncoding();

  /// An archive of one object, which `KeyedUnarchiver::rootObject` gives back.
  static PropertyList::Data archivedDataWithRootObject(const CodedValue& root);

  /// Writes such an archive to a file, replaced as a whole; false when that failed. Throws as
  /// `encodeObject` does.
  static bool archiveRootObject(const CodedValue& root, const std::string& path,
                                Error* error = nullptr);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
