#include "Agent/Control/ControlApiRigTest.h"
#include "Agent/Control/RequestRig.h"

namespace Agent {

namespace {

using ControlApiHistory = ControlApiRig;

TEST_F( ControlApiHistory, listIsOfAllUnitsAndAsLongAsItIsUnlessSomebodyAsksForLess ) {
   got( "history" );
   got( "history?limit=3" );
   got( "history?unit=u1&limit=1000" );
   EXPECT_EQ(
      ( std::vector< std::string >{
         "history of , at most 1000", "history of , at most 3", "history of u1, at most 1000" } ),
      asked );
}

TEST_F( ControlApiHistory, unitThatIsConfiguredNoMoreHasItsHistory ) {
   got( "history?unit=gone" );
   EXPECT_EQ( 404, ask( "GET", "/api/v1/history?unit=never" ) );
   EXPECT_EQ( R"(not-found "never")", refused() );
   EXPECT_EQ( 404, ask( "GET", "/api/v1/history?unit=" ) );
}

TEST_F( ControlApiHistory, whatCannotBeMeantIsRefused ) {
   for ( const char * query :
         { "limit=0", "limit=1001", "limit=x", "limit=", "limit=-1", "limit=1.5", "limit=5&limit=6" } ) {
      EXPECT_EQ( 400, ask( "GET", std::string( "/api/v1/history?" ) + query ) ) << query;
      EXPECT_EQ( R"(bad-request "limit")", refused() ) << query;
   }
   EXPECT_EQ( 400, ask( "GET", "/api/v1/history?units=u1" ) );
   EXPECT_EQ( R"(bad-request "units")", refused() );
   EXPECT_TRUE( asked.empty() );
}

TEST_F( ControlApiHistory, recordIsAskedForByItsNumber ) {
   EXPECT_EQ( "{ }\n", got( "history/7" ) );
   EXPECT_EQ( 404, ask( "GET", "/api/v1/history/8" ) );
   for ( const char * id : { "x", "0", "-7", "7.0", "4294967296" } ) {
      EXPECT_EQ( 400, ask( "GET", std::string( "/api/v1/history/" ) + id ) ) << id;
      EXPECT_EQ( std::string( "bad-request \"" ) + id + "\"", refused() );
   }
}

TEST_F( ControlApiHistory, longRecordIsGivenAsItIsTaken ) {
   EXPECT_EQ( "", got( "history/9" ) );
   ASSERT_TRUE( reply.stream );
   const HttpStream::Piece first = reply.stream->next();
   EXPECT_LT( first.text->size(), 40000u );
   EXPECT_FALSE( first.last );
   // Two bytes of each piece are not blanks that make it long.
   EXPECT_EQ( 200u * 2 + 197u * 1000, first.text->size() + wholeBody( reply ).size() );
   EXPECT_EQ( "application/json", reply.contentType );
}

TEST_F( ControlApiHistory, recordOfShortPiecesReadsAFewOfThemAtOnceAndEachCountsForTheFileThatItTakes ) {
   unsigned files = 0;
   commands.history.record = [&]( Vel::U32 ) -> ControlCommands::History::Pieces {
      return [&]() { return ++files <= 1000 ? std::string( "x" ) : std::string(); };
   };
   api = std::make_unique< ControlApi >( rig.model(), commands );
   got( "history/7" );
   EXPECT_EQ( 16u, files );
   EXPECT_EQ( 16u * 4096, reply.effort );
   ASSERT_TRUE( reply.stream );
   EXPECT_EQ( std::string( 16, 'x' ), *reply.stream->next().text );
   for ( const HttpStream::Piece & piece : { reply.stream->next(), reply.stream->next() } ) {
      EXPECT_EQ( "x", *piece.text );
      EXPECT_EQ( 4096u, piece.effort );
   }
   EXPECT_EQ( 18u, files );
}

TEST_F( ControlApiHistory, shortRecordCountsForTheFilesThatItTakes ) {
   got( "history/7" );
   EXPECT_FALSE( reply.stream );
   EXPECT_EQ( 2u * 4096, reply.effort );
}

TEST_F( ControlApiHistory, longRecordThatCannotBeReadToItsEndFails ) {
   got( "history/10" );
   ASSERT_TRUE( reply.stream );
   EXPECT_TRUE( reply.stream->ends() );
   HttpStream::Piece piece;
   while ( !piece.last )
      piece = reply.stream->next();
   EXPECT_TRUE( piece.failed );
}

TEST_F( ControlApiHistory, canBeReadOverTheWebAddress ) {
   local = false;
   got( "history" );
   got( "history/7" );
}

} // namespace

} // namespace Agent
