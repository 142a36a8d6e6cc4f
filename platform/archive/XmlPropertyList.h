#pragma once

#include <kestrel/PropertyList.h>

#include <cstdint>
#include <span>

namespace kestrel {

/// The bytes look like an XML document rather than like a binary property list.
bool isXmlPropertyList(std::span<const uint8_t> bytes);

/// Reads a property list in XML, in UTF-8 or in UTF-16 with a byte-order mark; throws
/// `PropertyListError`. Entities that the document declares by itself are refused, so time and
/// memory stay in proportion to the bytes.
PropertyList readXmlPropertyList(std::span<const uint8_t> bytes);

}  // namespace kestrel
