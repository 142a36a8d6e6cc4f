#pragma once

#include <string>

namespace kestrel {

/// The path of a program that the library has do a part of its work: beside the running program or,
/// where there is none of that name, in the folder of helpers of the tree that the library is
/// installed in, wherever that tree lies. Where there is neither it is the first.
std::string helperPath(const std::string& name);

}  // namespace kestrel
