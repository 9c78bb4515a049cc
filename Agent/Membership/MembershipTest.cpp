#include "Agent/Membership/Membership.h"

#include "Config/Load.h"

#include <gtest/gtest.h>

namespace {

using Agent::Membership;
using Maintenance::Profile::ProfileType;

const char * const base = R"(version: 1
profiles:
  fast: {threshold: 100kbps, load-interval: 10s, shutdown: true, shutdown-max-delay: 5m}
  watch: {threshold: 1Mbps, load-interval: 30s}
default-profile: fast
groups:
  uplinks: {interfaces: [et1, et2]}
  tenants: {vlans: [10], profile: watch}
units:
  spine-a: {groups: [uplinks, tenants]}
)";

Config::Configuration parsed( const std::string & text ) {
   const Config::Result result = Config::parse( text, "test.yaml" );
   EXPECT_TRUE( result ) << ( result.errors.empty() ? "" : result.errors[0].text() );
   return result ? *result.configuration : Config::Configuration();
}

std::string replaced( std::string text, const std::string & from, const std::string & to ) {
   const auto at = text.find( from );
   EXPECT_NE( std::string::npos, at ) << from;
   return text.replace( at, from.size(), to );
}

class MembershipStory : public ::testing::Test {
 protected:
   /// Notes every write that others see, in order.
   struct Notes {
      struct VelProfiles final : Vel::ReactorTo< Notes, IntfMaintenanceProfile::StatusDir > {
         using ReactorTo::ReactorTo;
         void onStatus( const Vel::String & n ) override {
            sm()->add( entity()->status( n ) ? "+profile " : "-profile ", n );
         }
      };
      struct VelDefault final : Vel::ReactorTo< Notes, Maintenance::Profile::DefaultProfile > {
         using ReactorTo::ReactorTo;
         void onProfileName() override { sm()->add( "default ", entity()->profileName() ); }
      };
      struct VelEntries final : Vel::ReactorTo< Notes, IntfMaintenance::IntfToGroupDir > {
         using ReactorTo::ReactorTo;
         void onIntfToGroup( const Wire::IntfId & i ) override {
            const auto * entry = entity()->intfToGroup( i );
            sm()->add( entry ? "+entry " : "-entry ", i );
            if ( entry )
               sm()
                  ->entry.is( Vel::Ptr< const IntfMaintenance::IntfToGroup >( entry ), sm() )
                  .hasNotificationActiveIs( true );
         }
      };
      struct VelEntry final : Vel::ReactorTo< Notes, IntfMaintenance::IntfToGroup > {
         using ReactorTo::ReactorTo;
         void onGroup( const Maintenance::GroupKey & g ) override {
            sm()->add( entity()->group( g ) ? "+group " : "-group ", g );
         }
         void onProfileChangeCause() override { sm()->add( "cause ", entity()->profileChangeCause() ); }
         void onSelectedProfile( const ProfileType & t ) override {
            sm()->add( "select ", entity()->selectedProfileKey( t ).name );
         }
      };
      struct VelGroups final : Vel::ReactorTo< Notes, IntfGroup::StatusDir > {
         using ReactorTo::ReactorTo;
         void onStatus( const Maintenance::GroupKey & g ) override {
            sm()->add( entity()->status( g ) ? "+status " : "-status ", g );
         }
      };
      struct VelUnits final : Vel::ReactorTo< Notes, Maintenance::GroupToUnitDir > {
         using ReactorTo::ReactorTo;
         void onUnitToGroup( const Vel::String & u ) override {
            sm()->add( entity()->unitToGroup( u ) ? "+unit " : "-unit ", u );
         }
      };
      template < class T >
      void add( const char * what, const T & of ) {
         log += Vel::text( what, of, "; " );
      }
      Vel::Watch< VelProfiles > profiles;
      Vel::Watch< VelDefault > defaults;
      Vel::Watch< VelEntries > entries;
      Vel::Watch< VelEntry > entry;
      Vel::Watch< VelGroups > groups;
      Vel::Watch< VelUnits > units;
      std::string log;
   };

   MembershipStory() {
      model.intfProfileStatusDir = Vel::make< IntfMaintenanceProfile::StatusDir >();
      model.defaultIntfProfile = Vel::make< Maintenance::Profile::DefaultProfile >();
      model.intfToGroupDir = Vel::make< IntfMaintenance::IntfToGroupDir >();
      model.intfGroupStatusDir = Vel::make< IntfGroup::StatusDir >();
      model.groupToUnitDir = Vel::make< Maintenance::GroupToUnitDir >();
      membership = std::make_unique< Membership >( model );
      notes.profiles.is( model.intfProfileStatusDir, &notes ).hasNotificationActiveIs( true );
      notes.defaults.is( model.defaultIntfProfile, &notes ).hasNotificationActiveIs( true );
      notes.entries.is( model.intfToGroupDir, &notes ).hasNotificationActiveIs( true );
      notes.groups.is( model.intfGroupStatusDir, &notes ).hasNotificationActiveIs( true );
      notes.units.is( model.groupToUnitDir, &notes ).hasNotificationActiveIs( true );
   }
   void config( const std::string & text ) { membership->configurationIs( parsed( text ) ); }
   Vel::String selected( const Wire::IntfId & intf ) {
      const auto * entry = model.intfToGroupDir->intfToGroup( intf );
      return entry ? entry->selectedProfileKey( ProfileType::interfaceProfile ).name : "(none)";
   }
   bool inGroup( const char * name, const Wire::IntfId & intf ) {
      const auto * status =
         model.intfGroupStatusDir->status( { Maintenance::GroupType::interfaceGroup, name } );
      return status && status->intf( intf );
   }
   std::string takeLog() { return std::exchange( notes.log, "" ); }

   const Wire::IntfId et1 = Wire::EthIntfId( "et1" );
   const Wire::IntfId et2 = Wire::EthIntfId( "et2" );
   Membership::Model model;
   std::unique_ptr< Membership > membership;
   Notes notes;
};

TEST_F( MembershipStory, hasNoEntryForANameWithoutAnInterface ) {
   config( base );
   EXPECT_EQ( 0u, model.intfToGroupDir->intfToGroups() );
   EXPECT_EQ( 0u, model.intfGroupStatusDir->statuss() );
}

TEST_F( MembershipStory, writesProfilesThenTheDefaultThenMappings ) {
   config( base );
   EXPECT_EQ( "+profile fast; +profile watch; default fast; +unit spine-a; ", takeLog() );
}

TEST_F( MembershipStory, selectsBeforeAnInterfaceAppearsInItsGroup ) {
   config( base );
   takeLog();
   membership->intfIs( et1 );
   EXPECT_EQ(
      "+entry et1; +group uplinks; cause selection; select #DEFAULTPROFILE; +status uplinks; ", takeLog() );
   EXPECT_TRUE( inGroup( "uplinks", et1 ) );
}

TEST_F( MembershipStory, findsVlanInterfacesByTheirId ) {
   config( base );
   const Wire::IntfId vlan = Wire::VlanIntfId( "tenant-ten", 10 );
   membership->intfIs( vlan );
   EXPECT_TRUE( inGroup( "tenants", vlan ) );
   EXPECT_EQ( "watch", selected( vlan ) );
}

TEST_F( MembershipStory, changesNothingWhenTheConfigurationIsTheSame ) {
   membership->intfIs( et1 );
   config( base );
   takeLog();
   config( base );
   EXPECT_EQ( "", takeLog() );
}

TEST_F( MembershipStory, editsProfilesInPlace ) {
   config( base );
   auto * const fast = model.intfProfileStatusDir->status( "fast" );
   config( replaced( base, "100kbps", "200kbps" ) );
   EXPECT_EQ( fast, model.intfProfileStatusDir->status( "fast" ) );
   EXPECT_EQ( 200, fast->drainWatchThresholdInKbps() );
   EXPECT_EQ( 300, fast->shutdownMaxDelay() );
   EXPECT_EQ( 10u, fast->drainWatchLoadInterval() );
   EXPECT_TRUE( fast->shutdown() );
}

TEST_F( MembershipStory, neverShutsByDelayWhereNoneIsGiven ) {
   config( base );
   EXPECT_EQ(
      std::numeric_limits< double >::infinity(),
      model.intfProfileStatusDir->status( "watch" )->shutdownMaxDelay() );
}

TEST_F( MembershipStory, runsAnInterfaceUnderTheStrictestProfile ) {
   membership->intfIs( et1 );
   const std::string both =
      replaced( base, "units:", "  extra: {interfaces: [et1], profile: watch}\nunits:" );
   config( both );
   EXPECT_EQ( "#DEFAULTPROFILE", selected( et1 ) );
   config( replaced( both, "100kbps", "2Mbps" ) );
   EXPECT_EQ( "watch", selected( et1 ) );
}

TEST_F( MembershipStory, selectsAgainWhenTheStrictestGroupIsLeft ) {
   membership->intfIs( et1 );
   const std::string both =
      replaced( base, "units:", "  extra: {interfaces: [et1], profile: watch}\nunits:" );
   config( both );
   takeLog();
   config( replaced( both, "[et1, et2]", "[et2]" ) );
   EXPECT_EQ( "select watch; -group uplinks; ", takeLog() );
}

TEST_F( MembershipStory, addsBeforeItRemovesWhenAnInterfaceMoves ) {
   membership->intfIs( et1 );
   config( base );
   takeLog();
   config(
      replaced( replaced( base, "[et1, et2]", "[et2]" ), "vlans: [10]", "vlans: [10], interfaces: [et1]" ) );
   EXPECT_EQ( "+group tenants; select watch; +status tenants; -group uplinks; ", takeLog() );
   EXPECT_FALSE( inGroup( "uplinks", et1 ) );
   EXPECT_TRUE( inGroup( "tenants", et1 ) );
}

TEST_F( MembershipStory, removesInTheReverseOrder ) {
   membership->intfIs( et1 );
   config( base );
   takeLog();
   config( R"(version: 1
profiles:
  watch: {threshold: 1Mbps, load-interval: 30s}
default-profile: watch
)" );
   EXPECT_EQ(
      "default watch; -unit spine-a; -status uplinks; -group uplinks; -entry et1; -profile fast; ",
      takeLog() );
}

TEST_F( MembershipStory, hasANewProfileBeforeItIsSelectedAndAnOldOneUntilItIsNot ) {
   config( replaced( base, "[et1, et2]", "[et1], profile: watch" ) );
   membership->intfIs( et1 );
   model.intfToGroupDir->intfToGroup( et1 )->profileChangeCauseIs( Maintenance::ProfileChangeCause::none );
   takeLog();
   config( R"(version: 1
profiles:
  fast: {threshold: 100kbps, load-interval: 10s, shutdown: true, shutdown-max-delay: 5m}
  slow: {threshold: 1Mbps, load-interval: 30s}
default-profile: fast
groups:
  uplinks: {interfaces: [et1], profile: slow}
  tenants: {vlans: [10], profile: slow}
units:
  spine-a: {groups: [uplinks, tenants]}
)" );
   EXPECT_EQ( "+profile slow; cause selection; select slow; -profile watch; ", takeLog() );
}

TEST_F( MembershipStory, selectsAgainAmongGroupsThatStayTheSameWhenAProfileIsEdited ) {
   membership->intfIs( et1 );
   const std::string both =
      replaced( base, "units:", "  extra: {interfaces: [et1], profile: watch}\nunits:" );
   config( both );
   takeLog();
   config( replaced( both, "1Mbps", "50kbps" ) );
   EXPECT_EQ( "select watch; ", takeLog() );
   EXPECT_EQ(
      Maintenance::ProfileChangeCause::selection,
      model.intfToGroupDir->intfToGroup( et1 )->profileChangeCause() );
}

TEST_F( MembershipStory, takesAnInterfaceByItsNameAndByItsVlan ) {
   config( replaced( base, "[et1, et2]", "[et1, vlan10]" ) );
   const Wire::IntfId vlan = Wire::VlanIntfId( "vlan10", 10 );
   membership->intfIs( vlan );
   EXPECT_TRUE( inGroup( "uplinks", vlan ) );
   EXPECT_TRUE( inGroup( "tenants", vlan ) );
   EXPECT_EQ( "#DEFAULTPROFILE", selected( vlan ) );
   membership->intfDel( vlan );
   EXPECT_FALSE( inGroup( "uplinks", vlan ) );
   EXPECT_FALSE( inGroup( "tenants", vlan ) );
   EXPECT_EQ( 0u, model.intfToGroupDir->intfToGroups() );
}

TEST_F( MembershipStory, takesEachOfTwoVlanInterfacesThatChangeTheirIds ) {
   config( replaced( base, "vlans: [10]", "vlans: [10, 20]" ) );
   const Wire::IntfId before = Wire::VlanIntfId( "a", 10 ), after = Wire::VlanIntfId( "a", 20 );
   membership->intfIs( before );
   membership->intfIs( after );
   EXPECT_FALSE( inGroup( "tenants", before ) );
   EXPECT_TRUE( inGroup( "tenants", after ) );
}

TEST_F( MembershipStory, removesAnInterfaceInTheReverseOrder ) {
   config( base );
   membership->intfIs( et1 );
   takeLog();
   membership->intfDel( et1 );
   EXPECT_EQ( "-group uplinks; -entry et1; ", takeLog() );
   EXPECT_EQ( 0u, model.intfToGroupDir->intfToGroups() );
}

TEST_F( MembershipStory, looksAtOneInterfaceOnlyWhenManyComeAndGo ) {
   // Takes minutes if all members are compared for each link.
   std::string members = "et0";
   for ( int i = 1; i < 4000; ++i )
      members += Vel::text( ", et", i );
   config( replaced( base, "et1, et2", members ) );
   for ( int i = 0; i < 4000; ++i )
      membership->intfIs( Wire::EthIntfId( Vel::text( "et", i ) ) );
   EXPECT_EQ( 4000u, model.intfToGroupDir->intfToGroups() );
   for ( int i = 0; i < 4000; ++i )
      membership->intfDel( Wire::EthIntfId( Vel::text( "et", i ) ) );
   EXPECT_EQ( 0u, model.intfToGroupDir->intfToGroups() );
}

TEST_F( MembershipStory, removesAnInterfaceThatIsGone ) {
   membership->intfIs( et1 );
   config( base );
   membership->intfDel( et1 );
   EXPECT_EQ( "(none)", selected( et1 ) );
   EXPECT_FALSE( inGroup( "uplinks", et1 ) );
   EXPECT_TRUE( membership->intf( "et1" ).empty() );
}

TEST_F( MembershipStory, treatsAnotherKindUnderTheSameNameAsAnotherInterface ) {
   membership->intfIs( et1 );
   config( base );
   const Wire::IntfId bond = Wire::PortChannelIntfId( "et1" );
   membership->intfIs( bond );
   EXPECT_FALSE( inGroup( "uplinks", et1 ) );
   EXPECT_TRUE( inGroup( "uplinks", bond ) );
   membership->intfDel( et1 );
   EXPECT_TRUE( inGroup( "uplinks", bond ) );
}

} // namespace
