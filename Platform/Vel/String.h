#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Vel {

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;

/// Text of the entity model. A Name is a String that is used as a key; the two convert freely, so they are
/// one type.
using String = std::string;
using Name = String;

} // namespace Vel
