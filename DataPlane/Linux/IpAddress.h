#pragma once

#include "Platform/Vel/String.h"

#include <array>
#include <optional>
#include <string_view>

namespace DataPlane::Linux {

/// An address of IP version 4 or 6.
struct IpAddress {
   Vel::U8 family = 0; ///< AF_INET or AF_INET6
   std::array< Vel::U8, 16 > bytes{};

   std::size_t size() const;
   std::string_view payload() const { return { reinterpret_cast< const char * >( bytes.data() ), size() }; }

   friend bool operator==( const IpAddress &, const IpAddress & ) = default;
   friend auto operator<=>( const IpAddress &, const IpAddress & ) = default;
};

/// All zero.
IpAddress anyAddress( Vel::U8 family );
/// Bits that a prefix of the family has at most; 0 for other families.
unsigned maxPrefix( Vel::U8 family );
/// The address with all bits behind the first so many zero.
IpAddress networkOf( const IpAddress & address, unsigned length );
/// Absent if the payload has not the size of the family, or it is another family.
std::optional< IpAddress > addressFrom( Vel::U8 family, std::optional< std::string_view > payload );
/// Absent if it is neither; names are not looked up.
std::optional< IpAddress > addressFromText( const Vel::String & text );
Vel::String stringValue( const IpAddress & address );

} // namespace DataPlane::Linux
