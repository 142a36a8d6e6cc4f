#pragma once

#include <kestrel/Coding.h>
#include <kestrel/Export.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace kestrel {

/// Reads what a `KeyedArchiver`, or another program with the same layout, has stored.
///
/// Outside of a factory keys are those of "$top"; within one they are the values of the object
/// that is being made. Lists, sets, dictionaries with texts as keys, texts, bytes, dates, numbers
/// and boxed points, sizes and rectangles are understood by themselves, other objects by the
/// classes made known by `registerCodingClass`. What is referred to twice is made once.
///
/// Bytes may come from anywhere: time and memory stay in proportion to their number, and whatever
/// is not as it should be ends in `ArchiveError`: no archive, a reference to nothing, an object
/// within itself or more than 256 deep, an unknown class. One thread uses an unarchiver.
class KESTREL_API KeyedUnarchiver {
 public:
  explicit KeyedUnarchiver(std::span<const uint8_t> bytes);
  ~KeyedUnarchiver();
  KeyedUnarchiver(const KeyedUnarchiver&) = delete;
  KeyedUnarchiver& operator=(const KeyedUnarchiver&) = delete;

  /// True if there is an entry, even one that stores "nothing".
  bool containsValueForKey(const std::string& key) const;

  /// The object under a key; nothing where there is no entry.
  CodedValue decodeObjectForKey(const std::string& key);

  /// Plain or boxed numbers; 0 and false where there is no entry. `ArchiveError` for anything else.
  double decodeDoubleForKey(const std::string& key);
  int64_t decodeInt64ForKey(const std::string& key);
  bool decodeBoolForKey(const std::string& key);

  /// The object of an archive made by `archivedDataWithRootObject`.
  CodedValue rootObject();

  /// The same of a file; `ArchiveError` when it can't be read, too.
  static CodedValue unarchiveObjectWithFile(const std::string& path);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
