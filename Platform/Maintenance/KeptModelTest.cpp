#include "Platform/Ledger/MemoryEngine.h"
#include "Platform/Ledger/Persistence.h"
#include "Platform/Model/Errdisable.h"
#include "Platform/Model/Maintenance.h"
#include "Platform/Model/Stage.h"

#include <gtest/gtest.h>

#include <limits>

/// What of the model has to survive a restart of the agent does, to the last attribute.
namespace {

using Folder = Ledger::Persistence::Folder;

const Wire::EthIntfId et1( "et1" );
const Wire::VlanIntfId vlan10( "vlan10", 10 );

struct Process {
   Process( Ledger::MemoryDisk & stateDisk, Ledger::MemoryDisk & runtimeDisk )
      : state( "state store", stateDisk ), runtime( "runtime store", runtimeDisk ) {
      EXPECT_EQ( "", persistence.start().text() );
   }
   Ledger::MemoryEngine state, runtime;
   Vel::Ptr< Ledger::EntityManager > em =
      Vel::make< Ledger::EntityManager >( []( std::function< void() > ) {} );
   Ledger::Persistence persistence{
      em,
      state,
      runtime,
      { { "maintenance/unit/status", Folder::state },
        { "stage/progress", Folder::state },
        { "stage/completionstatus", Folder::state },
        { "stageAgentStatus/MaintenanceMode", Folder::state },
        { "interface/errdisable/cause/maintenance-shutdown", Folder::state },
        { "maintenance/interface/status/drainwatch", Folder::runtime } },
      { { "Maintenance::Unit::Status", "aggTrafficRate" } } };

   /// The entity at a path, made if it is absent.
   template < class T >
   Vel::Ptr< T > at( const Vel::String & path ) {
      return Vel::ptrCast< T >( em->entityIs( path, Vel::typeName< T >() ) );
   }
   auto units() { return at< Maintenance::Unit::StatusDir >( "maintenance/unit/status" ); }
   auto progress() { return at< Stage::ProgressDir >( "stage/progress" ); }
   auto completion() { return at< Stage::CompletionStatusDir >( "stage/completionstatus" ); }
   auto agentStatus() { return at< Stage::AgentStatus >( "stageAgentStatus/MaintenanceMode" ); }
   auto cause() { return at< Errdisable::CauseStatus >( "interface/errdisable/cause/maintenance-shutdown" ); }
   auto records() { return at< Maintenance::MonIntfStatusDir >( "maintenance/interface/status/drainwatch" ); }
};

struct KeptModel : testing::Test {
   Ledger::MemoryDisk stateDisk, runtimeDisk;
   std::unique_ptr< Process > process = std::make_unique< Process >( stateDisk, runtimeDisk );

   void restart() {
      EXPECT_EQ( "", process->persistence.commit().text() );
      process = nullptr;
      process = std::make_unique< Process >( stateDisk, runtimeDisk );
   }
};

TEST_F( KeptModel, unitStatus ) {
   auto * unit = process->units()->statusIs( "spine-a" );
   unit->stateIs( Maintenance::Unit::UnitState::exitInProgress );
   unit->genIdIs( 4294967295u );
   unit->maintEnterInstanceNameIs( "spine-a#7" );
   unit->maintExitInstanceNameIs( "spine-a#8" );
   unit->aggTrafficRateIs( { 1, 2, 3 } );
   unit->intfsViolatingTrafficThresholdIs( et1, true );
   unit->totalIntfTrafficViolationsIs( 12 );
   restart();
   unit = process->units()->status( "spine-a" );
   ASSERT_TRUE( unit );
   EXPECT_EQ( "spine-a", unit->unitName() );
   EXPECT_EQ( Maintenance::Unit::UnitState::exitInProgress, unit->state() );
   EXPECT_EQ( 4294967295u, unit->genId() );
   EXPECT_EQ( "spine-a#7", unit->maintEnterInstanceName() );
   EXPECT_EQ( "spine-a#8", unit->maintExitInstanceName() );
   EXPECT_TRUE( unit->intfsViolatingTrafficThreshold( et1 ) );
   EXPECT_EQ( 12u, unit->totalIntfTrafficViolations() );
}

TEST_F( KeptModel, aUnitsSumOfRatesIsNoReasonToSync ) {
   auto * unit = process->units()->statusIs( "spine-a" );
   restart();
   unit = process->units()->status( "spine-a" );
   unit->aggTrafficRateIs( { 1, 2, 3 } );
   EXPECT_EQ( "", process->persistence.commit().text() );
   const auto before = stateDisk.records;
   unit->aggTrafficRateIs( { 2, 3, 4 } );
   EXPECT_EQ( "", process->persistence.commit().text() );
   EXPECT_EQ( before, stateDisk.records );
}

TEST_F( KeptModel, progressOfStages ) {
   auto * progress = process->progress()->progressIs( "spine-a#7" );
   progress->stageStatusIs( "drainwatch", Stage::stageRunning );
   progress->stageIs( "drainwatch" );
   process->completion()->statusIs( "spine-a#7", Stage::stageRunning );
   restart();
   progress = process->progress()->progress( "spine-a#7" );
   ASSERT_TRUE( progress );
   EXPECT_EQ( "spine-a#7", progress->name() );
   EXPECT_EQ( "drainwatch", progress->stage() );
   ASSERT_TRUE( progress->stageStatus( "drainwatch" ) );
   EXPECT_EQ( Stage::stageRunning, *progress->stageStatus( "drainwatch" ) );
   ASSERT_TRUE( process->completion()->status( "spine-a#7" ) );
}

TEST_F( KeptModel, completionEntries ) {
   const Stage::AgentStatusKey key{ "MaintenanceMode", "drainwatch", "spine-a#7" };
   process->agentStatus()->completeIs( key, true );
   process->agentStatus()->completeIs( { "MaintenanceMode", "drainwatch", "" }, false );
   restart();
   EXPECT_EQ( "MaintenanceMode", process->agentStatus()->name() );
   EXPECT_EQ( 2u, process->agentStatus()->completes() );
   ASSERT_TRUE( process->agentStatus()->complete( key ) );
   EXPECT_TRUE( *process->agentStatus()->complete( key ) );
}

TEST_F( KeptModel, interfacesThatAreHeldDown ) {
   process->cause()->causeGroupNameIs( "maintenance-shutdown" );
   process->cause()->intfStatusIs( et1, 1700000000.25 );
   process->cause()->intfStatusIs( vlan10, 1700000001 );
   restart();
   process->cause()->intfStatusDel( vlan10 );
   restart();
   EXPECT_EQ( "maintenance-shutdown", process->cause()->name() );
   EXPECT_EQ( "maintenance-shutdown", process->cause()->causeGroupName() );
   EXPECT_EQ( 1u, process->cause()->intfStatuss() );
   ASSERT_TRUE( process->cause()->intfStatus( et1 ) );
   EXPECT_EQ( 1700000000.25, *process->cause()->intfStatus( et1 ) );
}

TEST_F( KeptModel, recordsOfInterfaces ) {
   auto * record = process->records()->monIntfStatusIs( vlan10, "fast", 1700000000.5 );
   const Interface::IntfRates rates{ 0, 0, 1e9, std::numeric_limits< double >::infinity(), 1700000005 };
   record->prevRatesIs( { 0, 0, 1, 2, 3 } );
   record->curRatesIs( rates );
   record->lastSampleTimeIs( 1700000005 );
   record->totalSamplesIs( 1 );
   record->numConsecutiveDrainedSamplesIs( 2 );
   record->numSamplesAboveThresholdPreMaintIs( 3 );
   record->numSamplesBelowThresholdPreMaintIs( 4 );
   record->numSamplesAboveThresholdPostMaintIs( 5 );
   record->numSamplesBelowThresholdPostMaintIs( 6 );
   record->stateIs( static_cast< Maintenance::MonIntfState >( 9 ) );
   record->stateTimeIs( 1700000004 );
   record->spikeUnderMaintIs( true );
   process->records()->monIntfUnderMaintIs( vlan10, true );
   restart();
   record = process->records()->monIntfStatus( vlan10 );
   ASSERT_TRUE( record );
   EXPECT_EQ( vlan10, record->intfId() );
   EXPECT_EQ( "fast", record->profileName() );
   EXPECT_EQ( 1700000000.5, record->startTime() );
   EXPECT_EQ( ( Interface::IntfRates{ 0, 0, 1, 2, 3 } ), record->prevRates() );
   EXPECT_EQ( rates, record->curRates() );
   EXPECT_EQ( 1700000005, record->lastSampleTime() );
   EXPECT_EQ( 1u, record->totalSamples() );
   EXPECT_EQ( 2u, record->numConsecutiveDrainedSamples() );
   EXPECT_EQ( 3u, record->numSamplesAboveThresholdPreMaint() );
   EXPECT_EQ( 4u, record->numSamplesBelowThresholdPreMaint() );
   EXPECT_EQ( 5u, record->numSamplesAboveThresholdPostMaint() );
   EXPECT_EQ( 6u, record->numSamplesBelowThresholdPostMaint() );
   EXPECT_EQ( 9u, static_cast< Vel::U32 >( record->state() ) );
   EXPECT_EQ( 1700000004, record->stateTime() );
   EXPECT_TRUE( record->spikeUnderMaint() );
   EXPECT_FALSE( record->stale() );
   EXPECT_TRUE( process->records()->monIntfUnderMaint( vlan10 ) );
   EXPECT_EQ( 0u, process->records()->monIntfEnterMaints() );
}

TEST_F( KeptModel, nothingOfARecordThatWasDeleted ) {
   process->records()->monIntfStatusIs( et1, "fast", 1 );
   restart();
   process->records()->monIntfStatusDel( et1 );
   restart();
   EXPECT_EQ( 0u, process->records()->monIntfStatuss() );
}

} // namespace
