#include "Config/Differences.h"
#include "Config/GeneratorsTest.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

namespace {

using Config::Configuration;
using Config::Differences;
using Lines = std::vector< std::string >;
using Names = std::vector< std::string >;
using NameSet = std::set< std::string >;

struct DifferencesTo : testing::Test {
   Configuration before;
   Configuration after;

   DifferencesTo() {
      before.profiles["p"] = {
         Config::Rate::fromBps( 1'000 ), Config::Duration::fromSeconds( 10 ), false, std::nullopt };
      before.profiles["q"] = before.profiles["p"];
      before.defaultProfile = "p";
      before.groups["g"] = { { "et1", "et2" }, { { 10, 19 } }, std::nullopt };
      before.groups["h"] = {};
      before.units["u"].groups = { "g" };
      before.units["v"].groups = { "g", "h" };
      after = before;
   }
   Differences found() const { return differences( before, after ); }
   Lines lines() const { return describe( before, after ); }
};

TEST_F( DifferencesTo, anEqualConfigurationAreNone ) {
   EXPECT_TRUE( found().empty() );
   EXPECT_EQ( Lines(), lines() );
}

TEST_F( DifferencesTo, switchListenSettleAndSimulatedAreFlags ) {
   after.switchKind = Config::SwitchKind::simulated;
   after.web = Config::Endpoint{ "::1", 80 };
   after.webNames = { "leaf1.example.net" };
   after.settle = Config::Duration::fromSeconds( 0 );
   after.simulated.ports["et1"] = {};
   Differences expected;
   expected.switchKind = expected.listen = expected.webNames = expected.settle = expected.simulated = true;
   EXPECT_EQ( expected, found() );
   EXPECT_EQ(
      ( Lines{
         "switch: linux -> simulated", "listen web: off -> [::1]:80",
         "listen names: [] -> [leaf1.example.net]", "simulated switch edited", "settle: 10s -> 0s" } ),
      lines() );
}

TEST_F( DifferencesTo, profilesAreEditedAddedAndRemoved ) {
   after.profiles["p"].threshold = Config::Rate::fromBps( 2'000 );
   after.profiles["p"].shutdownMaxDelay = Config::Duration();
   after.profiles["r"] = after.profiles["q"];
   after.profiles.erase( "q" );
   Differences expected;
   expected.profilesEdited = { "p" };
   expected.profilesAdded = { "r" };
   expected.profilesRemoved = { "q" };
   EXPECT_EQ( expected, found() );
   EXPECT_EQ(
      ( Lines{
         "profile \"p\" edited: threshold 1kbps -> 2kbps; shutdown-max-delay never -> 0s",
         "profile \"r\" added", "profile \"q\" removed" } ),
      lines() );
}

TEST_F( DifferencesTo, everyFieldOfAProfileIsAnEdit ) {
   after.profiles["p"].loadInterval = Config::Duration::fromSeconds( 90 );
   after.profiles["q"].shutdown = true;
   EXPECT_EQ( ( Names{ "p", "q" } ), found().profilesEdited );
   EXPECT_EQ(
      ( Lines{
         "profile \"p\" edited: load-interval 10s -> 1m30s",
         "profile \"q\" edited: shutdown false -> true" } ),
      lines() );
}

TEST_F( DifferencesTo, theDefaultProfileIsAnotherName ) {
   after.defaultProfile = "q";
   Differences expected;
   expected.defaultProfile = true;
   EXPECT_EQ( expected, found() );
   EXPECT_EQ( Lines{ "default-profile: \"p\" -> \"q\"" }, lines() );
}

TEST_F( DifferencesTo, aGroupIsWhatItGainsAndLoses ) {
   after.groups["g"] = { { "et2", "et3" }, { { 15, 20 } }, "q" };
   Differences expected;
   expected.groupsEdited = {
      { "g", { "et3" }, { "et1" }, Config::VlanSet{ { 20, 20 } }, Config::VlanSet{ { 10, 14 } }, true } };
   EXPECT_EQ( expected, found() );
   EXPECT_EQ(
      Lines{ "group \"g\" edited: profile the default -> \"q\"; interfaces added et3; interfaces removed "
             "et1; vlans "
             "added 20; vlans removed 10-14" },
      lines() );
}

TEST_F( DifferencesTo, aUnitIsWhatItGainsAndLoses ) {
   after.units["u"].groups = { "h" };
   Differences expected;
   expected.unitsEdited = { { "u", { "h" }, { "g" }, false, false } };
   EXPECT_EQ( expected, found() );
   EXPECT_EQ( Lines{ "unit \"u\" edited: groups added h; groups removed g" }, lines() );
}

TEST_F( DifferencesTo, aRenamedUnitIsRemovedAndAdded ) {
   auto unit = after.units.extract( "u" );
   unit.key() = "w";
   after.units.insert( std::move( unit ) );
   after.groups["i"] = {};
   after.groups.erase( "h" );
   after.units["v"].groups = { "g", "i" };
   Differences expected;
   expected.groupsAdded = { "i" };
   expected.unitsAdded = { "w" };
   expected.unitsEdited = { { "v", { "i" }, { "h" }, false, false } };
   expected.unitsRemoved = { "u" };
   expected.groupsRemoved = { "h" };
   EXPECT_EQ( expected, found() );
   EXPECT_EQ(
      ( Lines{
         "group \"i\" added", "unit \"w\" added", "unit \"v\" edited: groups added i; groups removed h",
         "unit \"u\" removed", "group \"h\" removed" } ),
      lines() );
}

TEST_F( DifferencesTo, stagesAreThoseOfTheConfigurationAndThoseInEffectInAUnit ) {
   after.enter = { "drainwatch", "drainwatch" };
   after.units["u"].enter = after.enter;
   after.units["v"].exit = {};
   Differences expected;
   expected.enter = true;
   expected.unitsEdited = { { "u", {}, {}, true, false }, { "v", {}, {}, false, true } };
   EXPECT_EQ( expected, found() );
   EXPECT_EQ(
      ( Lines{
         "enter: [drainwatch] -> [drainwatch, drainwatch]",
         "unit \"u\" edited: enter [drainwatch] -> [drainwatch, drainwatch]",
         "unit \"v\" edited: exit [drainwatch] -> []" } ),
      lines() );
}

TEST_F( DifferencesTo, stagesThatAreDefined ) {
   const auto command = []( const char * line ) { return *Config::Command::parse( line ).value; };
   before.stages["a"].enter = command( "/bin/a" );
   before.stages["b"].enter = command( "/bin/b 'c d'" );
   after.stages["b"] = {
      {}, command( "/bin/c" ), Config::Duration::fromSeconds( 90 ), Config::OnFailure::continueOn, true };
   after.stages["c"].exit = command( "/bin/c" );
   Differences expected;
   expected.stagesEdited = { "b" };
   expected.stagesAdded = { "c" };
   expected.stagesRemoved = { "a" };
   EXPECT_EQ( expected, found() );
   EXPECT_EQ(
      ( Lines{
         "stage \"b\" edited: enter /bin/b 'c d' -> nothing; exit nothing -> /bin/c; timeout 1m -> 1m30s; "
         "on-failure "
         "abort -> continue; steers false -> true",
         "stage \"c\" added", "stage \"a\" removed" } ),
      lines() );
}

RC_GTEST_PROP( DifferencesProperty, areNoneExactlyIfConfigurationsAreEqual, () ) {
   const Configuration a = Generators::configuration();
   const Configuration b = *rc::gen::arbitrary< bool >() ? a : Generators::configuration();
   RC_ASSERT( differences( a, b ).empty() == ( a == b ) );
   RC_ASSERT( describe( a, b ).empty() == ( a == b ) );
}

RC_GTEST_PROP( DifferencesProperty, leadFromOneConfigurationToTheOther, () ) {
   const Configuration from = Generators::configuration();
   const Configuration to = Generators::configuration();
   const Differences change = differences( from, to );
   Configuration made = from;
   for ( const std::string & name : change.groupsRemoved )
      RC_ASSERT( made.groups.erase( name ) == 1 );
   for ( const std::string & name : change.groupsAdded )
      RC_ASSERT( made.groups.emplace( name, to.groups.at( name ) ).second );
   for ( const Config::GroupDifference & edit : change.groupsEdited ) {
      Config::Group & group = made.groups.at( edit.name );
      for ( const std::string & name : edit.interfacesRemoved )
         RC_ASSERT( group.interfaces.erase( name ) == 1 );
      for ( const std::string & name : edit.interfacesAdded )
         RC_ASSERT( group.interfaces.insert( name ).second );
      group.vlans = group.vlans.without( edit.vlansRemoved );
      for ( const Config::VlanRange & range : edit.vlansAdded.ranges() )
         group.vlans.add( range );
      if ( edit.profile )
         group.profile = to.groups.at( edit.name ).profile;
   }
   RC_ASSERT( made.groups == to.groups );
   for ( const std::string & name : change.unitsRemoved )
      RC_ASSERT( made.units.erase( name ) == 1 );
   for ( const std::string & name : change.unitsAdded )
      RC_ASSERT( made.units.emplace( name, to.units.at( name ) ).second );
   for ( const Config::UnitDifference & edit : change.unitsEdited ) {
      NameSet & groups = made.units.at( edit.name ).groups;
      for ( const std::string & name : edit.groupsRemoved )
         RC_ASSERT( groups.erase( name ) == 1 );
      for ( const std::string & name : edit.groupsAdded )
         RC_ASSERT( groups.insert( name ).second );
      if ( edit.enter )
         made.units.at( edit.name ).enter = to.units.at( edit.name ).enter;
      if ( edit.exit )
         made.units.at( edit.name ).exit = to.units.at( edit.name ).exit;
   }
   RC_ASSERT( made.units == to.units );
   for ( const std::string & name : change.stagesEdited )
      made.stages.at( name ) = to.stages.at( name );
   for ( const std::string & name : change.stagesAdded )
      RC_ASSERT( made.stages.emplace( name, to.stages.at( name ) ).second );
   for ( const std::string & name : change.stagesRemoved )
      RC_ASSERT( made.stages.erase( name ) == 1 );
   RC_ASSERT( made.stages == to.stages );
   for ( const std::string & name : change.profilesEdited )
      made.profiles.at( name ) = to.profiles.at( name );
   for ( const std::string & name : change.profilesAdded )
      RC_ASSERT( made.profiles.emplace( name, to.profiles.at( name ) ).second );
   for ( const std::string & name : change.profilesRemoved )
      RC_ASSERT( made.profiles.erase( name ) == 1 );
   RC_ASSERT( made.profiles == to.profiles );
}

} // namespace
