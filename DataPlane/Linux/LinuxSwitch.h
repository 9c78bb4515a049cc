#pragma once

#include "DataPlane/Linux/LostReader.h"
#include "DataPlane/Linux/Membership.h"
#include "DataPlane/Linux/PortCounters.h"
#include "DataPlane/Linux/Restore.h"
#include "DataPlane/Linux/RouteReader.h"
#include "Platform/Cog/EventLoop.h"

namespace DataPlane::Linux {

/// Purpose: the links of the kernel as a switch.
///
/// Three channels, so that a burst on one loses nothing on another: `events` is told of links and VLANs; `answers`
/// carries what is to be set, and what came of it; dumps of links, VLANs, counters, addresses and routes have their own.
/// (And while somebody asks for all routes there are two more, for that takes many turns: one for the dump, one that is told
/// what changes meanwhile.)
///
/// Invariants:
/// 1. Events are taken before answers, so the listener hears of a link's change before it hears that its request is done.
/// 2. When events are lost, all links and VLANs are dumped again and the differences told; until that has succeeded the
///    switch is degraded. Events that are left from before the loss are never taken after that dump: they would undo it.
/// 3. A request has succeeded when the kernel has acknowledged it and, asked again, shows the link as it was wanted.
/// 4. Memberships are told when all events that were there have been taken, so that the steps of one change are one.
class LinuxSwitch final : public Switch, private Vel::Clock::Driven {
 public:
   LinuxSwitch( Vel::Ptr< Cog::EventLoop > loop, std::unique_ptr< Kernel > kernel );
   ~LinuxSwitch() override;

   Outcome start( Listener & listener ) override;
   void stop() override;
   Outcome countersRefresh( VelPool::EntityManager & pool ) override;
   void linkSet( RequestId id, const Wire::IntfId & intf, bool up, const Vel::String & restore ) override;
   LinkSnapshot linkSnapshot( const Wire::IntfId & intf ) override;
   Vel::String raisedByOthers( const Vel::String & snapshot ) const override;
   Vel::String snapshotsJoined( const Vel::String & earlier, const Vel::String & later ) const override;
   void linkRestore( RequestId id, const Wire::IntfId & intf, const Vel::String & left ) override;
   void routesAsk( const RouteQuestion & question, RoutesAnswered answered ) override {
      if ( running_ )
         routeReader_.ask( question, std::move( answered ) );
   }
   std::optional< double > portSpeed( const Vel::String & name ) override;
   bool tellsMembership() const override { return true; }
   Wire::IntfId bridgeBelow( const Wire::IntfId & vlanIntf ) const override {
      return links_.below( vlanIntf );
   }
   Vel::String uncounted( const Wire::IntfId & intf ) const override { return membership_.uncounted( intf ); }
   const Vel::String & bootId() const override { return bootId_; }

   /// Seconds after which what has failed is tried again: hearing of links, reading them.
   static constexpr double recoveryPeriod = 1;
   /// How many losses of events are made up for at once, when less than `recoveryPeriod` is between them. Each further one
   /// has to wait for so long.
   static constexpr int maxLossesInARow = 3;
   /// Datagrams of events that one turn takes at most.
   static constexpr int maxEventsPerTurn = 1024;

 private:
   struct Asked {
      RequestId id;
      Wire::IntfId intf;
      Vel::U32 ifIndex;
      bool up;
      Vel::String restore;
      Vel::U64 order; ///< of all requests
   };
   struct Restoring {
      RequestId id;
      std::unique_ptr< Restore > restore;
   };

   double dueTime() const override;
   void run( double currentTime ) override;

   Outcome openEvents();
   Outcome openAnswers();
   void close( std::unique_ptr< Channel > & channel );
   void later( std::function< void() > act );

   bool handleEvents();
   void handleAnswers();
   void take( const nlmsghdr & event );
   Outcome dumpLinks();
   Outcome dumpVlans();
   void settle();
   void handleLoss();
   void recover();
   void degrade( const Vel::String & why );
   void tellHealth();
   void rightNote();

   void linkIsSet( const Asked & asked, const KernelAnswer & answer );
   Outcome readBack( const Asked & asked );
   Restore * restoreNew( RequestId id, const Wire::IntfId & intf, const Vel::String & text );
   void retryRestores();
   void cancelRestore( const Wire::IntfId & intf );
   void done( RequestId id, const LinkSetResult & result );

   Vel::Ptr< Cog::EventLoop > loop_;
   std::unique_ptr< Kernel > kernel_;
   std::unique_ptr< Channel > events_, answers_;
   Dumps dumps_;
   Requests requests_;
   LinkTable links_;
   VlanTable vlans_;
   Membership membership_{ links_, vlans_ };
   PortCounters counters_;
   LostReader lostReader_{ dumps_, links_ };
   RouteReader routeReader_{ *loop_, *kernel_, links_, vlans_ };
   std::map< Wire::IntfId, Restoring > restoring_;
   std::map< Wire::IntfId, Vel::U64 > lastAsked_; ///< order of the last request that has not ended
   std::map< Wire::IntfId, Vel::U64 >
      lastRestore_; ///< order of the last one of what was left that has not begun
   Vel::U64 order_ = 0;
   Listener * listener_ = nullptr;
   Vel::String bootId_ = "unknown";
   Health health_;
   Vel::String trouble_; ///< why links may be out of date; empty: they are not
   Vel::String lacking_; ///< what is to be done about it that no link may be set; empty: they may
   bool missed_ = false; ///< events have been lost, and it is not made up for yet
   int losses_ = 0;      ///< in a row
   double recoveredAt_;  ///< the last time; -infinity: never
   double recoveryTime_; ///< infinity: not needed
   /// Posted tasks of an earlier start find it expired. Null: not started.
   std::shared_ptr< const int > running_;
};

} // namespace DataPlane::Linux
