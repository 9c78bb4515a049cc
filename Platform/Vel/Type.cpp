#include "Platform/Vel/Type.h"

#include "Platform/Vel/Entity.h"

#include <algorithm>

namespace Vel {

const AttributeInfo * TypeInfo::attribute( std::string_view name ) const {
   for ( const AttributeInfo & info : attributes_ )
      if ( info.name == name )
         return &info;
   return nullptr;
}

const AttributeInfo * TypeInfo::attribute( unsigned index ) const {
   // Indices begin at 1 and have no holes.
   return index >= 1 && index <= attributes_.size() ? &attributes_[index - 1] : nullptr;
}

String Detail::typeNameFrom( std::string_view prettyFunction ) {
   const auto begin = prettyFunction.find( "T = " ) + 4;
   const auto end = prettyFunction.find_first_of( ";]", begin );
   return String( prettyFunction.substr( begin, end - begin ) );
}

TypeRegistry & TypeRegistry::instance() {
   static TypeRegistry registry;
   return registry;
}

void TypeRegistry::typeIs( const String & typeName, Factory factory ) {
   if ( type( typeName ) )
      throw NameInUse( "type " + typeName + " is registered already" );
   entries_.push_back( { typeName, factory } );
}

void TypeRegistry::typeDel( const String & typeName ) {
   std::erase_if( entries_, [&]( const Entry & entry ) { return entry.typeName == typeName; } );
}

bool TypeRegistry::type( const String & typeName ) const {
   return std::any_of(
      entries_.begin(), entries_.end(), [&]( const Entry & entry ) { return entry.typeName == typeName; } );
}

Ptr< Entity > TypeRegistry::entityNew( const String & typeName, const String & name ) const {
   for ( const Entry & entry : entries_ ) {
      if ( entry.typeName != typeName )
         continue;
      if ( !entry.factory )
         throw InternalException( "type " + typeName + " cannot be made by name" );
      return entry.factory( name );
   }
   throw InternalException( "unknown type " + typeName );
}

} // namespace Vel
