#include "Agent/Control/Sentences.h"
#include "Agent/Control/ModelTest.h"

#include <gtest/gtest.h>

namespace Agent {

namespace {

using Maintenance::Unit::UnitState;

/// Facts put together by hand, at 14:13:20 of the wall clock.
class SentencesTest : public testing::Test {
 protected:
   SentencesTest() {
      commands.now = [this] { return now; };
      commands.wallTime = []( double time ) { return time - 8 * 3600; };
      unit.state = UnitState::enterInProgress;
      unit.progress = { "drainwatch", 7, 5, std::nullopt, 10, "" };
   }

   ReasonFacts intf( const std::string & name, Reason reason, double rate ) {
      ReasonFacts facts;
      facts.name = name;
      facts.reason = reason;
      facts.since = now - 671; // 14:02
      facts.rate = rate;
      facts.threshold = 1e5;
      facts.loadInterval = 10;
      return facts;
   }
   ReasonFacts falling( const std::string & name, double rate, double left ) {
      ReasonFacts facts = intf( name, Reason::aboveThreshold, rate );
      facts.trend = Trend::falling;
      facts.eta = now + left;
      return facts;
   }
   std::string said() const { return sentence( unit, commands ); }
   std::string said( const ReasonFacts & facts ) const { return reasonText( facts, commands ); }
   ControlCommands::Stage stage( const std::string & name, const std::string & state ) {
      ControlCommands::Stage result;
      result.name = name;
      result.state = state;
      result.since = now - 12;
      return result;
   }

   const double now = 1700000000;
   ControlCommands commands;
   UnitFacts unit;
};

} // namespace

// ---- interfaces

TEST_F( SentencesTest, tellAboutWhenAFallingRateWillHaveDrained ) {
   for ( const auto & [left, text] :
         { std::pair( 0.4, "any moment" ), std::pair( 7.0, "about 7 s" ), std::pair( 41.0, "about 40 s" ),
           std::pair( 98.0, "about 100 s" ), std::pair( 100.0, "about 2 min" ),
           std::pair( 5400.0, "about 90 min" ), std::pair( 36000.0, "about 10 h" ),
           std::pair( 400000.0, "about 5 days" ) } )
      EXPECT_EQ( std::string( "812 kbit/s, " ) + text, said( falling( "et3", 812000, left ) ) );
}

TEST_F( SentencesTest, tellEachReason ) {
   const std::pair< Reason, const char * > texts[] = {
      { Reason::aboveThreshold, "310 kbit/s, threshold 100 kbit/s" },
      { Reason::stalled, "stalled at 310 kbit/s since 14:02" },
      { Reason::oscillating, "oscillating about 100 kbit/s since 14:02, now 310 kbit/s" },
      { Reason::starved, "no fresh counters since 14:02" },
      { Reason::drained, "drained since 14:02" },
      { Reason::shut, "shut since 14:02" },
      { Reason::spike, "310 kbit/s, traffic is back since 14:02" },
      { Reason::stopped, "not monitored any more since 14:02" } };
   for ( const auto & [reason, text] : texts )
      EXPECT_EQ( text, said( intf( "et1", reason, 310000 ) ) );
   ReasonFacts quiet = intf( "et1", Reason::timing, 5000 );
   quiet.quiet = 5;
   EXPECT_EQ( "5 of 10 s quiet", said( quiet ) );
   EXPECT_EQ( "drained again, traffic was back at 14:02", said( intf( "et1", Reason::spike, 5 ) ) );
}

TEST_F( SentencesTest, tellWhatIsSoWhenTheReasonLagsBehind ) {
   ReasonFacts quiet = intf( "et1", Reason::aboveThreshold, 5000 );
   quiet.quiet = 5;
   EXPECT_EQ( "5.00 kbit/s, 5 of 10 s quiet", said( quiet ) );
   EXPECT_EQ( "310 kbit/s, threshold 100 kbit/s", said( intf( "et1", Reason::timing, 310000 ) ) );
}

TEST_F( SentencesTest, tellThatWhatIsSaidToStallOrOscillateIsQuietOrFalls ) {
   ReasonFacts quiet = intf( "et1", Reason::stalled, 0 );
   quiet.loadInterval = 60;
   quiet.quiet = 40;
   quiet.eta = now + 20;
   EXPECT_EQ( "40 of 60 s quiet", said( quiet ) );
   quiet.reason = Reason::oscillating;
   EXPECT_EQ( "oscillating about 100 kbit/s since 14:02, 40 of 60 s quiet", said( quiet ) );
   ReasonFacts falls = falling( "et1", 310000, 40 );
   falls.reason = Reason::stalled;
   EXPECT_EQ( "310 kbit/s, about 40 s", said( falls ) );
}

TEST_F( SentencesTest, tellSinceWhenNobodyHasSeenWhatADrainedInterfaceCarries ) {
   ReasonFacts facts = intf( "et1", Reason::drained, 0 );
   facts.unwatched = now - 60;
   EXPECT_EQ( "drained since 14:02, not watched since 14:12", said( facts ) );
   facts = intf( "et1", Reason::spike, 310000 );
   facts.unwatched = now - 60;
   EXPECT_EQ( "traffic was back at 14:02, not watched since 14:12", said( facts ) );
   facts.rate = 5;
   EXPECT_EQ( "drained again, traffic was back at 14:02, not watched since 14:12", said( facts ) );
}

TEST_F( SentencesTest, tellThatARateRises ) {
   ReasonFacts rising = intf( "et1", Reason::aboveThreshold, 310000 );
   rising.trend = Trend::rising;
   EXPECT_EQ( "310 kbit/s, rising, threshold 100 kbit/s", said( rising ) );
}

TEST_F( SentencesTest, tellThatThereIsNoProfile ) {
   ReasonFacts facts = intf( "et1", Reason::aboveThreshold, 310000 );
   facts.threshold = facts.loadInterval = std::nullopt;
   EXPECT_EQ( "310 kbit/s, no profile", said( facts ) );
}

TEST_F( SentencesTest, tellNoRateThatIsNotKnown ) {
   ReasonFacts facts = intf( "et1", Reason::aboveThreshold, 0 );
   facts.rate = std::nullopt;
   EXPECT_EQ( "waits for its first rate", said( facts ) );
   facts.sampled = true;
   EXPECT_EQ( "its rate cannot be told", said( facts ) );
   facts.reason = Reason::stalled;
   EXPECT_EQ( "its rate cannot be told", said( facts ) );
   facts.reason = Reason::oscillating;
   EXPECT_EQ( "oscillating about 100 kbit/s since 14:02", said( facts ) );
}

TEST_F( SentencesTest, tellTheDateOfWhatIsLongAgo ) {
   ReasonFacts facts = intf( "et1", Reason::stalled, 310000 );
   facts.since = now - 86400;
   EXPECT_EQ( "stalled at 310 kbit/s since 2023-11-13 14:13", said( facts ) );
}

// ---- units

TEST_F( SentencesTest, tellWhatAUnitWaitsFor ) {
   ReasonFacts stalled = intf( "bond0", Reason::stalled, 310000 );
   stalled.shutdownAt = now + 189.5;
   unit.interfaces = { stalled, intf( "et1", Reason::drained, 0 ), falling( "et3", 812000, 40 ) };
   EXPECT_EQ(
      "5 of 7 drained; et3 812 kbit/s, about 40 s; bond0 stalled at 310 kbit/s since 14:02; forced shutdown "
      "of "
      "bond0 in 3m10s",
      said() );
}

TEST_F( SentencesTest, nameTheSlowestFewInTheOrderInWhichTheyWillEnd ) {
   unit.progress.total = 20;
   for ( int i = 0; i < 14; ++i )
      unit.interfaces.push_back( falling( "et" + std::to_string( i ), 2e6, 100 - i ) );
   unit.interfaces.push_back( intf( "bond0", Reason::oscillating, 2e6 ) );
   EXPECT_EQ(
      "5 of 20 drained; et1 2.00 Mbit/s, about 100 s; et0 2.00 Mbit/s, about 2 min; bond0 oscillating about "
      "100 kbit/s since 14:02, now 2.00 Mbit/s; and 12 more",
      said() );
}

TEST_F( SentencesTest, nameThoseThatAreFarthestAboveTheirThresholdOfWhatHasNoEnd ) {
   unit.progress = { "drainwatch", 5, 0, std::nullopt, 10, "" };
   unit.interfaces = { intf( "et1", Reason::stalled, 9e9 ), falling( "et2", 9e9, 500 ) };
   for ( const char * name : { "et3", "et4", "et5" } )
      unit.interfaces.push_back( intf( name, Reason::stalled, 2e5 ) );
   EXPECT_EQ(
      "0 of 5 drained; et3 stalled at 200 kbit/s since 14:02; et4 stalled at 200 kbit/s since 14:02; et1 "
      "stalled "
      "at 9.00 Gbit/s since 14:02; and 2 more",
      said() );
   unit.interfaces[0].threshold = 1e10;
   EXPECT_NE( std::string::npos, said().find( "; et5 stalled" ) ) << said();
}

TEST_F( SentencesTest, tellNoForcedShutdownThatCannotComeWithoutFreshCounters ) {
   unit.interfaces = { intf( "et1", Reason::starved, 2e6 ), intf( "et2", Reason::stalled, 2e6 ) };
   for ( ReasonFacts & facts : unit.interfaces )
      facts.shutdownAt = now + 30;
   EXPECT_TRUE( said().ends_with( "; forced shutdown of et2 in 30s" ) ) << said();
   unit.progress.blocked = "the agent is degraded: cannot read the counters";
   EXPECT_EQ( std::string::npos, said().find( "forced shutdown" ) ) << said();
}

TEST_F( SentencesTest, tellTheNextForcedShutdownOnlyOfThoseThatWillNotHaveDrained ) {
   for ( const auto & [name, left] : { std::pair( "et1", 90.0 ), std::pair( "et2", 60.0 ) } ) {
      unit.interfaces.push_back( intf( name, Reason::stalled, 2e6 ) );
      unit.interfaces.back().shutdownAt = now + left;
   }
   unit.interfaces.push_back( falling( "et3", 2e6, 20 ) );
   unit.interfaces.back().shutdownAt = now + 30;
   EXPECT_TRUE( said().ends_with( "; forced shutdown of et2 in 1m00s, and of 1 more" ) ) << said();
   unit.interfaces[1].shutdownAt = now - 1;
   EXPECT_TRUE( said().ends_with( "; forced shutdown of et2 now, and of 1 more" ) ) << said();
}

TEST_F( SentencesTest, areOfBoundedLengthWhateverTheSize ) {
   unit.progress.blocked = std::string( 5000, 'x' );
   for ( int i = 0; i < 2000; ++i ) {
      unit.interfaces.push_back( falling( std::string( 20, 'n' ) + std::to_string( i ), 2e6, i ) );
      unit.interfaces.back().shutdownAt = now + 30;
      unit.uncounted.push_back( std::string( 20, 'n' ) );
   }
   EXPECT_LT( said().size(), 450u );
}

TEST_F( SentencesTest, tellThatAUnitSettles ) {
   unit.progress.drained = 7;
   unit.progress.settlingSince = now - 1.5;
   EXPECT_EQ( "7 of 7 drained; settling, 9s left", said() );
   unit.progress.total = unit.progress.drained = 0;
   EXPECT_EQ( "no interface to wait for; settling, 9s left", said() );
}

TEST_F( SentencesTest, tellThatAUnitIsHeld ) {
   unit.progress.drained = 7;
   unit.uncounted = { "vlan10", "vlan20" };
   EXPECT_EQ( "7 of 7 drained; held: nobody can say what vlan10, vlan20 carries", said() );
   unit.progress.blocked = "the agent is degraded: disk full";
   EXPECT_EQ( "7 of 7 drained; held: the agent is degraded: disk full", said() );
}

TEST_F( SentencesTest, tellThatAUnitIsStuck ) {
   unit.progress.drained = 7;
   unit.stuck = "no completion came";
   EXPECT_EQ( "7 of 7 drained; stuck: no completion came", said() );
}

TEST_F( SentencesTest, tellWhatACommandDoes ) {
   unit.progress = { "steer", 0, 0, std::nullopt, 10, "" };
   unit.progress.stages = { stage( "steer", "running" ), stage( "drainwatch", "pending" ) };
   EXPECT_EQ( "stage steer runs for 12s", said() );
   unit.progress.stages[0].limit = 60;
   EXPECT_EQ( "stage steer runs for 12s of at most 1m00s", said() );
   unit.progress.stages[0].waitsFor = "one of 64 commands to end";
   EXPECT_EQ( "stage steer waits for one of 64 commands to end", said() );
   unit.progress.stage = "";
   unit.progress.busy = true;
   EXPECT_EQ( "waits until an earlier command has ended", said() );
   unit.progress.busy = false;
   EXPECT_EQ( "between two stages", said() );
}

TEST_F( SentencesTest, tellWhatIsBackUnderMaintenance ) {
   unit.state = UnitState::maintenance;
   unit.since = now - 671;
   unit.progress.drained = 7;
   unit.interfaces = { intf( "et1", Reason::drained, 0 ) };
   EXPECT_EQ( "in maintenance since 14:02; 7 of 7 drained", said() );
   unit.interfaces = { intf( "et1", Reason::spike, 1.25e6 ), intf( "et2", Reason::spike, 10 ) };
   EXPECT_EQ(
      "in maintenance since 14:02; 7 of 7 drained; traffic is back on et1 (1.25 Mbit/s); traffic was back on "
      "et2",
      said() );
}

TEST_F( SentencesTest, tellThatNobodyWatchesUnderMaintenance ) {
   unit.state = UnitState::maintenance;
   unit.since = now - 671;
   unit.progress.drained = 7;
   unit.progress.blocked = "the agent is degraded: cannot read the counters";
   unit.interfaces = { intf( "et1", Reason::spike, 1.25e6 ) };
   EXPECT_EQ(
      "in maintenance since 14:02; 7 of 7 drained; traffic was back on et1; not watched: the agent is "
      "degraded: "
      "cannot read the counters",
      said() );
}

TEST_F( SentencesTest, tellWhichInterfacesNobodyWatchesUnderMaintenance ) {
   unit.state = UnitState::maintenance;
   unit.since = now - 671;
   unit.progress.drained = 7;
   unit.interfaces = {
      intf( "et1", Reason::drained, 0 ), intf( "et2", Reason::drained, 0 ),
      intf( "et3", Reason::spike, 1.25e6 ) };
   unit.interfaces[1].unwatched = unit.interfaces[2].unwatched = now - 60;
   EXPECT_EQ(
      "in maintenance since 14:02; 7 of 7 drained; traffic was back on et3; not watched: et2, et3", said() );
}

TEST_F( SentencesTest, tellTheWayBack ) {
   unit.state = UnitState::exitInProgress;
   EXPECT_EQ( "going back; lets go of the links", said() );
   unit.progress.stages = { stage( "drainwatch", "running" ) };
   EXPECT_EQ( "going back; lets go of the links", said() );
   unit.progress.stages[0].waitsFor = "et1, et2";
   EXPECT_EQ( "going back; links come back: et1, et2", said() );
   unit.progress.stage = "steer";
   unit.progress.stages = { stage( "steer", "running" ) };
   EXPECT_EQ( "going back; stage steer runs for 12s", said() );
   unit.stuck = "it does not end";
   EXPECT_EQ( "going back; stage steer runs for 12s; stuck: it does not end", said() );
}

TEST_F( SentencesTest, areShortOfAUnitThatIsNormal ) {
   unit.state = UnitState::normal;
   EXPECT_EQ( "normal", said() );
   unit.since = now - 671;
   EXPECT_EQ( "normal since 14:02", said() );
}

// ---- when a unit is through

TEST_F( SentencesTest, expectAUnitWhenItsLastInterfaceHasDrainedAndItHasSettled ) {
   unit.interfaces = {
      falling( "et1", 2e6, 20 ), falling( "et2", 2e6, 50 ), intf( "et3", Reason::drained, 0 ) };
   EXPECT_EQ( now + 60, unitEta( unit ) );
   unit.interfaces.push_back( intf( "et4", Reason::stalled, 2e6 ) );
   EXPECT_EQ( std::nullopt, unitEta( unit ) );
}

TEST_F( SentencesTest, expectASettlingUnitWhenItHasSettled ) {
   unit.progress.settlingSince = now - 4;
   EXPECT_EQ( now + 6, unitEta( unit ) );
}

TEST_F( SentencesTest, expectNothingOfAUnitThatDoesNotDrainOrIsHeld ) {
   unit.interfaces = { falling( "et1", 2e6, 20 ) };
   unit.uncounted = { "vlan10" };
   EXPECT_EQ( std::nullopt, unitEta( unit ) );
   unit.uncounted.clear();
   unit.progress.blocked = "no plug-in";
   EXPECT_EQ( std::nullopt, unitEta( unit ) );
   unit.progress.blocked.clear();
   unit.progress.stage = "steer";
   EXPECT_EQ( std::nullopt, unitEta( unit ) );
   unit.progress.stage = "drainwatch";
   unit.state = UnitState::maintenance;
   EXPECT_EQ( std::nullopt, unitEta( unit ) );
}

TEST_F( SentencesTest, tellOfLinksThatCouldNotBeShut ) {
   ReasonFacts et1 = intf( "et1", Reason::shut, 0 );
   et1.shutProblem = "Operation not permitted";
   EXPECT_EQ( "not shut: Operation not permitted", said( et1 ) );
   unit.interfaces = { et1 };
   EXPECT_EQ( "5 of 7 drained; et1 could not be shut: Operation not permitted", said() );
   unit.state = UnitState::maintenance;
   EXPECT_EQ( "in maintenance; 5 of 7 drained; et1 could not be shut: Operation not permitted", said() );
   et1 = intf( "et1", Reason::spike, 310000 );
   et1.shutProblem = "Operation not permitted";
   EXPECT_EQ( "310 kbit/s, traffic is back since 14:02; not shut: Operation not permitted", said( et1 ) );
}

// ---- out of the entities

TEST_F( SentencesTest, takeTheFactsOfAnInterfaceFromItsRecordProfileAndInsight ) {
   ModelRig rig;
   const ControlModel model = rig.model();
   EXPECT_FALSE( reasonFacts( model, rig.et1, rig.now ) );
   auto & record = rig.record( rig.et1, Maintenance::monIntfStateEnterMaint );
   EXPECT_FALSE( reasonFacts( model, rig.et1, rig.now ) );
   auto & insight = rig.insight( rig.et1, Reason::aboveThreshold );
   insight.trendIs( Trend::falling );
   insight.etaIs( rig.now + 70 );
   EXPECT_EQ( std::nullopt, reasonFacts( model, rig.et1, rig.now )->rate );
   rig.sample( record, 2e5, 3e5, 0 );
   const auto facts = reasonFacts( model, rig.et1, rig.now );
   EXPECT_EQ( "et1", facts->name );
   EXPECT_EQ( rig.now - 30, facts->since );
   EXPECT_EQ( 3e5, facts->rate );
   EXPECT_EQ( 1e5, facts->threshold );
   EXPECT_EQ( 10, facts->loadInterval );
   EXPECT_EQ( rig.now + 70, facts->eta );
   EXPECT_EQ( record.startTime() + 300, facts->shutdownAt );
}

TEST_F( SentencesTest, expectAnInterfaceNoLaterThanItIsShut ) {
   ModelRig rig;
   rig.record( rig.et1, Maintenance::monIntfStateEnterMaint );
   rig.insight( rig.et1, Reason::aboveThreshold ).etaIs( rig.now + 5000 );
   EXPECT_EQ( rig.now + 240, reasonFacts( rig.model(), rig.et1, rig.now )->eta );
}

TEST_F( SentencesTest, missTheCountersOfWhatHasDrainedAfterThreeSamples ) {
   ModelRig rig;
   auto & record = rig.record( rig.et1, Maintenance::monIntfStateUnderMaint );
   const auto unwatched = [&]( double now ) { return reasonFacts( rig.model(), rig.et1, now )->unwatched; };
   rig.insight( rig.et1, Reason::drained );
   EXPECT_EQ( std::nullopt, unwatched( rig.now + 1000 ) ); // nothing has been seen of it yet
   rig.sample( record, 0, 0, 5 );
   const double last = record.lastSampleTime();
   for ( const Reason reason : { Reason::drained, Reason::spike } ) {
      rig.insight( rig.et1, reason );
      EXPECT_EQ( std::nullopt, unwatched( last + 30.9 ) );
      EXPECT_EQ( last, unwatched( last + 31 ) );
   }
   // Nothing is to be seen of a link that is down, and what is waited for is starved then.
   for ( const Reason reason : { Reason::shut, Reason::starved, Reason::stopped } ) {
      rig.insight( rig.et1, reason );
      EXPECT_EQ( std::nullopt, unwatched( last + 1000 ) );
   }
}

TEST_F( SentencesTest, expectNoShutdownOfWhatHasDrained ) {
   ModelRig rig;
   rig.record( rig.et1, Maintenance::monIntfStateUnderMaint );
   rig.insight( rig.et1, Reason::drained );
   EXPECT_EQ( std::nullopt, reasonFacts( rig.model(), rig.et1, rig.now )->shutdownAt );
}

} // namespace Agent
