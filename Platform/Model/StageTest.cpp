#include "Platform/Model/Stage.h"

#include <gtest/gtest.h>

namespace {

using namespace Stage;

struct StageObserver {
   struct VelProgressDir final : Vel::ReactorTo< StageObserver, ProgressDir > {
      using ReactorTo::ReactorTo;
      void onProgress( const Vel::Name & name ) override {
         sm()->log += ( entity()->progress( name ) ? "+" : "-" ) + name + " ";
      }
   };
   struct VelProgress final : Vel::ReactorTo< StageObserver, Progress > {
      using ReactorTo::ReactorTo;
      void onStage() override {
         const Vel::U32 * const status = entity()->stageStatus( entity()->stage() );
         sm()->log += Vel::text( entity()->stage(), "=", status ? *status : 99, " " );
      }
   };
   struct VelCompletion final : Vel::ReactorTo< StageObserver, CompletionStatusDir > {
      using ReactorTo::ReactorTo;
      void onStatus( const Vel::Name & name ) override {
         const Vel::U32 * const status = entity()->status( name );
         sm()->log += status ? Vel::text( name, "=", *status, " " ) : name + " gone ";
      }
   };
   Vel::Watch< VelProgressDir > dir;
   Vel::Watch< VelProgress > progress;
   Vel::Watch< VelCompletion > completion;
   Vel::String log;
};

TEST( StageProgress, tellsOfInstancesAndOfTheirStage ) {
   const auto dir = Vel::make< ProgressDir >();
   StageObserver observer;
   observer.dir.is( dir, &observer ).hasNotificationActiveIs( true );
   Progress * const progress = dir->progressIs( "u1#1" );
   observer.progress.is( progress, &observer ).hasNotificationActiveIs( true );
   EXPECT_EQ( "u1#1", progress->name() );
   EXPECT_EQ( "", progress->stage() );
   progress->stageStatusIs( "drainwatch", stageRunning );
   progress->stageIs( "drainwatch" );
   progress->stageIs( "drainwatch" );
   progress->stageIs( "other" );
   dir->progressDel( "u1#1" );
   EXPECT_EQ( "+u1#1 drainwatch=1 other=99 -u1#1 ", observer.log );
}

TEST( StageProgress, isActiveInAnyStageThatIsNotZero ) {
   EXPECT_EQ( 0u, stageInactive );
   EXPECT_NE( 0u, stageRunning );
   EXPECT_NE( 0u, stageComplete );
}

TEST( CompletionStatusDir, tellsOfInstancesThatComeChangeAndGo ) {
   const auto dir = Vel::make< CompletionStatusDir >();
   StageObserver observer;
   observer.completion.is( dir, &observer ).hasNotificationActiveIs( true );
   dir->statusIs( "u1#1", stageRunning );
   dir->statusIs( "u1#1", stageRunning );
   dir->statusIs( "u1#1", stageComplete );
   dir->statusDel( "u1#1" );
   dir->statusDel( "u1#1" );
   EXPECT_EQ( "u1#1=1 u1#1=2 u1#1 gone ", observer.log );
}

TEST( AgentStatus, holdsOneEntryForEachStageOfAnInstance ) {
   const auto status = Vel::make< AgentStatus >( "MaintenanceMode" );
   const AgentStatusKey key{ status->name(), "drainwatch", "u1#1" };
   status->completeIs( key, true );
   status->completeIs( key, true );
   status->completeIs( { status->name(), "drainwatch", "u1#2" }, true );
   EXPECT_EQ( 2u, status->completes() );
   EXPECT_TRUE( *status->complete( key ) );
   EXPECT_FALSE( status->complete( { status->name(), "other", "u1#1" } ) );
   EXPECT_FALSE( status->complete( { "another", "drainwatch", "u1#1" } ) );
   EXPECT_EQ( "MaintenanceMode/drainwatch/u1#1", stringValue( key ) );
}

/// Whoever carries out a stage begins it again each time it is told, so a stage that ends must not be told.
TEST( StageProgress, tellsNothingOfItsStageWhenThatEnds ) {
   const auto progress = Vel::make< Progress >( "u1#1" );
   progress->stageStatusIs( "drainwatch", stageRunning );
   progress->stageIs( "drainwatch" );
   StageObserver observer;
   observer.progress.is( progress, &observer ).hasNotificationActiveIs( true );
   progress->stageStatusIs( "drainwatch", stageComplete );
   progress->stageStatusIs( "drainwatch", stageInactive );
   progress->stageStatusDel( "drainwatch" );
   EXPECT_EQ( "", observer.log );
   EXPECT_EQ( nullptr, progress->stageStatus( "drainwatch" ) );
}

TEST( ProgressDir, deletesBeforeItAddsWhenARecordIsReplaced ) {
   const auto dir = Vel::make< ProgressDir >();
   dir->progressIs( "u1#1" );
   StageObserver observer;
   observer.dir.is( dir, &observer ).hasNotificationActiveIs( true );
   dir->progressPut( "u1#1", Vel::make< Progress >( "u1#1" ) );
   EXPECT_EQ( "-u1#1 +u1#1 ", observer.log );
}

struct AgentStatusObserver {
   struct VelStatus final : Vel::ReactorTo< AgentStatusObserver, AgentStatus > {
      using ReactorTo::ReactorTo;
      void onComplete( const AgentStatusKey & key ) override {
         const bool * const value = entity()->complete( key );
         sm()->log += Vel::text( key.instanceName, "=", value ? Vel::boolText( *value ) : "gone", " " );
      }
   };
   Vel::Watch< VelStatus > status;
   Vel::String log;
};

TEST( AgentStatus, tellsOfEntriesThatComeChangeAndGo ) {
   const auto status = Vel::make< AgentStatus >( "MaintenanceMode" );
   const AgentStatusKey key{ status->name(), "drainwatch", "u1#1" };
   AgentStatusObserver observer;
   observer.status.is( status, &observer ).hasNotificationActiveIs( true );
   status->completeIs( key, true );
   status->completeIs( key, true );
   status->completeIs( key, false );
   status->completeDel( key );
   status->completeDel( key );
   EXPECT_EQ( "u1#1=true u1#1=false u1#1=gone ", observer.log );
}

TEST( AgentStatus, allowsDeletionWhileItIsWalked ) {
   const auto status = Vel::make< AgentStatus >( "MaintenanceMode" );
   for ( const char * instanceName : { "u1#1", "u2#1", "u3#1" } )
      status->completeIs( { status->name(), "drainwatch", instanceName }, true );
   Vel::String walked;
   for ( const auto & [key, complete] : status->completeRange() ) {
      walked += key.instanceName + " ";
      status->completeDel( key );
   }
   EXPECT_EQ( "u1#1 u2#1 u3#1 ", walked );
   EXPECT_EQ( 0u, status->completes() );
}

TEST( AgentConfig, announcesStages ) {
   const auto config = Vel::make< AgentConfig >( "MaintenanceMode" );
   config->stageIs( "drainwatch" );
   EXPECT_TRUE( config->stage( "drainwatch" ) );
   EXPECT_FALSE( config->stage( "other" ) );
   EXPECT_EQ( "MaintenanceMode", config->name() );
}

} // namespace
