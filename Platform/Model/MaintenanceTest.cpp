#include "Platform/Model/IntfMaintenance.h"
#include "Platform/Model/IntfMaintenanceProfile.h"

#include <gtest/gtest.h>

#include <limits>
#include <utility>

namespace {

using namespace Maintenance;
using Profile::ProfileKey;
using Profile::ProfileType;

const Wire::EthIntfId et1( "et1" );
const Wire::EthIntfId et2( "et2" );

TEST( ProfileKey, isUnsetExactlyWhenItsNameIsEmpty ) {
   EXPECT_TRUE( ProfileKey().unset() );
   EXPECT_TRUE( ( ProfileKey{ ProfileType::interfaceProfile, "" } ).unset() );
   EXPECT_FALSE( ( ProfileKey{ ProfileType::none, "fast" } ).unset() );
   EXPECT_FALSE( ( ProfileKey{ ProfileType::interfaceProfile, "fast" } ).unset() );
}

TEST( ProfileKey, isATypeAndAName ) {
   const ProfileKey fast{ ProfileType::interfaceProfile, "fast" };
   EXPECT_EQ( fast, ( ProfileKey{ ProfileType( 2 ), "fast" } ) );
   EXPECT_NE( fast, ( ProfileKey{ ProfileType( 1 ), "fast" } ) );
   EXPECT_NE( fast, ( ProfileKey{ ProfileType( 2 ), "slow" } ) );
   EXPECT_EQ( "fast", stringValue( fast ) );
}

TEST( MaintenanceEnumerations, haveFixedOrdinalsAndTexts ) {
   EXPECT_EQ( "none", stringValue( ProfileType( 0 ) ) );
   EXPECT_EQ( "unitProfile", stringValue( ProfileType( 1 ) ) );
   EXPECT_EQ( "interfaceProfile", stringValue( ProfileType( 2 ) ) );
   EXPECT_EQ( "ProfileType(3)", stringValue( ProfileType( 3 ) ) );
   EXPECT_EQ( "none", stringValue( ProfileChangeCause( 0 ) ) );
   EXPECT_EQ( "membership", stringValue( ProfileChangeCause( 1 ) ) );
   EXPECT_EQ( "selection", stringValue( ProfileChangeCause( 2 ) ) );
   EXPECT_EQ( "ProfileChangeCause(3)", stringValue( ProfileChangeCause( 3 ) ) );
   EXPECT_EQ( "monIntfStateIdle", stringValue( MonIntfState( 0 ) ) );
   EXPECT_EQ( "monIntfStateEnterMaint", stringValue( MonIntfState( 1 ) ) );
   EXPECT_EQ( "monIntfStateUnderMaint", stringValue( MonIntfState( 2 ) ) );
   EXPECT_EQ( "monIntfStateStopped", stringValue( MonIntfState( 3 ) ) );
   EXPECT_EQ( "MonIntfState(4)", stringValue( MonIntfState( 4 ) ) );
}

struct MemberObserver {
   struct VelMember final : Vel::ReactorTo< MemberObserver, IntfMaintenance::IntfToGroup > {
      using ReactorTo::ReactorTo;
      void onGroup( const GroupKey & key ) override {
         sm()->log += Vel::text( entity()->group( key ) ? "+" : "-", key, " " );
      }
      void onSelectedProfile( const ProfileType & type ) override {
         sm()->log += Vel::text(
            type, "=", entity()->selectedProfileKey( type ), "(", entity()->profileChangeCause(), ") " );
      }
   };
   Vel::Watch< VelMember > member;
   Vel::String log;
};

TEST( IntfToGroup, tellsOfEveryGroupAndEveryProfileType ) {
   const auto dir = Vel::make< IntfMaintenance::IntfToGroupDir >();
   IntfMaintenance::IntfToGroup * const member = dir->intfToGroupIs( et1 );
   MemberObserver observer;
   observer.member.is( member, &observer ).hasNotificationActiveIs( true );
   const GroupKey a{ GroupType::interfaceGroup, "a" };
   member->groupIs( a );
   member->groupIs( a );
   member->profileChangeCauseIs( ProfileChangeCause::selection );
   member->selectedProfileIs( ProfileType::interfaceProfile, { ProfileType::interfaceProfile, "fast" } );
   member->selectedProfileIs( ProfileType::interfaceProfile, { ProfileType::interfaceProfile, "fast" } );
   member->selectedProfileDel( ProfileType::interfaceProfile );
   member->groupDel( a );
   member->groupDel( a );
   EXPECT_EQ( "+a interfaceProfile=fast(selection) interfaceProfile=(selection) -a ", observer.log );
}

struct MemberDirObserver {
   struct VelDir final : Vel::ReactorTo< MemberDirObserver, IntfMaintenance::IntfToGroupDir > {
      using ReactorTo::ReactorTo;
      void onIntfToGroup( const Wire::IntfId & intf ) override {
         sm()->log += Vel::text( entity()->intfToGroup( intf ) ? "+" : "-", intf, " " );
      }
   };
   Vel::Watch< VelDir > dir;
   Vel::String log;
};

TEST( IntfToGroupDir, tellsOfInterfacesThatComeAndGo ) {
   const auto dir = Vel::make< IntfMaintenance::IntfToGroupDir >();
   MemberDirObserver observer;
   observer.dir.is( dir, &observer ).hasNotificationActiveIs( true );
   dir->intfToGroupIs( et1 );
   dir->intfToGroupIs( et1 );
   dir->intfToGroupPut( et1, Vel::make< IntfMaintenance::IntfToGroup >( et1 ) );
   dir->intfToGroupDel( et1 );
   dir->intfToGroupDel( et1 );
   EXPECT_EQ( "+et1 -et1 +et1 -et1 ", observer.log );
}

TEST( IntfToGroup, isAMemberWithAnInterface ) {
   const auto dir = Vel::make< IntfMaintenance::IntfToGroupDir >();
   const MemberToGroup * const member = dir->intfToGroupIs( et1 );
   EXPECT_EQ( member, dir->intfToGroup( et1 ) );
   EXPECT_EQ( nullptr, dir->intfToGroup( et2 ) );
   EXPECT_EQ( et1, dir->intfToGroup( et1 )->intfId() );
   EXPECT_EQ( "IntfMaintenance::IntfToGroup", member->typeInfo().name() );
}

TEST( MemberToGroup, hasAnUnsetKeyForATypeWithoutSelection ) {
   const auto member = Vel::make< IntfMaintenance::IntfToGroup >( et1 );
   EXPECT_TRUE( member->selectedProfileKey( ProfileType::interfaceProfile ).unset() );
   member->selectedProfileIs( ProfileType::interfaceProfile, { ProfileType::interfaceProfile, "fast" } );
   EXPECT_EQ( "fast", member->selectedProfileKey( ProfileType::interfaceProfile ).name );
   EXPECT_TRUE( member->selectedProfileKey( ProfileType::unitProfile ).unset() );
}

struct ProfileObserver {
   struct VelDefault final : Vel::ReactorTo< ProfileObserver, Profile::DefaultProfile > {
      using ReactorTo::ReactorTo;
      void onProfileName() override { sm()->log += "default=" + entity()->profileName() + " "; }
   };
   struct VelDir final : Vel::ReactorTo< ProfileObserver, IntfMaintenanceProfile::StatusDir > {
      using ReactorTo::ReactorTo;
      void onStatus( const Vel::String & name ) override {
         sm()->log += ( entity()->status( name ) ? "+" : "-" ) + name + " ";
      }
   };
   struct VelStatus final : Vel::ReactorTo< ProfileObserver, IntfMaintenanceProfile::Status > {
      using ReactorTo::ReactorTo;
      void onShutdown() override { sm()->log += Vel::text( "shutdown=", entity()->shutdown(), " " ); }
   };
   Vel::Watch< VelDefault > defaultProfile;
   Vel::Watch< VelDir > dir;
   Vel::Watch< VelStatus > status;
   Vel::String log;
};

TEST( DefaultProfile, tellsOfItsName ) {
   const auto profile = Vel::make< Profile::DefaultProfile >();
   ProfileObserver observer;
   observer.defaultProfile.is( profile, &observer ).hasNotificationActiveIs( true );
   profile->profileNameIs( "fast" );
   profile->profileNameIs( "fast" );
   profile->profileNameIs( "slow" );
   EXPECT_EQ( "default=fast default=slow ", observer.log );
}

TEST( IntfProfileStatus, tellsOfItselfAndOfShutdown ) {
   const auto dir = Vel::make< IntfMaintenanceProfile::StatusDir >();
   ProfileObserver observer;
   observer.dir.is( dir, &observer ).hasNotificationActiveIs( true );
   IntfMaintenanceProfile::Status * const fast = dir->statusIs( "fast" );
   observer.status.is( fast, &observer ).hasNotificationActiveIs( true );
   fast->shutdownIs( true );
   fast->shutdownIs( true );
   fast->shutdownIs( false );
   dir->statusDel( "fast" );
   dir->statusDel( "fast" );
   EXPECT_EQ( "+fast shutdown=1 shutdown=0 -fast ", observer.log );
}

TEST( IntfProfileStatus, staysReadableAfterItIsDeleted ) {
   const auto dir = Vel::make< IntfMaintenanceProfile::StatusDir >();
   const Vel::Ptr< const IntfMaintenanceProfile::Status > held( dir->statusIs( "fast" ) );
   dir->status( "fast" )->drainWatchThresholdInKbpsIs( 0.5 );
   dir->status( "fast" )->drainWatchLoadIntervalIs( 10 );
   dir->status( "fast" )->shutdownMaxDelayIs( std::numeric_limits< double >::infinity() );
   dir->statusDel( "fast" );
   EXPECT_EQ( "fast", held->name() );
   EXPECT_EQ( 0.5, held->drainWatchThresholdInKbps() );
   EXPECT_EQ( 10u, held->drainWatchLoadInterval() );
   EXPECT_FALSE( held->shutdown() );
   EXPECT_EQ( std::numeric_limits< double >::infinity(), held->shutdownMaxDelay() );
}

TEST( MonIntfStatus, isMadeWithItsProfileAndStartTime ) {
   const auto dir = Vel::make< MonIntfStatusDir >();
   MonIntfStatus * const record = dir->monIntfStatusIs( et1, Vel::String( "fast" ), 1000.5 );
   EXPECT_EQ( et1, record->intfId() );
   EXPECT_EQ( "et1", record->name() );
   EXPECT_EQ( "fast", record->profileName() );
   EXPECT_EQ( 1000.5, record->startTime() );
   EXPECT_EQ( Interface::IntfRates(), record->curRates() );
   EXPECT_EQ( Interface::IntfRates(), record->prevRates() );
   EXPECT_EQ( 0, record->lastSampleTime() );
   EXPECT_EQ( 0u, record->totalSamples() );
   EXPECT_EQ( monIntfStateIdle, record->state() );
   EXPECT_EQ( 0, record->stateTime() );
   EXPECT_FALSE( record->spikeUnderMaint() );
   EXPECT_FALSE( record->stale() );
}

TEST( MonIntfStatus, keepsItsStartTimeAndCountsWhenItIsAskedForAgain ) {
   const auto dir = Vel::make< MonIntfStatusDir >();
   MonIntfStatus * const record = dir->monIntfStatusIs( et1, Vel::String( "fast" ), 1000.0 );
   record->totalSamplesInc( 3 );
   EXPECT_EQ( record, dir->monIntfStatusIs( et1, Vel::String( "slow" ), 2000.0 ) );
   EXPECT_EQ( "fast", record->profileName() );
   EXPECT_EQ( 1000.0, record->startTime() );
   EXPECT_EQ( 3u, record->totalSamples() );
}

TEST( MonIntfStatus, countsEachKindOfSample ) {
   const auto record = Vel::make< MonIntfStatus >( et1 );
   record->totalSamplesInc( 1 );
   record->numConsecutiveDrainedSamplesInc( 2 );
   record->numSamplesAboveThresholdPreMaintInc( 3 );
   record->numSamplesBelowThresholdPreMaintInc( 4 );
   record->numSamplesAboveThresholdPostMaintInc( 5 );
   record->numSamplesBelowThresholdPostMaintInc( 6 );
   record->numConsecutiveDrainedSamplesIs( 0 );
   EXPECT_EQ( 1u, record->totalSamples() );
   EXPECT_EQ( 0u, record->numConsecutiveDrainedSamples() );
   EXPECT_EQ( 3u, record->numSamplesAboveThresholdPreMaint() );
   EXPECT_EQ( 4u, record->numSamplesBelowThresholdPreMaint() );
   EXPECT_EQ( 5u, record->numSamplesAboveThresholdPostMaint() );
   EXPECT_EQ( 6u, record->numSamplesBelowThresholdPostMaint() );
}

TEST( MonIntfStatus, holdsAStateBeyondTheKnownOnes ) {
   const auto record = Vel::make< MonIntfStatus >( et1 );
   record->stateIs( MonIntfState( 4 ) );
   EXPECT_EQ( 4u, record->state() );
   record->stateIs( MonIntfState( ~0u ) );
   EXPECT_EQ( ~0u, record->state() );
}

struct RecordObserver {
   struct VelRecord final : Vel::ReactorTo< RecordObserver, MonIntfStatus > {
      using ReactorTo::ReactorTo;
      void onCurRates() override {
         sm()->log += Vel::text(
            entity()->prevRates().inBitsRate, ">", entity()->curRates().inBitsRate, "@",
            entity()->lastSampleTime(), " " );
      }
      void onState() override {
         sm()->log += Vel::text( entity()->state(), "@", entity()->stateTime(), " " );
      }
   };
   struct VelDir final : Vel::ReactorTo< RecordObserver, MonIntfStatusDir > {
      using ReactorTo::ReactorTo;
      void onMonIntfStatus( const Wire::IntfId & intf ) override {
         sm()->log += Vel::text( entity()->monIntfStatus( intf ) ? "+" : "-", intf, " " );
      }
      void onMonIntfEnterMaint( const Wire::IntfId & intf ) override {
         note( "enter", intf, entity()->monIntfEnterMaint( intf ) );
      }
      void onMonIntfUnderMaint( const Wire::IntfId & intf ) override {
         note( "under", intf, entity()->monIntfUnderMaint( intf ) );
      }
      void onMonIntfSpikeUnderMaint( const Wire::IntfId & intf ) override {
         note( "spike", intf, entity()->monIntfSpikeUnderMaint( intf ) );
      }
      void note( const char * set, const Wire::IntfId & intf, const bool * value ) {
         sm()->log += Vel::text( set, " ", intf, " ", value ? Vel::boolText( *value ) : "gone", " " );
      }
   };
   Vel::Watch< VelRecord > record;
   Vel::Watch< VelDir > dir;
   Vel::String log;
};

void publish( MonIntfStatus & record, double inBitsRate, double now ) {
   record.prevRatesIs( record.curRates() );
   record.curRatesIs( { 0, 0, 0, inBitsRate, now } );
   record.lastSampleTimeIs( now );
}

TEST( MonIntfStatus, showsReactorsWhatWasWrittenBeforeAndNothingElse ) {
   const auto record = Vel::make< MonIntfStatus >( et1 );
   RecordObserver observer;
   observer.record.is( record, &observer ).hasNotificationActiveIs( true );
   publish( *record, 100, 5 );
   publish( *record, 200, 10 );
   record->stateIs( monIntfStateUnderMaint );
   record->stateTimeIs( 10 );
   EXPECT_EQ( "0>100@0 100>200@5 monIntfStateUnderMaint@0 ", observer.log );
}

TEST( MonIntfStatus, tellsOfEqualRatesThatHoldNaN ) {
   const auto record = Vel::make< MonIntfStatus >( et1 );
   RecordObserver observer;
   observer.record.is( record, &observer ).hasNotificationActiveIs( true );
   const Interface::IntfRates rates{ 0, 0, 0, std::numeric_limits< double >::quiet_NaN(), 5 };
   record->curRatesIs( rates );
   record->curRatesIs( rates );
   EXPECT_EQ( "0>nan@0 0>nan@0 ", observer.log );
}

TEST( MonIntfStatusDir, keepsThreeSetsApart ) {
   const auto dir = Vel::make< MonIntfStatusDir >();
   dir->monIntfEnterMaintIs( et1, true );
   dir->monIntfUnderMaintIs( et2, true );
   dir->monIntfSpikeUnderMaintIs( et2, true );
   EXPECT_TRUE( dir->monIntfEnterMaint( et1 ) );
   EXPECT_FALSE( dir->monIntfUnderMaint( et1 ) );
   EXPECT_FALSE( dir->monIntfSpikeUnderMaint( et1 ) );
   dir->monIntfUnderMaintDel( et2 );
   EXPECT_FALSE( dir->monIntfUnderMaint( et2 ) );
   EXPECT_TRUE( dir->monIntfSpikeUnderMaint( et2 ) );
   dir->monIntfSpikeUnderMaintDelAll();
   EXPECT_EQ( 0u, dir->monIntfSpikeUnderMaints() );
   EXPECT_EQ( 1u, dir->monIntfEnterMaints() );
   EXPECT_EQ( 0u, dir->monIntfStatuss() );
}

TEST( MonIntfStatusDir, tellsOfEachSetWhatComesChangesAndGoesAndNothingElse ) {
   using Dir = MonIntfStatusDir;
   using Intf = Wire::IntfId;
   const struct {
      const char * name;
      void ( *is )( Dir &, const Intf &, bool );
      void ( *del )( Dir &, const Intf & );
      void ( *delAll )( Dir & );
      const bool * ( *find )( const Dir &, const Intf & );
      Vel::U32 ( *size )( const Dir & );
   } sets[] = {
      { "enter", []( Dir & d, const Intf & i, bool v ) { d.monIntfEnterMaintIs( i, v ); },
        []( Dir & d, const Intf & i ) { d.monIntfEnterMaintDel( i ); },
        []( Dir & d ) { d.monIntfEnterMaintDelAll(); },
        []( const Dir & d, const Intf & i ) { return d.monIntfEnterMaint( i ); },
        []( const Dir & d ) { return d.monIntfEnterMaints(); } },
      { "under", []( Dir & d, const Intf & i, bool v ) { d.monIntfUnderMaintIs( i, v ); },
        []( Dir & d, const Intf & i ) { d.monIntfUnderMaintDel( i ); },
        []( Dir & d ) { d.monIntfUnderMaintDelAll(); },
        []( const Dir & d, const Intf & i ) { return d.monIntfUnderMaint( i ); },
        []( const Dir & d ) { return d.monIntfUnderMaints(); } },
      { "spike", []( Dir & d, const Intf & i, bool v ) { d.monIntfSpikeUnderMaintIs( i, v ); },
        []( Dir & d, const Intf & i ) { d.monIntfSpikeUnderMaintDel( i ); },
        []( Dir & d ) { d.monIntfSpikeUnderMaintDelAll(); },
        []( const Dir & d, const Intf & i ) { return d.monIntfSpikeUnderMaint( i ); },
        []( const Dir & d ) { return d.monIntfSpikeUnderMaints(); } },
   };
   for ( const auto & set : sets ) {
      SCOPED_TRACE( set.name );
      const auto dir = Vel::make< Dir >();
      RecordObserver observer;
      observer.dir.is( dir, &observer ).hasNotificationActiveIs( true );
      const auto told = [&] {
         Vel::String text = std::exchange( observer.log, {} );
         for ( auto at = text.find( set.name ); at != Vel::String::npos; at = text.find( set.name ) )
            text.erase( at, 6 );
         return text;
      };
      set.is( *dir, et1, true );
      set.is( *dir, et1, true );
      EXPECT_EQ( "et1 true ", told() );
      ASSERT_TRUE( set.find( *dir, et1 ) );
      EXPECT_TRUE( *set.find( *dir, et1 ) );
      set.is( *dir, et1, false );
      EXPECT_EQ( "et1 false ", told() );
      set.del( *dir, et2 );
      EXPECT_EQ( "", told() );
      set.del( *dir, et1 );
      EXPECT_EQ( "et1 gone ", told() );
      EXPECT_FALSE( set.find( *dir, et1 ) );
      set.del( *dir, et1 );
      set.delAll( *dir );
      EXPECT_EQ( "", told() );
      set.is( *dir, et1, true );
      set.is( *dir, et2, true );
      EXPECT_EQ( 2u, set.size( *dir ) );
      told();
      set.delAll( *dir );
      EXPECT_EQ( "et1 gone et2 gone ", told() );
      EXPECT_EQ( 0u, set.size( *dir ) );
   }
}

TEST( MonIntfStatusDir, allowsDeletionWhileItIsWalked ) {
   const auto dir = Vel::make< MonIntfStatusDir >();
   for ( const char * name : { "et1", "et2", "et3", "et4" } )
      dir->monIntfStatusIs( Wire::EthIntfId( name ) );
   Vel::String walked;
   for ( const auto & [intf, record] : dir->monIntfStatusRange() ) {
      walked += Vel::text( intf, " " );
      dir->monIntfStatusDel( et2 );
      dir->monIntfStatusDel( intf );
   }
   EXPECT_EQ( "et1 et3 et4 ", walked );
   EXPECT_EQ( 0u, dir->monIntfStatuss() );
}

TEST( MonIntfStatusDir, leavesARemovedRecordToItsHolders ) {
   const auto dir = Vel::make< MonIntfStatusDir >();
   const Vel::Ptr< MonIntfStatus > held( dir->monIntfStatusIs( et1, Vel::String( "fast" ), 3.0 ) );
   RecordObserver observer;
   observer.record.is( held, &observer ).hasNotificationActiveIs( true );
   dir->monIntfStatusDel( et1 );
   EXPECT_EQ( "fast", held->profileName() );
   publish( *held, 7, 5 );
   EXPECT_EQ( "0>7@0 ", observer.log );
}

} // namespace
