#include "Api/Names.h"

#include <gtest/gtest.h>

namespace {

TEST( Names, keepTheCharactersThatNeedNoEscape ) { EXPECT_EQ( Api::escaped( "aZ0-._~" ), "aZ0-._~" ); }

TEST( Names, escapeEverythingElseBytewise ) {
   EXPECT_EQ( Api::escaped( "a/b?c d%\xC3\xA4" ), "a%2Fb%3Fc%20d%25%C3%A4" );
}

TEST( Names, makeThePathsOfOneThing ) {
   EXPECT_EQ( Api::Path::unit( "spine-a" ), "/api/v1/units/spine-a" );
   EXPECT_EQ( Api::Path::unit( "spine-a", "enter" ), "/api/v1/units/spine-a/enter" );
   EXPECT_EQ( Api::Path::interface( "eth0@x" ), "/api/v1/interfaces/eth0%40x" );
   EXPECT_EQ( Api::Path::interfaceRelease( "et1" ), "/api/v1/interfaces/et1/release" );
   EXPECT_EQ( Api::Path::interfacesOf( "a&b" ), "/api/v1/interfaces?unit=a%26b" );
   EXPECT_EQ( Api::Path::historyOf( "", 20 ), "/api/v1/history?limit=20" );
   EXPECT_EQ( Api::Path::historyOf( "a&b", 1 ), "/api/v1/history?limit=1&unit=a%26b" );
   EXPECT_EQ( Api::Path::historyRecord( 7 ), "/api/v1/history/7" );
}

TEST( Names, allStandBelowTheRoot ) {
   for ( const char * path :
         { Api::Path::units, Api::Path::interfaces, Api::Path::profiles, Api::Path::groups,
           Api::Path::counters, Api::Path::agent, Api::Path::dump, Api::Path::trace, Api::Path::reload,
           Api::Path::simulatedTraffic, Api::Path::simulatedLink, Api::Path::simulatedAdvance,
           Api::Path::history } )
      EXPECT_TRUE( std::string_view( path ).starts_with( Api::root ) ) << path;
}

} // namespace
