#pragma once

#include "Platform/Vel/Text.h"
#include "Platform/Vel/Type.h"

#include <type_traits>

/// Purpose: a child that is there is returned when it is asked for again, but only with the values it was built from.
namespace MaintenanceMode {

/// The text of a constructor value in a refusal. Entities print as their type, and name if they have one: an address
/// would make two runs differ.
template < class T >
Vel::String constructorValueText( const T & value ) {
   return Vel::text( value );
}
template < class T >
Vel::String constructorValueText( T * const & entity ) {
   if ( !entity )
      return "null";
   if constexpr ( requires { Vel::text( entity->name() ); } )
      return Vel::text( Vel::typeName< std::remove_const_t< T > >(), " ", entity->name() );
   else
      return Vel::typeName< std::remove_const_t< T > >();
}
template < class T >
Vel::String constructorValueText( const Vel::Ptr< T > & entity ) {
   return constructorValueText( entity.get() );
}

/// Throws Vel::NameInUse if a child that was built from `current` is asked for with another value. `attribute` is the
/// constructor parameter with its leading underscore.
template < class T >
void requireBuiltFrom( const char * attribute, const T & value, const std::type_identity_t< T > & current ) {
   if ( !( value == current ) )
      throw Vel::NameInUse( attribute, constructorValueText( value ), constructorValueText( current ) );
}

} // namespace MaintenanceMode
