#pragma once

#include <kestrel/Coding.h>
#include <kestrel/Export.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kestrel {

/// A base class for settings and documents: a subclass lists the names of its properties and
/// provides access to them by name, and gets archiving, copying and file access in return.
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
///       std::shared_ptr<CodingBase> alloc() const override {
///         return std::make_shared<Settings>();
///       }
///     };
///
/// Use an object from one thread at a time.
class KESTREL_API CodingBase : public Coding {
 public:
  /// Names of the properties that are stored and copied, in this order; empty in the base class.
  virtual std::vector<std::string> allCoderKeys() const;

  /// Gets and sets a property by name. The base class knows no names and throws `ArchiveError`.
  virtual CodedValue valueForKey(const std::string& key) const;
  virtual void setValueForKey(const CodedValue& value, const std::string& key);

  /// A new object of the same class, default-constructed.
  virtual std::shared_ptr<CodingBase> alloc() const;

  /// Runs `block`; an exception that it throws is logged and swallowed.
  virtual void tryBlock(const std::function<void()>& block) const;

  // Single properties. Everything below uses these three functions, so that a subclass can treat a
  // property specially. They throw what the accessors and the archive throw.

  virtual void encoder(KeyedArchiver& archiver, const std::string& key) const;
  /// Leaves the property unchanged if the archive does not have the key.
  virtual void decoder(KeyedUnarchiver& unarchiver, const std::string& key);
  /// Sets the target's property to the same value; a list in it is shared, not copied.
  virtual void copyTo(CodingBase& target, const std::string& key) const;

  // All properties.

  std::string codingName() const override;
  void encodeWithCoder(KeyedArchiver& archiver) const override;
  /// To be called on a new object by a factory for `registerCodingClass`.
  void initWithCoder(KeyedUnarchiver& unarchiver);
  virtual std::shared_ptr<CodingBase> copy() const;

  /// Stores the properties in a file, each under its name; what a subclass adds in
  /// `encodeWithCoder` is not stored. Creates missing folders. The file is always replaced in one
  /// step, whatever `atomically` says. Always returns true; failures are logged.
  bool writeToFile(const std::string& path, bool atomically) const;

  /// Reads properties from such a file, up to the first that cannot be read. Properties that are
  /// not in the file keep their values. Failures are logged.
  void initWithContentsOfFile(const std::string& path);
};

}  // namespace kestrel
