#pragma once

#include "DataPlane/Linux/NamespaceTest.h"

#include <algorithm>
#include <cstring>
#include <sstream>

/// Purpose: links on the real kernel that lose what they have, and get it back.
namespace DataPlane::Linux {

class LinuxRestore : public InNamespace {
 protected:
   void SetUp() override {
      InNamespace::SetUp();
      if ( IsSkipped() )
         return;
      for ( const char * end : { "1", "2" } ) {
         veth( Vel::text( "et", end ), Vel::text( "p", end ) );
         up( Vel::text( "et", end ) );
         up( Vel::text( "p", end ) );
      }
      started();
      untilUp( "et1" );
      untilUp( "et2" );
   }

   /// The lines that a command prints, sorted, without lifetimes and marks that come and go.
   static std::vector< Vel::String > lines( const Vel::String & command ) {
      std::istringstream text( ipSays( command ) );
      std::vector< Vel::String > result;
      for ( Vel::String line; std::getline( text, line ); ) {
         for ( const char * mark : { " tentative", " linkdown", " dead" } )
            if ( const auto at = line.find( mark ); at != Vel::String::npos )
               line.erase( at, std::strlen( mark ) );
         line.erase( line.find_last_not_of( ' ' ) + 1 );
         result.push_back( line );
      }
      std::sort( result.begin(), result.end() );
      return result;
   }
   /// All that there is of addresses and routes, but for what changes by itself: those the kernel makes.
   static std::vector< Vel::String > everything() {
      std::vector< Vel::String > result;
      for ( const char * command :
            { "-4 -o address show", "-6 -o address show scope global", "-4 route show table all",
              "-6 route show table all", "-4 neighbour show nud permanent", "-6 neighbour show nud permanent",
              "-4 neighbour show proxy", "-6 neighbour show proxy" } ) {
         for ( Vel::String & line : lines( command ) )
            if (
               line.find( "fe80::" ) == Vel::String::npos && line.find( "multicast" ) == Vel::String::npos &&
               line.find( "local" ) == Vel::String::npos && line.find( "anycast" ) == Vel::String::npos )
               result.push_back( std::move( line ) );
      }
      return result;
   }
   Vel::String snapshot( std::string_view name ) {
      const LinkSnapshot snapshot = made->linkSnapshot( eth( name ) );
      EXPECT_TRUE( snapshot.outcome.ok() ) << snapshot.outcome.text();
      return snapshot.text;
   }
   /// Takes the link down and up again with all that it had.
   void downAndUp( std::string_view name ) {
      const Vel::String saved = snapshot( name );
      EXPECT_TRUE( set( name, false ).link.ok() );
      const LinkSetResult result = set( name, true, saved );
      EXPECT_TRUE( result.link.ok() ) << result.link.text();
      EXPECT_TRUE( result.restore.ok() ) << result.restore.text() << "\n" << saved;
   }
   /// For each command, that all is as it was after the link was down and up again.
   void comesBack( std::initializer_list< const char * > commands, std::string_view name = "et1" ) {
      for ( const char * command : commands )
         ip( command );
      // Some routes of addresses the kernel makes in its own time.
      std::vector< Vel::String > before;
      until( [&] {
         const std::vector< Vel::String > earlier = std::exchange( before, everything() );
         return before == earlier;
      } );
      downAndUp( name );
      until( [&] { return before == everything(); } );
      EXPECT_EQ( before, everything() );
   }
};

} // namespace DataPlane::Linux
