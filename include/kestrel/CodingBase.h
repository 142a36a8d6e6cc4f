#pragma once

#include <kestrel/Coding.h>
#include <kestrel/Export.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kestrel {

/// A base for settings and documents: a subclass lists the names of its properties and gives
/// access to them by name, and gets archiving, copying and files from that.
///
///     class Settings : public CodingBase {
///      public:
///       std::string title;
///       double speed = 1;
///
///       std::string codingName() const override { return "Settings"; }
///       std::vector<std::string> allCoderKeys() const override { return {"title", "speed"}; }
///       CodedValue valueForKey(const std::string& key) const override {
///         if (key == "title") return title;
///         if (key == "speed") return speed;
///         return CodingBase::valueForKey(key);
///       }
///       void setValueForKey(const CodedValue& value, const std::string& key) override {
///         if (key == "title") title = value.text().value_or("");
///         else if (key == "speed") speed = value.as<double>();
///         else CodingBase::setValueForKey(value, key);
///       }
///       std::shared_ptr<CodingBase> alloc() const override { return std::make_shared<Settings>();
///       }
///     };
///
/// An object is used by one thread at a time.
class KESTREL_API CodingBase : public Coding {
 public:
  /// The names of the properties that are stored and copied, in this order; none here.
  virtual std::vector<std::string> allCoderKeys() const;

  /// A property by its name. Here no name is known: `ArchiveError`.
  virtual CodedValue valueForKey(const std::string& key) const;
  virtual void setValueForKey(const CodedValue& value, const std::string& key);

  /// A new object of the same class, as its constructor leaves it.
  virtual std::shared_ptr<CodingBase> alloc() const;

  /// Runs `block` and discards any exception that leaves it, with a line in the log.
  virtual void tryBlock(const std::function<void()>& block) const;

  // One property: everything below goes through these three, so that a subclass can store or copy a
  // property in a way of its own. They throw what the property's access and the archive throw.

  virtual void encoder(KeyedArchiver& archiver, const std::string& key) const;
  /// Leaves the property as it is where the archive has no such key.
  virtual void decoder(KeyedUnarchiver& unarchiver, const std::string& key);
  /// The target gets the same value; a list in it is shared, not copied.
  virtual void copyTo(CodingBase& target, const std::string& key) const;

  // All properties.

  std::string codingName() const override;
  void encodeWithCoder(KeyedArchiver& archiver) const override;
  /// What a factory for `registerCodingClass` calls on a new object.
  void initWithCoder(KeyedUnarchiver& unarchiver);
  virtual std::shared_ptr<CodingBase> copy() const;

  /// Stores the properties in a file, each under its name, whatever else `encodeWithCoder` of a
  /// subclass stores; folders on the way to it are made. The
  /// file is replaced as a whole whatever `atomically` says. Always returns true; a
  /// failure is a line in the log.
  bool writeToFile(const std::string& path, bool atomically) const;

  /// Reads properties from such a file: those that it has, up to the first that can't be read. The
  /// others stay as they are. A failure is a line in the log.
  void initWithContentsOfFile(const std::string& path);
};

}  // namespace kestrel
