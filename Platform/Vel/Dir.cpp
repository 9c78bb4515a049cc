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
   return Ptr< Entity >( entryPut( name, TypeRegistry::instance().entityNew( typeName, name ) ) );
}

} // namespace Vel
