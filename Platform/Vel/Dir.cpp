#include "Platform/Vel/Dir.h"

namespace Vel {

namespace {
const TypeRegistration< Dir > dirType;
}

Ptr< Entity > Dir::entryIs( const String & name, const String & typeName ) {
   if ( Ptr< Entity > present = entityRef( name ) ) {
      if ( present->typeInfo().name() != typeName )
         throw NameInUse( "entry " + name + " is a " + present->typeInfo().name() + ", not a " + typeName );
      return present;
   }
   // Held here, as whoever is told of the entry may take it away again.
   const Ptr< Entity > entry = TypeRegistry::instance().entityNew( typeName, name );
   entryPut( name, entry );
   return entry;
}

} // namespace Vel
