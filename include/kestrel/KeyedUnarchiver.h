#pragma once

#include <kestrel/Coding.h>
#include <kestrel/Export.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace kestrel {

/// Reads archives written by `KeyedArchiver` or by other programs in the same format.
///
/// Outside of a factory, keys are those of "$top"; within one, those of the object being made.
/// Lists, sets, dictionaries with text keys, texts, bytes, dates, numbers and boxed points, sizes
/// and rectangles are built in; other classes must be registered with `registerCodingClass`. An
/// object that is referred to several times is made once.
///
/// The bytes need not be trusted: time and memory stay proportional to their number, and anything
/// invalid throws `ArchiveError`: bytes that are not an archive, a dangling reference, an object
/// within itself or more than 256 levels deep, an unknown class. Use from one thread at a time.
class KESTREL_API KeyedUnarchiver {
 public:
  explicit KeyedUnarchiver(std::span<const uint8_t> bytes);
  ~KeyedUnarchiver();
  KeyedUnarchiver(const KeyedUnarchiver&) = delete;
  KeyedUnarchiver& operator=(const KeyedUnarchiver&) = delete;

  /// True if there is an entry, even if it stores "nothing".
  bool containsValueForKey(const std::string& key) const;

  /// The object under a key; no value if there is no entry.
  CodedValue decodeObjectForKey(const std::string& key);

  /// Plain or boxed numbers; 0 or false if there is no entry. Anything else throws `ArchiveError`.
  double decodeDoubleForKey(const std::string& key);
  int64_t decodeInt64ForKey(const std::string& key);
  bool decodeBoolForKey(const std::string& key);

  /// The object of an archive made by `archivedDataWithRootObject`.
  CodedValue rootObject();

  /// The same from a file; also throws `ArchiveError` if it cannot be read.
  static CodedValue unarchiveObjectWithFile(const std::string& path);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
