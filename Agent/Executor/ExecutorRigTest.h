#pragma once

#include "Agent/Executor/Executor.h"
#include "Platform/Cog/ManualClock.h"

#include <gtest/gtest.h>

#include <vector>

/// Purpose: the executor on a switch that does nothing by itself, for its tests.
namespace Agent {

using DataPlane::Outcome;

/// A switch that does nothing until it is told to.
class FakeSwitch final : public DataPlane::Switch {
 public:
   struct Request {
      DataPlane::RequestId id;
      Wire::IntfId intf;
      bool up;
      Vel::String restore;
   };
   Outcome start( DataPlane::Listener & l ) override {
      listener = &l;
      for ( const auto & [intf, link] : links )
         l.linkIs( link );
      return startOutcome;
   }
   void stop() override { listener = nullptr; }
   Outcome countersRefresh( VelPool::EntityManager & pool ) override {
      ++refreshes;
      if ( !countersOutcome.ok() )
         return countersOutcome;
      for ( const auto & [intf, link] : links )
         if ( intf.kind() == Wire::IntfId::Kind::ethernet && !withoutCounters.count( intf ) )
            pool.intfCountersIs( intf, refreshes, Cog::MaybeU63( refreshes ) ); // counts all the time
         else
            pool.intfDel( intf );
      return {};
   }
   void linkSet(
      DataPlane::RequestId id, const Wire::IntfId & intf, bool up, const Vel::String & restore ) override {
      requests.push_back( { id, intf, up, restore } );
   }
   DataPlane::LinkSnapshot linkSnapshot( const Wire::IntfId & intf ) override {
      if ( !snapshotOutcome.ok() )
         return { snapshotOutcome, {} };
      return { {}, snapshot.empty() ? "addresses of " + stringValue( intf ) : snapshot };
   }
   Vel::String raisedByOthers( const Vel::String & snapshot ) const override { return snapshot + ", raised"; }
   Vel::String snapshotsJoined( const Vel::String & earlier, const Vel::String & later ) const override {
      return earlier == later ? earlier : earlier + " and " + later;
   }
   void linkRestore( DataPlane::RequestId id, const Wire::IntfId & intf, const Vel::String & left ) override {
      restores.push_back( { id, intf, true, left } );
   }
   void routesAsk( const DataPlane::RouteQuestion &, DataPlane::RoutesAnswered ) override {}
   std::optional< double > portSpeed( const Vel::String & ) override { return std::nullopt; }
   bool tellsMembership() const override { return membership; }
   Wire::IntfId bridgeBelow( const Wire::IntfId & vlanIntf ) const override {
      const auto at = bridges.find( vlanIntf );
      return at == bridges.end() ? Wire::IntfId() : at->second;
   }
   Vel::String uncounted( const Wire::IntfId & intf ) const override {
      const auto at = uncountedWhy.find( intf );
      return at == uncountedWhy.end() ? Vel::String() : at->second;
   }
   const Vel::String & bootId() const override { return boot; }

   /// The switch does what was asked for and says so.
   void done( std::size_t request ) {
      const Request r = requests.at( request );
      auto & link = links[r.intf];
      link.adminUp = link.operUp = r.up;
      listener->linkIs( link );
      listener->linkSetDone( r.id, {} );
   }
   void fail( std::size_t request, const char * text ) {
      listener->linkSetDone( requests.at( request ).id, { Outcome::failed( text ), {} } );
   }
   void link( const Wire::IntfId & intf, bool adminUp, bool operUp ) {
      links[intf] = { intf, 1, adminUp, operUp };
      if ( listener )
         listener->linkIs( links[intf] );
   }
   void linkGone( const Wire::IntfId & intf ) {
      links.erase( intf );
      listener->linkDel( intf );
   }

   DataPlane::Listener * listener = nullptr;
   std::map< Wire::IntfId, DataPlane::Link > links;
   std::set< Wire::IntfId > withoutCounters;
   std::map< Wire::IntfId, Vel::String > uncountedWhy;
   std::map< Wire::IntfId, Wire::IntfId > bridges; ///< by VLAN interface
   std::vector< Request > requests;
   std::vector< Request > restores; ///< of what was left
   Outcome startOutcome, countersOutcome, snapshotOutcome;
   Vel::String snapshot; ///< empty: one of the link's name
   bool membership = true;
   Vel::String boot = "boot 1";
   unsigned refreshes = 0;
};

class ExecutorStory : public ::testing::Test {
 protected:
   ExecutorStory() {
      Vel::System::clockIs( clock );
      model.allIntfStatusDir = Vel::make< Interface::AllIntfStatusDir >();
      model.lagConfig = Vel::make< Lag::Config >();
      model.vlanStatusDir = Vel::make< Bridging::VlanStatusDir >();
      model.cause = Vel::make< Errdisable::CauseStatus >( "maintenance-shutdown" );
      model.journal = Vel::make< LinkJournal >();
      model.pool = Vel::make< VelPool::EntityManager >();
      fake->link( et1, true, true );
      clock->timersMayRunIs( [this] { return executor->countersFresh(); } );
      clock->commitHookIs( [this] {
         executor->turnEnds();
         return commits;
      } );
      restart();
   }
   ~ExecutorStory() override {
      executor.reset();
      Vel::System::clockIs( nullptr );
   }
   void restart() {
      executor.reset();
      executor = std::make_unique< Executor >(
         clock, wheel, fake, model,
         Executor::Hooks{
            [this]( const Wire::IntfId & intf ) { log += "+" + stringValue( intf ) + ";"; },
            [this]( const Wire::IntfId & intf ) { log += "-" + stringValue( intf ) + ";"; },
            [this] { return anyUnderWay || !underWay.empty(); },
            [this]( const Wire::IntfId & intf ) { return underWay.count( intf ) > 0; },
            [this]( const Wire::IntfId & intf ) { return monitored.count( intf ) > 0; },
            [this]( const Vel::String & line ) { notes.push_back( line ); },
            [this]( std::function< void() > call ) {
               if ( keeps )
                  clock->effectIs( std::move( call ) );
               else
                  waiting.push_back( std::move( call ) );
            } } );
      ASSERT_TRUE( executor->start().ok() );
      clock->runUntilIdle();
   }
   void shut() { model.cause->intfStatusIs( et1, clock->currentTime() ); }
   void bringBack() { model.cause->intfStatusDel( et1 ); }
   /// Shut, asked for and acknowledged.
   void held() {
      shut();
      clock->runUntilIdle();
      fake->done( fake->requests.size() - 1 );
      clock->runUntilIdle();
   }
   Interface::IntfOperStatus status() {
      const auto * s = model.allIntfStatusDir->intfStatus( et1 );
      return s ? s->operStatus() : Interface::operUnknown;
   }
   LinkJournalEntry * entry() { return model.journal->entry( et1 ); }

   const Wire::IntfId et1 = Wire::EthIntfId( "et1" );
   const Wire::IntfId et2 = Wire::EthIntfId( "et2" );
   const Wire::IntfId pc1 = Wire::PortChannelIntfId( "pc1" );
   Vel::Ptr< Cog::ManualClock > clock = Vel::make< Cog::ManualClock >();
   Vel::Ptr< Cog::TimerWheel > wheel = Vel::make< Cog::TimerWheel >( clock, 1000u, 1800u, true, 1024u );
   Vel::Ptr< FakeSwitch > fake = Vel::make< FakeSwitch >();
   Executor::Model model;
   std::unique_ptr< Executor > executor;
   std::string log;
   std::set< Wire::IntfId > underWay, monitored;
   bool anyUnderWay = false; ///< besides theirs
   std::vector< Vel::String > notes;
   bool commits = true;
   bool keeps =
      true; ///< what has been written outlives the agent at the end of a turn; otherwise requests wait:
   std::vector< std::function< void() > > waiting;
};

} // namespace Agent
