#include "Platform/Ledger/StoreWorldTest.h"

#include <algorithm>

namespace StoreTest {

namespace {
const Vel::TypeRegistration< Tree > treeType;
}

Vel::String textOf( Vel::Entity & entity ) {
   Vel::String result = "{";
   for ( const Vel::AttributeInfo & info : entity.typeInfo().attributes() ) {
      if ( !info.stored() || Vel::String( "sap" ) == info.name )
         continue;
      result += Vel::String( info.name ) + "=";
      if ( !info.keyed() ) {
         result += info.value->text( info.raw( entity ) ) + ";";
         continue;
      }
      struct Items {
         const Vel::AttributeInfo & info;
         std::vector< Vel::String > texts;
      } items{ info, {} };
      info.each( entity, &items, []( void * context, const void * key, const void * item ) {
         Items & walked = *static_cast< Items * >( context );
         Vel::String text = walked.info.key->text( key );
         if ( walked.info.kind == Vel::AttributeInfo::map )
            text += ":" + walked.info.value->text( item );
         if ( walked.info.kind == Vel::AttributeInfo::children )
            text += textOf( *const_cast< Vel::Entity * >( static_cast< const Vel::Entity * >( item ) ) );
         walked.texts.push_back( text );
      } );
      std::sort( items.texts.begin(), items.texts.end() );
      for ( const Vel::String & text : items.texts )
         result += text + ",";
      result += ";";
   }
   return result + "}";
}

Process::Process( Ledger::StoreEngine & state, Ledger::StoreEngine & runtime )
   : persistence(
        em, state, runtime,
        { { statePath, Ledger::Persistence::Folder::state },
          { otherStatePath, Ledger::Persistence::Folder::state },
          { runtimePath, Ledger::Persistence::Folder::runtime } },
        { { "StoreTest::Tree", "sap" } } ) {}

Vel::Ptr< Tree > Process::treeIs( const Vel::String & path ) {
   return Vel::ptrCast< Tree >( em->entityIs( path, "StoreTest::Tree" ) );
}

Vel::Ptr< Tree > Process::tree( const Vel::String & path ) const {
   return Vel::ptrCast< Tree >( em->getEntity( path ) );
}

Vel::String Process::textAt( const Vel::String & path ) const {
   Vel::Entity * entity = em->entity( path );
   return entity ? path + textOf( *entity ) : "";
}

void World::processIs() {
   process = nullptr;
   stateMemory.abort();
   runtimeMemory.abort();
   process = std::make_unique< Process >( state, runtime );
}

Ledger::Status World::restart() {
   processIs();
   return process->persistence.start();
}

} // namespace StoreTest
