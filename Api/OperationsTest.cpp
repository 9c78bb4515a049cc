#include "Api/Operations.h"

#include "Api/Error.h"
#include "Api/Names.h"
#include "Api/Shapes.h"

#include <gtest/gtest.h>

namespace Api {

namespace {

TEST( Operations, areRead ) {
   const Operation o = readOperation(
      R"({"id":7,"kind":"enter","unit":"a","state":"cancelled","by":"ann","reason":null,"with":{"k":"v"},
          "request-key":"x","begun":"2026-03-01T12:00:00.250Z","ended":null,"ended-by":8,"text":"gone"})" );
   EXPECT_EQ( 7u, o.id );
   EXPECT_EQ( "enter", o.kind );
   EXPECT_EQ( "a", o.unit );
   EXPECT_EQ( "cancelled", o.state );
   EXPECT_EQ( "ann", o.by );
   EXPECT_FALSE( o.reason );
   EXPECT_EQ( ( std::map< std::string, std::string >{ { "k", "v" } } ), o.with );
   EXPECT_EQ( "x", o.requestKey );
   EXPECT_EQ( 1772366400.25, o.begun );
   EXPECT_FALSE( o.ended );
   EXPECT_EQ( 8u, o.endedBy );
   EXPECT_EQ( "gone", o.text );
   EXPECT_EQ(
      2u, readOperations( R"([{"id":2,"kind":"a","state":"b"},{"id":1,"kind":"a","state":"b"}])" ).size() );
}

TEST( Operations, thatMakeNoSenseAreAnError ) {
   for ( const char * text :
         { "", "[]", R"({"kind":"enter","state":5})", R"({"kind":"enter","state":"done","with":[]})",
           R"({"kind":"enter","state":"done","with":{"a":1}})", R"({"kind":"enter"})" } )
      EXPECT_THROW( readOperation( text ), Error ) << text;
   EXPECT_THROW( readOperations( "{}" ), Error );
}

TEST( Operations, whatIsAcceptedSaysWhetherItIsAChange ) {
   const Accepted accepted = readAccepted(
      R"({"unit":"a","generation":3,"state":"entering","operation":7,"changed":false,"repeated":true})" );
   EXPECT_EQ( 7u, accepted.operation );
   EXPECT_FALSE( accepted.changed );
   EXPECT_TRUE( accepted.repeated );
   const Accepted earlier = readAccepted( R"({"unit":"a","generation":3,"state":"entering"})" );
   EXPECT_FALSE( earlier.operation );
   EXPECT_TRUE( earlier.changed );
   EXPECT_FALSE( earlier.repeated );
}

TEST( Operations, ofALinkHaveNoUnit ) {
   const Operation o =
      readOperation( R"({"id":1,"kind":"release","unit":null,"interface":"et1","state":"done"})" );
   EXPECT_EQ( "", o.unit );
   EXPECT_EQ( "et1", o.interface );
   const Released released = readReleased( R"({"interface":"et1","operation":9,"changed":true})" );
   EXPECT_EQ( "et1", released.interface );
   EXPECT_EQ( 9u, released.operation );
   const Released earlier = readReleased( R"({"interface":"et1"})" );
   EXPECT_FALSE( earlier.operation );
   EXPECT_TRUE( earlier.changed );
   EXPECT_FALSE( earlier.repeated );
   EXPECT_TRUE( readReleased( R"({"interface":"et1","repeated":true})" ).repeated );
}

TEST( Operations, ofTheConfigurationSayWhatHasChanged ) {
   const Reloaded reloaded =
      readReloaded( R"({"changes":["a","b"],"operation":3,"changed":false,"repeated":true})" );
   EXPECT_EQ( ( std::vector< std::string >{ "a", "b" } ), reloaded.changes );
   EXPECT_EQ( 3u, reloaded.operation );
   EXPECT_FALSE( reloaded.changed );
   EXPECT_TRUE( reloaded.repeated );
   const Reloaded earlier = readReloaded( R"({"changes":[]})" );
   EXPECT_FALSE( earlier.operation );
   EXPECT_TRUE( earlier.changed );
   EXPECT_FALSE( earlier.repeated );
}

TEST( Operations, aRefusalNamesTheOneInTheWay ) {
   EXPECT_EQ(
      4u,
      readRefusal( R"({"error":{"code":"conflict","message":"no","where":"a","operation":4}})" )->operation );
   EXPECT_FALSE( readRefusal( R"({"error":{"code":"conflict","message":"no","where":"a"}})" )->operation );
}

TEST( Operations, haveTheirPaths ) {
   EXPECT_EQ( "/api/v1/operations?limit=20", Path::operationsOf( "", "", 20 ) );
   EXPECT_EQ( "/api/v1/operations?limit=1&unit=a%20b&state=done", Path::operationsOf( "a b", "done", 1 ) );
   EXPECT_EQ( "/api/v1/operations/7", Path::operation( 7 ) );
}

} // namespace

} // namespace Api
