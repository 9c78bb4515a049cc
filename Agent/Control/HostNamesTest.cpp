#include "Agent/Control/HostNames.h"

#include <gtest/gtest.h>

namespace {

using Agent::HostNames;

TEST( HostNames, serveAddressesTheOwnNameAndThoseListed ) {
   const HostNames names( "Leaf1.example.net", { "Maint.example.org", "front" }, { "Other.example." } );
   for ( const char * host :
         { "", "127.0.0.1", "10.0.0.1:8080", "[::1]", "[fe80::1]:8080", "localhost", "LOCALHOST:8080",
           "localhost.", "leaf1", "LEAF1:80", "leaf1.example.net", "leaf1.local", "leaf1.other.example",
           "maint.example.org:8080", "front" } )
      EXPECT_TRUE( names.serves( host ) ) << host;
}

TEST( HostNames, serveNoOtherName ) {
   const HostNames names( "leaf1", { "maint.example.org" } );
   for ( const char * host :
         { "evil.example", "evil.example:8080", "127.0.0.1.evil.example", "leaf1x", "leaf1x.example.net",
           "leaf1.evil.example", "leaf1.local.evil.example", "org", "maint.example", "x.maint.example.org",
           "[evil.example]", "[::1", "localhost.evil.example", ".", ":80", " " } )
      EXPECT_FALSE( names.serves( host ) ) << host;
}

TEST( HostNames, ofAMachineWithoutANameAreThoseListed ) {
   const HostNames names( "", { "a" } );
   EXPECT_TRUE( names.serves( "a" ) );
   EXPECT_TRUE( names.serves( "127.0.0.1" ) );
   EXPECT_FALSE( names.serves( ".example" ) );
}

} // namespace
