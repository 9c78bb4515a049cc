#include "Platform/Ledger/EntityManager.h"

namespace Ledger {

namespace {
const Vel::String & checkedPath( const Vel::String & path ) {
   if ( !EntityManager::isPath( path ) )
      throw Vel::RangeError( "\"" + path + "\" is not a path of the state store" );
   return path;
}
} // namespace

EntityManager::EntityManager( Later later ) : later_( std::move( later ) ) {}

bool EntityManager::isPath( std::string_view path ) {
   return !path.empty() && path.front() != '/' && path.back() != '/' &&
          path.find( "//" ) == std::string_view::npos;
}

Vel::Ptr< Vel::Entity >
EntityManager::entityIs( const Vel::String & path, const Vel::Ptr< Vel::Entity > & entity ) {
   return { entityStore( checkedPath( path ), entity ) };
}

Vel::Ptr< Vel::Entity > EntityManager::entityIs( const Vel::String & path, const Vel::String & typeName ) {
   checkedPath( path );
   if ( Vel::Entity * present = entity( path ) ) {
      const Vel::String & presentType = present->typeInfo().name();
      if ( presentType != typeName )
         throw Vel::NameInUse( path + " is a " + presentType + ", not a " + typeName );
      return { present };
   }
   const Vel::String name = path.substr( path.rfind( '/' ) + 1 );
   return { entityStore( path, Vel::TypeRegistry::instance().entityNew( typeName, name ) ) };
}

Vel::Ptr< MountGroup > EntityManager::getMountGroup( const Vel::Ptr< Mounter > & mounter ) {
   return Vel::make< MountGroup >( Vel::Ptr< EntityManager >( this ), *Vel::validPtr( mounter ) );
}

} // namespace Ledger
