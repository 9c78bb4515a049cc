#include "Platform/Model/Bridging.h"

namespace Bridging {

namespace {
const Vel::TypeRegistration< VlanStatusDir > vlanStatusDirType;
}

VlanId::VlanId( Vel::U32 value ) : value_( static_cast< Vel::U16 >( value ) ) {
   if ( value < minimum || value > maximum )
      throw Vel::RangeError( "VlanId::value < 1 or > 4094 not allowed" );
}

Vel::String stringValue( VlanId vlanId ) { return Vel::text( vlanId.value() ); }

} // namespace Bridging
