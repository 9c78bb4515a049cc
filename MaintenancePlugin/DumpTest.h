#pragma once

#include "MaintenancePlugin/PluginRig.h"

#include <gtest/gtest.h>

/// Purpose: what the tests of the root's dump share. The texts that they expect stand in full in the tests.
namespace MaintenanceMode {

struct DumpTest : testing::Test {
   PluginRig rig;
   const Wire::IntfId et1 = PluginRig::port( "et1" );
   const Wire::IntfId et2 = PluginRig::port( "et2" );

   DumpTest() { rig.defaultProfileIs( "p" ); }
   Vel::String dumped( unsigned indent ) {
      return PluginRig::written( [&]( int fd ) { rig.root->dump( fd, indent ); } );
   }
   /// The expected text with the root's present count of references in the place of "#": that depends on who holds it.
   Vel::String counted( Vel::String text ) {
      EXPECT_GT( rig.root->getRefCount(), 0u );
      const auto at = text.find( "refCount: #\n" );
      if ( at != Vel::String::npos )
         text.replace( at + 10, 1, Vel::text( rig.root->getRefCount() ) );
      return text;
   }
   /// Each line further in by so many blanks.
   static Vel::String shifted( unsigned blanks, const Vel::String & text ) {
      Vel::String result;
      bool begins = true;
      for ( const char c : text ) {
         if ( begins )
            result.append( blanks, ' ' );
         result += c;
         begins = c == '\n';
      }
      return result;
   }
   /// Expects the dump at no indent and at one of 10: only the root's own lines do not follow it.
   void expectDumped( const Vel::String & own, const Vel::String & units, const Vel::String & rest ) {
      const Vel::String heading = "  Dumping IntfMonSms:\n";
      EXPECT_EQ( counted( own + units + heading + rest ), dumped( 0 ) );
      EXPECT_EQ( counted( own + shifted( 10, units ) + heading + shifted( 10, rest ) ), dumped( 10 ) );
   }
};

} // namespace MaintenanceMode
