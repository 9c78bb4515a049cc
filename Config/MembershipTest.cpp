#include "Config/Membership.h"
#include "Config/GeneratorsTest.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <tuple>

namespace {

using Config::AppliedProfile;
using Config::Duration;
using Config::Rate;
using Config::strictestProfile;
using Names = std::set< std::string >;

struct Membership : testing::Test {
   Config::Configuration configuration;

   Membership() {
      profile( "standard", 1'000'000, 30 );
      configuration.defaultProfile = "standard";
      configuration.groups["plain"] = {};
   }
   void profile( const std::string & name, std::uint64_t bps, std::uint32_t seconds ) {
      configuration.profiles[name] = {
         Rate::fromBps( bps ), Duration::fromSeconds( seconds ), false, std::nullopt };
   }
   void group( const std::string & name, const std::string & profile ) {
      configuration.groups[name].profile = profile;
   }
   AppliedProfile applied( const Names & groups ) {
      return strictestProfile( configuration, groups ).value_or( AppliedProfile{ "nothing", false } );
   }
};

TEST_F( Membership, takesTheDefaultProfileForAGroupThatNamesNone ) {
   EXPECT_EQ( ( AppliedProfile{ "standard", true } ), applied( { "plain" } ) );
}

TEST_F( Membership, takesTheLowestThresholdFirst ) {
   profile( "low", 1'000, 10 );
   group( "g", "low" );
   EXPECT_EQ( ( AppliedProfile{ "low", false } ), applied( { "g", "plain" } ) );
   profile( "low", 1'000'001, 60 );
   EXPECT_EQ( ( AppliedProfile{ "standard", true } ), applied( { "g", "plain" } ) );
}

TEST_F( Membership, takesTheLongestLoadIntervalOfEqualThresholds ) {
   profile( "long", 1'000'000, 31 );
   group( "g", "long" );
   EXPECT_EQ( ( AppliedProfile{ "long", false } ), applied( { "g", "plain" } ) );
   profile( "long", 1'000'000, 29 );
   EXPECT_EQ( ( AppliedProfile{ "standard", true } ), applied( { "g", "plain" } ) );
}

TEST_F( Membership, takesAProfileThatIsNamedBeforeTheDefault ) {
   profile( "zzz", 1'000'000, 30 );
   group( "g", "zzz" );
   EXPECT_EQ( ( AppliedProfile{ "zzz", false } ), applied( { "g", "plain" } ) );
}

TEST_F( Membership, doesNotFollowTheDefaultWhenTheSameProfileIsNamed ) {
   group( "g", "standard" );
   EXPECT_EQ( ( AppliedProfile{ "standard", false } ), applied( { "g", "plain" } ) );
}

TEST_F( Membership, takesTheFirstNameOfEqualProfiles ) {
   profile( "a", 1'000, 10 );
   profile( "b", 1'000, 10 );
   group( "g", "b" );
   group( "h", "a" );
   EXPECT_EQ( ( AppliedProfile{ "a", false } ), applied( { "g", "h" } ) );
}

TEST_F( Membership, looksAtTheGivenGroupsOnly ) {
   profile( "low", 1'000, 10 );
   group( "g", "low" );
   EXPECT_EQ( ( AppliedProfile{ "standard", true } ), applied( { "plain", "unknown" } ) );
   EXPECT_EQ( std::nullopt, strictestProfile( configuration, {} ) );
}

TEST_F( Membership, listsInterfacesBeforeVlans ) {
   Config::Group & group = configuration.groups["g"];
   group.interfaces = { "et2", "bond0" };
   group.vlans = { { 10, 11 }, { 5, 5 } };
   std::string text;
   for ( const Config::Member & member : members( group ) )
      text.append( member.text() ).append( 1, ' ' );
   EXPECT_EQ( "bond0 et2 vlan 5 vlan 10 vlan 11 ", text );
}

TEST_F( Membership, knowsAllGroupsOfAMember ) {
   configuration.groups["g"].interfaces = { "et1", "et2" };
   configuration.groups["h"].interfaces = { "et2" };
   configuration.groups["h"].vlans = { { 7, 7 } };
   const std::map< Config::Member, Names > expected{
      { { 0, "et1" }, { "g" } }, { { 0, "et2" }, { "g", "h" } }, { { 7, "" }, { "h" } } };
   EXPECT_EQ( expected, groupsByMember( configuration ) );
}

RC_GTEST_PROP( MembershipProperty, findsAProfileOfOneOfTheGroupsThanWhichNoneIsStricter, () ) {
   const Config::Configuration configuration = Generators::configuration();
   Names groups;
   for ( const auto & group : configuration.groups )
      groups.insert( group.first );
   const std::optional< AppliedProfile > applied = strictestProfile( configuration, groups );
   RC_ASSERT( applied.has_value() == !groups.empty() );
   bool found = groups.empty();
   for ( const auto & entry : configuration.groups ) {
      const std::optional< std::string > & named = entry.second.profile;
      const std::string name = named.value_or( configuration.defaultProfile );
      const Config::Profile & own = configuration.profiles.at( name );
      const Config::Profile & best = configuration.profiles.at( applied->name );
      RC_ASSERT( best.threshold <= own.threshold );
      if ( best.threshold == own.threshold )
         RC_ASSERT( best.loadInterval >= own.loadInterval );
      if ( best.threshold == own.threshold && best.loadInterval == own.loadInterval )
         RC_ASSERT( !( applied->usesDefault && named ) );
      found = found || ( name == applied->name && named.has_value() != applied->usesDefault );
   }
   RC_ASSERT( found );
}

} // namespace
