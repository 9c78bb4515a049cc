// Writes a seed for the fuzz target Store: the records of the stores of an agent that has ended.
//
//   StoreSeed STATE-FOLDER RUNTIME-FOLDER > SEED

#include "Platform/Ledger/LmdbEngine.h"

#include <cstdio>
#include <map>
#include <string>

namespace {

void put( std::size_t number ) { std::putchar( static_cast< int >( number & 0xff ) ); }
void put( std::string_view bytes ) { std::fwrite( bytes.data(), 1, bytes.size(), stdout ); }

/// Keys of one set or map, which begin with tag, entity and attribute: of hundreds of events a few show all there is, and of
/// a small seed more comes in the same time.
bool isOneOfFew( std::string_view key, std::map< std::string, unsigned > & seen ) {
   constexpr std::size_t beginning = 1 + 8 + 2;
   constexpr unsigned few = 4;
   return key[0] != 'K' || ++seen[std::string( key.substr( 0, beginning ) )] <= few;
}

bool write( const char * name, const Vel::String & path, unsigned which ) {
   Ledger::LmdbEngine engine( name, path, Ledger::LmdbEngine::Durability::unsynced );
   std::map< std::string, unsigned > seen;
   Ledger::Status status = engine.open();
   if ( status.ok() )
      status = engine.walk( "", [&]( std::string_view key, std::string_view value ) {
         if ( !isOneOfFew( key, seen ) )
            return true;
         put( which );
         put( key.size() );
         put( key );
         put( value.size() );
         put( value.size() >> 8 );
         put( value );
         return true;
      } );
   if ( !status.ok() )
      std::fprintf( stderr, "%s\n", status.text().c_str() );
   return status.ok();
}

} // namespace

int main( int argc, char ** argv ) {
   if ( argc != 3 ) {
      std::fprintf( stderr, "usage: StoreSeed STATE-FOLDER RUNTIME-FOLDER > SEED\n" );
      return 2;
   }
   return write( "state store", Vel::String( argv[1] ) + "/state.mdb", 0 ) &&
                write( "runtime store", Vel::String( argv[2] ) + "/runtime.mdb", 1 )
             ? 0
             : 1;
}
