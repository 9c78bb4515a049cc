#pragma once

#include "Platform/Vel/Declare.h"

/// Purpose: which maintenance profiles are selected. The profiles themselves have models of their own by
/// type. Written by the agent from the configuration.
namespace Maintenance::Profile {

/// Ordinals are part of the stored form.
enum class ProfileType : Vel::U32 { none = 0, unitProfile = 1, interfaceProfile = 2 };
/// "none", "unitProfile", "interfaceProfile"; any other value as "ProfileType(9)".
Vel::String stringValue( ProfileType type );

/// In a selected key: the profile that DefaultProfile names at the time of asking.
inline constexpr const char * defaultProfileName = "#DEFAULTPROFILE";

struct ProfileKey {
   ProfileType type = ProfileType::none;
   Vel::String name;

   /// No profile is meant, whatever the type.
   bool unset() const { return name.empty(); }

   friend bool operator==( const ProfileKey &, const ProfileKey & ) = default;
   friend auto operator<=>( const ProfileKey &, const ProfileKey & ) = default;
};
/// The name alone.
inline Vel::String stringValue( const ProfileKey & key ) { return key.name; }

/// The profile that interfaces run under unless another one is named.
class DefaultProfile final : public Vel::Entity {
   VEL_ENTITY( DefaultProfile );
   /// Names an existing profile.
   VEL_ATTR( Vel::String, profileName, onProfileName );
};

} // namespace Maintenance::Profile

template <>
struct std::hash< Maintenance::Profile::ProfileKey > {
   std::size_t operator()( const Maintenance::Profile::ProfileKey & key ) const {
      return std::hash< Vel::String >()( key.name ) + static_cast< Vel::U32 >( key.type );
   }
};

template <>
struct Vel::Codec< Maintenance::Profile::ProfileKey > {
   static constexpr bool stored = true;
   static void write( ByteWriter & w, const Maintenance::Profile::ProfileKey & key );
   static void read( ByteReader & r, Maintenance::Profile::ProfileKey & key );
};
