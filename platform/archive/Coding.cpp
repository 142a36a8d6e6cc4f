#include <kestrel/Coding.h>

#include "platform/archive/CodingClasses.h"

#include <mutex>

namespace kestrel {

namespace {

struct Classes {
  std::mutex lock;
  std::map<std::string, CodingFactory> factories;
};

/// Never destroyed: static objects may register their classes before it and use them after it.
Classes& classes() {
  static Classes& instance = *new Classes;
  return instance;
}

template <typename T>
CodedValue::Value valueOrNothing(std::shared_ptr<T> value) {
  if (!value) return std::monostate{};
  return value;
}

}  // namespace

Coding::~Coding() = default;

CodedValue::CodedValue(std::shared_ptr<Array> value) : value_(valueOrNothing(std::move(value))) {}

CodedValue::CodedValue(std::shared_ptr<Dictionary> value)
    : value_(valueOrNothing(std::move(value))) {}

CodedValue::CodedValue(std::shared_ptr<Coding> value) : value_(valueOrNothing(std::move(value))) {}

std::optional<std::string> CodedValue::text() const {
  if (isNull()) return std::nullopt;
  return as<std::string>();
}

void registerCodingClass(const std::string& name, CodingFactory factory) {
  const std::lock_guard guard(classes().lock);
  classes().factories[name] = std::move(factory);
}

CodingFactory codingFactory(const std::string& name) {
  const std::lock_guard guard(classes().lock);
  const auto place = classes().factories.find(name);
  return place == classes().factories.end() ? nullptr : place->second;
}

}  // namespace kestrel
