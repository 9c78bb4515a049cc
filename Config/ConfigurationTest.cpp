#include "Config/Configuration.h"
#include "Config/Names.h"

#include <gtest/gtest.h>

namespace {

using Config::Endpoint;
using Config::interfaceNameError;
using Config::isName;

std::string canonical( std::string_view text ) {
   const Config::Parsed< Endpoint > endpoint = Endpoint::parse( text );
   return endpoint ? endpoint.value->text() : endpoint.error;
}

TEST( Endpoint, readsNamesAndAddresses ) {
   EXPECT_EQ( "localhost:8080", canonical( "localhost:8080" ) );
   EXPECT_EQ( "sw-1.example.net:1", canonical( "sw-1.example.net:1" ) );
   EXPECT_EQ( "0.0.0.0:65535", canonical( "0.0.0.0:65535" ) );
   EXPECT_EQ( "[::]:80", canonical( "[::]:80" ) );
}

TEST( Endpoint, knowsTheSameIpv6AddressInAllItsForms ) {
   EXPECT_EQ( "[2001:db8::1]:80", canonical( "[2001:0DB8:0::0:1]:80" ) );
}

TEST( Endpoint, refusesWhatIsNoHost ) {
   for ( const std::string_view host :
         { "-a", "a-", "a..b", ".a", "a.", "1.2.3.4.5", "256.1.1.1", "[]", "[1.2.3.4]", "a b" } ) {
      SCOPED_TRACE( host );
      EXPECT_FALSE( Endpoint::parse( std::string( host ) + ":80" ) );
   }
   EXPECT_FALSE( Endpoint::parse( std::string( 64, 'a' ) + ":80" ) );
   EXPECT_FALSE( Endpoint::parse( std::string_view( "[::1\0x]:80", 10 ) ) );
   EXPECT_FALSE( Endpoint::parse( std::string_view( "1.2.3.4\0:80", 11 ) ) );
}

TEST( Endpoint, refusesWhatIsNoPort ) {
   for ( const std::string_view port : { "", "0", "080", "65536", "100000", "-1", "http", "80 " } ) {
      SCOPED_TRACE( port );
      EXPECT_FALSE( Endpoint::parse( "localhost:" + std::string( port ) ) );
   }
}

TEST( Names, areLettersDigitsDotsUnderscoresAndDashes ) {
   for ( const std::string_view name : { "a", "0", "spine-a", "A.b_c-9", "null" } )
      EXPECT_TRUE( isName( name ) ) << name;
   for ( const std::string_view name : { "", "-a", ".a", "_a", "a b", "a/b", "\u00e4", "#DEFAULTPROFILE" } )
      EXPECT_FALSE( isName( name ) ) << name;
   EXPECT_TRUE( isName( std::string( 63, 'a' ) ) );
   EXPECT_FALSE( isName( std::string( 64, 'a' ) ) );
}

TEST( Names, ofInterfacesAreWhatTheKernelTakes ) {
   for ( const std::string_view name :
         { "et1", "eth0.100", "a", "br-lan", "...", "wlp3s0@x", "\u00e9th", "123456789012345" } )
      EXPECT_EQ( "", interfaceNameError( name ) ) << name;
   for ( const std::string_view name :
         { "", ".", "..", "a b", "a\tb", "a/b", "a:b", "1234567890123456", "a\xc2\xa0" } )
      EXPECT_NE( "", interfaceNameError( name ) ) << name;
   EXPECT_NE( "", interfaceNameError( std::string_view( "a\0b", 3 ) ) );
   EXPECT_EQ( "contains byte 0xa0, which the kernel takes for a blank", interfaceNameError( "\u00e0" ) );
}

} // namespace
