#include "Platform/Model/MaintenanceProfile.h"

namespace Maintenance::Profile {

namespace {
const Vel::TypeRegistration< DefaultProfile > defaultProfileType;
}

Vel::String stringValue( ProfileType type ) {
   switch ( type ) {
   case ProfileType::none:
      return "none";
   case ProfileType::unitProfile:
      return "unitProfile";
   case ProfileType::interfaceProfile:
      return "interfaceProfile";
   }
   return Vel::text( "ProfileType(", Vel::U32( type ), ")" );
}

} // namespace Maintenance::Profile

void Vel::Codec< Maintenance::Profile::ProfileKey >::write(
   ByteWriter & w, const Maintenance::Profile::ProfileKey & key ) {
   Codec< Maintenance::Profile::ProfileType >::write( w, key.type );
   Codec< String >::write( w, key.name );
}

void Vel::Codec< Maintenance::Profile::ProfileKey >::read(
   ByteReader & r, Maintenance::Profile::ProfileKey & key ) {
   Codec< Maintenance::Profile::ProfileType >::read( r, key.type );
   Codec< String >::read( r, key.name );
}
