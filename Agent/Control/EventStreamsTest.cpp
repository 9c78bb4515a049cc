#include "Agent/Control/ControlApiRigTest.h"

#include <nlohmann/json.hpp>
#include <rapidcheck.h>

#include <deque>

namespace Agent {

namespace {

using nlohmann::json;

/// Reads a stream, as fast as the test says, with breaks.
struct Reader {
   std::shared_ptr< HttpStream > stream;
   std::string received;
   unsigned woken = 0;
   bool ended = false;

   void open( std::shared_ptr< HttpStream > opened ) {
      stream = std::move( opened );
      received.clear();
      stream->wakeIs( [this] { ++woken; } );
   }
   /// Takes at most so many pieces.
   void take( unsigned pieces = 1000000 ) {
      while ( pieces-- > 0 && !ended ) {
         const HttpStream::Piece piece = stream->next();
         ended = piece.last;
         if ( !piece.text )
            return;
         received += *piece.text;
      }
   }
   /// "id type data" of each complete event.
   std::vector< std::array< std::string, 3 > > events() const {
      std::vector< std::array< std::string, 3 > > result;
      for ( std::size_t at = 0, end; ( end = received.find( "\n\n", at ) ) != std::string::npos;
            at = end + 2 ) {
         std::array< std::string, 3 > event;
         constexpr std::string_view names[] = { "id: ", "event: ", "data: " };
         for ( std::string_view lines( received.data() + at, end - at ); !lines.empty(); ) {
            const std::string_view line = lines.substr( 0, lines.find( '\n' ) );
            for ( std::size_t i = 0; i < 3; ++i )
               if ( line.starts_with( names[i] ) )
                  event[i] = line.substr( names[i].size() );
            lines.remove_prefix( std::min( line.size() + 1, lines.size() ) );
         }
         if ( !event[2].empty() )
            result.push_back( event );
      }
      return result;
   }
   std::vector< std::string > ids() const {
      std::vector< std::string > result;
      for ( const auto & event : events() )
         if ( event[1] != "rates" )
            result.push_back( event[0] );
      return result;
   }
};

std::string eventText( Vel::U64 sequence ) { return R"({"sequence":)" + std::to_string( sequence ) + "}"; }

using Ids = std::vector< std::string >;

class EventStreamsTest : public ControlApiRig {
 protected:
   EventStreams & streams() { return api->eventStreams(); }
   void happens( unsigned count = 1 ) {
      for ( unsigned i = 0; i < count; ++i )
         rig.eventLog->add( { EventType::unit, eventText( rig.eventLog->last() + 1 ) } );
   }
   Reader & reader( std::optional< Vel::U64 > after = std::nullopt, bool rates = false ) {
      Reader & made = readers.emplace_back();
      made.open( streams().stream( after, rates ) );
      return made;
   }
   std::deque< Reader > readers;
};

TEST_F( EventStreamsTest, tellsAnEventWhenItIsCommittedAndNotBefore ) {
   Reader & r = reader();
   r.take();
   happens();
   r.take();
   EXPECT_EQ( Ids(), r.ids() );
   EXPECT_EQ( 0u, r.woken );
   commit();
   EXPECT_EQ( 1u, r.woken );
   r.take();
   EXPECT_EQ( Ids{ "1" }, r.ids() );
   EXPECT_EQ( "unit", r.events()[0][1] );
   EXPECT_EQ( R"({"sequence":1})", r.events()[0][2] );
}

TEST_F( EventStreamsTest, tellsNothingWhileTheStoreFailsHoweverLongThatIs ) {
   Reader & r = reader( 0 );
   happens( 2 );
   commit();
   r.take();
   storeWorks = false;
   happens( 3 );
   for ( int turns = 0; turns < 3; ++turns ) {
      happens();
      commit();
   }
   r.take();
   EXPECT_EQ( ( Ids{ "1", "2" } ), r.ids() );
   EXPECT_EQ( 2, json::parse( got( "events/recent?after=0" ) ).at( "last" ) );
   EXPECT_EQ( 2u, json::parse( got( "events/recent?after=0" ) ).at( "events" ).size() );
   EXPECT_NE( std::string::npos, got( "metrics" ).find( "\nmaint_events_total 2\n" ) );
   EXPECT_EQ( 1u, waitingForStore.size() );
   storeWorks = true;
   commit();
   r.take();
   EXPECT_EQ( 8u, r.ids().size() );
}

TEST_F( EventStreamsTest, saysOfWhatIsLostWhileTheStoreFailsNoMoreThanIsCommitted ) {
   happens( 10 );
   commit();
   Reader & slow = reader( 4 );
   Reader & abreast = reader( 10 );
   storeWorks = false;
   happens( EventLog::kept + 100 );
   commit();
   for ( Reader * r : { &slow, &abreast } )
      r->take();
   ASSERT_EQ( Ids{ "10" }, slow.ids() );
   EXPECT_EQ( ( json{ { "dropped", 6 }, { "next", 11 } } ), json::parse( slow.events()[0][2] ) );
   EXPECT_EQ( Ids(), abreast.ids() );
   // It is of another log: nobody has been told of that one.
   Reader & stranger = reader( 50 );
   stranger.take();
   EXPECT_EQ( Ids{ "10" }, stranger.ids() );
   storeWorks = true;
   commit();
   for ( Reader * r : { &slow, &abreast } ) {
      r->take();
      EXPECT_EQ( "dropped", r->events().at( r == &slow )[1] );
      EXPECT_EQ( std::to_string( EventLog::kept + 110 ), r->ids().back() );
   }
   EXPECT_EQ( 206u, streams().dropped() );
}

TEST_F( EventStreamsTest, tellsNothingThatIsNotCommittedWhenTheApiGoes ) {
   Reader & r = reader( 0 );
   happens();
   api.reset();
   r.take();
   EXPECT_TRUE( r.ended );
   EXPECT_EQ( Ids(), r.ids() );
}

TEST_F( EventStreamsTest, beginsAfterTheEventThatIsNamedOrWithWhatIsNew ) {
   happens( 5 );
   commit();
   Reader & fresh = reader();
   Reader & resumed = reader( 3 );
   Reader & all = reader( 0 );
   happens();
   commit();
   for ( Reader & r : readers )
      r.take();
   EXPECT_EQ( Ids{ "6" }, fresh.ids() );
   EXPECT_EQ( ( Ids{ "4", "5", "6" } ), resumed.ids() );
   EXPECT_EQ( 6u, all.ids().size() );
}

TEST_F( EventStreamsTest, saysHowMuchIsNotKeptAnyMore ) {
   Reader & slow = reader( 0 );
   slow.take( 1 );
   happens( EventLog::kept + 10 );
   commit();
   slow.take();
   const auto events = slow.events();
   ASSERT_EQ( EventLog::kept + 1, events.size() );
   EXPECT_EQ( "dropped", events[0][1] );
   EXPECT_EQ( ( json{ { "dropped", 10 }, { "next", 11 } } ), json::parse( events[0][2] ) );
   // Whoever resumes from there misses nothing of it again.
   EXPECT_EQ( "10", events[0][0] );
   EXPECT_EQ( "11", events[1][0] );
}

TEST_F( EventStreamsTest, startsOverForAReaderOfAnotherLog ) {
   happens( 2 );
   commit();
   Reader & stranger = reader( 4711 );
   stranger.take();
   const auto events = stranger.events();
   ASSERT_EQ( 3u, events.size() );
   EXPECT_EQ( ( json{ { "dropped", 0 }, { "next", 1 } } ), json::parse( events[0][2] ) );
   EXPECT_EQ( ( Ids{ "0", "1", "2" } ), stranger.ids() );
}

TEST_F( EventStreamsTest, endsWhenEverythingIsTold ) {
   Reader & r = reader();
   happens();
   streams().end();
   r.take();
   EXPECT_TRUE( r.ended );
   EXPECT_EQ( Ids{ "1" }, r.ids() );
}

TEST_F( EventStreamsTest, streamsMayOutliveTheApi ) {
   Reader & r = reader( 0, true );
   happens();
   api.reset();
   r.take();
   EXPECT_TRUE( r.ended );
}

// ---- rates

TEST_F( EventStreamsTest, givesAFrameOfRatesAtMostOnceASecondAndOnlyToWhoWantsIt ) {
   auto & record = rig.record( rig.et1, Maintenance::monIntfStateEnterMaint );
   rig.sample( record, 1e6, 2e6, 0 );
   Reader & plain = reader();
   Reader & r = reader( std::nullopt, true );
   commit();
   r.take();
   rig.sample( record, 3e6, 4e6, 0 );
   commit();
   now += 1;
   rig.sample( record, 5e6, 6e6, 0 );
   rig.sample( record, 7e6, 8e6, 0 );
   commit();
   r.take();
   plain.take();
   EXPECT_TRUE( plain.events().empty() );
   const auto events = r.events();
   ASSERT_EQ( 2u, events.size() );
   EXPECT_EQ( "", events[0][0] );
   EXPECT_EQ( "rates", events[0][1] );
   const json first = json::parse( events[0][2] ), second = json::parse( events[1][2] );
   EXPECT_EQ( ( json{ 1000000, 2000000 } ), first.at( "interfaces" ).at( "et1" ) );
   EXPECT_EQ( ( json{ 7000000, 8000000 } ), second.at( "interfaces" ).at( "et1" ) );
   EXPECT_EQ( "2023-11-14T23:13:20.000Z", first.at( "time" ) );
   EXPECT_EQ( 0, second.at( "missed" ) );
}

TEST_F( EventStreamsTest, givesANewReaderTheNewestRatesAtOnce ) {
   auto & record = rig.record( rig.et1, Maintenance::monIntfStateEnterMaint );
   rig.sample( record, 1e6, 2e6, 0 );
   Reader & first = reader( std::nullopt, true );
   commit();
   first.take();
   // Another one in the same second, and one of its own in a later one, long before the next sample.
   for ( const double later : { 0.3, 2.0 } ) {
      now += later;
      Reader & r = reader( std::nullopt, true );
      commit();
      r.take();
      ASSERT_EQ( 1u, r.events().size() ) << later;
      const json frame = json::parse( r.events()[0][2] );
      EXPECT_EQ( ( json{ 1000000, 2000000 } ), frame.at( "interfaces" ).at( "et1" ) );
      EXPECT_EQ( 0, frame.at( "missed" ) );
   }
}

TEST_F( EventStreamsTest, givesNoRatesToANewReaderThatNobodyHasReadForLong ) {
   auto & record = rig.record( rig.et1, Maintenance::monIntfStateEnterMaint );
   rig.sample( record, 1e6, 2e6, 0 );
   reader( std::nullopt, true );
   commit();
   readers.clear();
   now += 10;
   rig.sample( record, 3e6, 4e6, 0 );
   Reader & r = reader( std::nullopt, true );
   r.take();
   EXPECT_TRUE( r.events().empty() ) << "the old ones";
   commit();
   r.take();
   ASSERT_EQ( 1u, r.events().size() );
   EXPECT_EQ( 3000000, json::parse( r.events()[0][2] ).at( "interfaces" ).at( "et1" )[0] );
}

TEST_F( EventStreamsTest, sendsOnlyTheNewestFrameToASlowReaderWithACount ) {
   auto & record = rig.record( rig.et1, Maintenance::monIntfStateEnterMaint );
   Reader & slow = reader( std::nullopt, true );
   commit();
   slow.take();
   const std::size_t before = slow.events().size();
   for ( int i = 1; i <= 5; ++i ) {
      now += 1;
      rig.sample( record, i * 1e6, 0, 0 );
      commit();
   }
   slow.take();
   const auto events = slow.events();
   ASSERT_EQ( before + 1, events.size() );
   const json frame = json::parse( events.back()[2] );
   EXPECT_EQ( 4, frame.at( "missed" ) );
   EXPECT_EQ( 5000000, frame.at( "interfaces" ).at( "et1" )[0] );
}

TEST_F( EventStreamsTest, neverCutsAFrameByAnother ) {
   auto & record = rig.record( rig.et1, Maintenance::monIntfStateEnterMaint );
   Reader & slow = reader( std::nullopt, true );
   for ( int i = 1; i <= 20; ++i ) {
      now += 1;
      rig.sample( record, i * 1e6, 0, 0 );
      happens();
      commit();
      slow.take( 1 );
   }
   slow.take();
   for ( const auto & event : slow.events() )
      EXPECT_TRUE( json::accept( event[2] ) ) << event[2];
   EXPECT_EQ( 20u, slow.ids().size() );
}

TEST_F( EventStreamsTest, namesOfAnyBytesAndRatesThatAreNoneMakeValidFrames ) {
   const Wire::IntfId odd = Wire::EthIntfId( "\"<script>\\\x01\xff" );
   rig.sample( rig.record( odd, Maintenance::monIntfStateEnterMaint ), 1e300, std::nan( "" ), 0 );
   Reader & r = reader( std::nullopt, true );
   commit();
   r.take();
   const json frame = json::parse( r.events().at( 0 )[2] );
   const json rates = frame.at( "interfaces" ).at( "\"<script>\\\x01\xef\xbf\xbd" );
   EXPECT_EQ( 1e300, rates[0] );
   EXPECT_EQ( nullptr, rates[1] );
}

TEST_F( EventStreamsTest, tellsOfAnInterfaceThatIsStarvedThatItsRateIsNotKnown ) {
   auto & record = rig.record( rig.et1, Maintenance::monIntfStateEnterMaint );
   rig.sample( record, 1e6, 2e6, 0 );
   Reader & r = reader( std::nullopt, true );
   commit();
   now += 30;
   rig.sample( rig.record( rig.et2, Maintenance::monIntfStateEnterMaint ), 1, 2, 0 );
   rig.records->monIntfStatus( rig.et2 )->curRatesIs( { 5, now, now, 7, now } );
   commit();
   r.take();
   const json frame = json::parse( r.events().back()[2] );
   EXPECT_EQ( ( json{ nullptr, nullptr } ), frame.at( "interfaces" ).at( "et1" ) );
   EXPECT_NE( nullptr, frame.at( "interfaces" ).at( "et2" )[0] );
}

// ---- over the API

TEST_F( EventStreamsTest, givesTheLastEventsAsJson ) {
   EXPECT_EQ( ( json{ { "events", json::array() }, { "last", 0 } } ), json::parse( got( "events/recent" ) ) );
   happens( 150 );
   EXPECT_EQ( 0, json::parse( got( "events/recent" ) ).at( "last" ) ) << "not committed yet";
   const json all = json::parse( got( "events/recent" ) );
   EXPECT_EQ( 150, all.at( "last" ) );
   ASSERT_EQ( 100u, all.at( "events" ).size() );
   EXPECT_EQ( 51, all.at( "events" )[0].at( "sequence" ) );
   const json some = json::parse( got( "events/recent?after=3&limit=2" ) );
   ASSERT_EQ( 2u, some.at( "events" ).size() );
   EXPECT_EQ( 4, some.at( "events" )[0].at( "sequence" ) );
   EXPECT_EQ( 0u, json::parse( got( "events/recent?after=150" ) ).at( "events" ).size() );
   EXPECT_EQ( 150u, json::parse( got( "events/recent?after=999&limit=4096" ) ).at( "events" ).size() );
   EXPECT_EQ( 0u, json::parse( got( "events/recent?limit=0" ) ).at( "events" ).size() );
}

TEST_F( EventStreamsTest, refusesWhatIsNoNumber ) {
   for ( const char * path : { "events?after=x", "events/recent?after=-1", "events/recent?limit=1e3" } )
      EXPECT_EQ( 400, ask( "GET", std::string( "/api/v1/" ) + path ) ) << path;
   EXPECT_EQ( 400, ask( "GET", "/api/v1/events?rates=true" ) );
   EXPECT_EQ( "bad-request \"rates\"", refused() );
   EXPECT_EQ( 405, ask( "POST", "/api/v1/events" ) );
}

TEST_F( EventStreamsTest, refusesParametersThatItDoesNotKnow ) {
   EXPECT_EQ( 400, ask( "GET", "/api/v1/events?rate=1" ) );
   EXPECT_EQ( "bad-request \"rate\"", refused() );
   EXPECT_EQ( 400, ask( "GET", "/api/v1/events/recent?after=1&last=5" ) );
   EXPECT_EQ( "bad-request \"last\"", refused() );
   EXPECT_EQ( 200, ask( "GET", "/api/v1/events?after=1&rates=0" ) );
}

TEST_F( EventStreamsTest, answersWithAStreamThatGoesOnWhereTheReaderWasCutOff ) {
   happens( 9 );
   EXPECT_EQ( 200, ask( "GET", "/api/v1/events?after=2" ) );
   EXPECT_EQ( "text/event-stream", reply.contentType );
   Reader r;
   ASSERT_TRUE( reply.stream );
   r.open( reply.stream );
   r.take();
   EXPECT_EQ( "3", r.ids().at( 0 ) );

   HttpRequest request{
      "GET", "/api/v1/events", { { "after", "2" } }, { { "last-event-id", "7" } }, "", "ann", false };
   api->handle( request, [&]( const HttpReply & got ) { r.open( got.stream ); } );
   r.take();
   EXPECT_EQ( ( Ids{ "8", "9" } ), r.ids() );
}

// ---- nothing is lost without a word

TEST_F( EventStreamsTest, readersOfAnySpeedAndWithAnyBreaksGetOrAreToldOfEveryEvent ) {
   struct Follower {
      Reader reader;
      Vel::U64 at = 0; ///< that the client has seen
      Vel::U64 seen = 0, dropped = 0;

      /// What has come in full counts; each must be the next.
      void account() {
         for ( const auto & event : reader.events() ) {
            if ( event[1] == "rates" ) {
               RC_ASSERT( json::accept( event[2] ) );
               continue;
            }
            if ( event[1] == "dropped" ) {
               const json data = json::parse( event[2] );
               const Vel::U64 next = data.at( "next" );
               RC_ASSERT( data.at( "dropped" ) == next - 1 - at );
               dropped += next - 1 - at;
               at = next - 1;
            } else {
               ++seen;
               RC_ASSERT( event[2] == eventText( at + 1 ) );
               ++at;
            }
            RC_ASSERT( event[0] == std::to_string( at ) );
         }
      }
      void open( EventStreams & streams ) { reader.open( streams.stream( at, at % 2 ) ); }
   };
   unsigned told = 0, tooSlow = 0;
   const bool held = rc::check( "no event is lost or told twice", [&, this] {
      std::deque< Follower > followers( 4 );
      const Vel::U64 begin = rig.eventLog->last();
      for ( Follower & follower : followers ) {
         follower.at = begin;
         follower.open( streams() );
      }
      for ( const auto & step : *rc::gen::container< std::vector< std::pair< int, int > > >(
               rc::gen::pair( rc::gen::inRange( 0, 10 ), rc::gen::inRange( 0, 3000 ) ) ) ) {
         Follower & follower = followers[static_cast< unsigned >( step.second ) % followers.size()];
         // Mostly some pieces of what a reader is given, seldom so much that what it has not read is not kept.
         if ( step.first < 3 )
            happens( static_cast< unsigned >( step.second % 8 ? step.second / 10 : step.second ) );
         else if ( step.first < 5 ) {
            now += step.second;
            rig.sample( rig.record( rig.et1, Maintenance::monIntfStateEnterMaint ), step.second, 0, 0 );
            commit();
         } else if ( step.first < 8 )
            follower.reader.take( static_cast< unsigned >( step.second ) % 7 );
         else {
            // The connection breaks, in the middle of an event perhaps.
            const std::size_t cut = static_cast< unsigned >( step.second ) % 50;
            auto & text = follower.reader.received;
            text.resize( text.size() - std::min( text.size(), cut ) );
            follower.account();
            follower.open( streams() );
         }
      }
      commit();
      for ( Follower & follower : followers ) {
         follower.reader.take();
         follower.account();
         RC_ASSERT( follower.at == rig.eventLog->last() );
         RC_ASSERT( follower.seen + follower.dropped == rig.eventLog->last() - begin );
         ( follower.dropped > 0 ? tooSlow : told ) += follower.seen > 0;
      }
   } );
   EXPECT_TRUE( held );
   EXPECT_GT( tooSlow, 10u ) << "readers that have missed something";
   EXPECT_GT( told, 10u ) << "readers that have missed nothing";
}

} // namespace

} // namespace Agent
