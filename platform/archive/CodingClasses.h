#pragma once

#include <kestrel/Coding.h>

#include <string>

namespace kestrel {

/// What `registerCodingClass` was given for a class; empty for one that nobody made known.
CodingFactory codingFactory(const std::string& name);

/// The names that the layout has for what values of other kinds than plain ones are stored as.
namespace archive_keys {

inline constexpr char kArchiver[] = "$archiver";
inline constexpr char kArchiverName[] = "NSKeyedArchiver";
inline constexpr char kVersion[] = "$version";
inline constexpr int64_t kVersionNumber = 100000;
inline constexpr char kTop[] = "$top";
inline constexpr char kRoot[] = "root";
inline constexpr char kObjects[] = "$objects";
inline constexpr char kNull[] = "$null";
inline constexpr char kClass[] = "$class";
inline constexpr char kClassName[] = "$classname";
inline constexpr char kClasses[] = "$classes";
inline constexpr char kRootClass[] = "NSObject";
inline constexpr char kListObjects[] = "NS.objects";
inline constexpr char kListKeys[] = "NS.keys";
inline constexpr char kString[] = "NS.string";
inline constexpr char kData[] = "NS.data";
inline constexpr char kTime[] = "NS.time";

/// Boxed structures: which one it is, and its text.
inline constexpr char kStructure[] = "NS.special";
inline constexpr char kPoint[] = "NS.pointval";
inline constexpr char kSize[] = "NS.sizeval";
inline constexpr char kRect[] = "NS.rectval";

}  // namespace archive_keys

/// A key as it is stored beside the layout's own, which begin with a "$".
inline std::string storedKey(const std::string& key) {
  return key.starts_with('$') ? "$" + key : key;
}

/// How deep objects may lie in each other.
inline constexpr int kDeepestArchive = 256;

}  // namespace kestrel
