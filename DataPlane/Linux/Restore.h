#pragma once

#include "DataPlane/Linux/LinkTable.h"
#include "DataPlane/Linux/LostState.h"
#include "DataPlane/Linux/Requests.h"

/// Purpose: gives one link, which is up again, what it has lost, and the VLAN devices above it what they have.
///
/// Order: VLAN devices that had been set down by themselves go down again, for the kernel has set all of them up with the
/// link; then addresses and neighbours; then routes, first those that need no other (without gateway), the others after
/// them. What is there again by then is left as it is. A VLAN device that is not there any more, or has been made anew,
/// is somebody else's business, with all that it had. What cannot be set is tried again: right away while others succeed,
/// since routes may need each other, and then every half second until ten seconds have passed.
///
/// An address that a route names as its source is of no use before the kernel has made sure that nobody else on the link
/// has it, which takes a carrier. So those ten seconds begin with the carrier. If it does not come in as long, what is
/// missing is left over, to be restored when it has. So is what the kernel has not judged at all, because we may not set
/// anything, or cannot reach it.
///
/// A route of several ways outlives a link as long as one of them is left, and the kernel revives the way of a link that
/// comes back. When all have gone, the route is made of the ways whose links are up, and grows with each link.
namespace DataPlane::Linux {

class Restore {
 public:
   static constexpr double retryPeriod = 0.5;
   static constexpr double maxTime = 10;
   /// With a carrier that comes and goes.
   static constexpr double maxTimeInAll = 30;

   /// What it needs of its owner. All given; they outlive it.
   struct Surroundings {
      Requests & requests;
      Dumps & dumps;
      const LinkTable & links;
   };
   using Lowered = std::function< void() >;
   /// `left` is what is to be restored later, as a text of LostState; empty unless it failed.
   using Done = std::function< void( const Outcome & outcome, const Vel::String & left ) >;

   /// `now` in seconds. Nothing happens yet.
   Restore(
      Surroundings surroundings, const Wire::IntfId & intf, LostState state, double now, Lowered lowered,
      Done done );
   Restore( const Restore & ) = delete;
   Restore & operator=( const Restore & ) = delete;

   /// Begins. `done` is called once, inside begin(), retry() or Requests::takeAnswers(); it may destroy this. `lowered` is
   /// called before, likewise, as soon as nothing is to go down any more; never if something cannot be set down.
   void begin();
   /// When it wants to try again, in seconds; infinity: it waits for answers, or has ended.
   double retryTime() const { return retryTime_; }
   void retry( double now );

 private:
   /// What to ask the kernel for.
   struct Plan {
      Bytes request;     ///< empty: nothing, it is there
      Vel::String error; ///< it cannot be asked for now
      int code = 0;      ///< of the error; 0: there is none of its own
   };
   /// Something to set, as long as it has not been.
   struct Item {
      std::function< Plan() > plan;
      std::function< void( LostState & left ) > keep; ///< adds it to what is left over
      Vel::String name;                               ///< for the operator
      Vel::String error = {};                         ///< of the last try
      int code = 0;                                   ///< of the last try
      bool mayBeOther = false; ///< if it is said to be there, something else may be in its place
      bool lowers = false;     ///< it sets a VLAN device down
   };
   enum class Stage { lowering, addresses, routes };
   using Items = std::vector< Item >;
   using FamilyAndProtocol = std::pair< Vel::U8, Vel::U8 >;
   struct PresentRoutes {
      Outcome outcome;
      std::vector< Route > routes;
   };

   void add( Item item );
   void addLowering();
   void addAddresses();
   void addOf( const LostOfDevice & lost, const Follower * follower );
   void addRoutes();
   void askRound( Items items );
   void answered( Item item, const KernelAnswer & answer );
   void roundEnded();
   void finish();
   void noteCarrier();
   LostState leftOver( bool all ) const;
   bool isGone( const Follower & follower ) const;
   bool isOfGone( const Leg & leg ) const;
   const Follower * followerOf( const Vel::String & device ) const;
   Vel::U32 ifIndexOf( const Vel::String & device ) const;
   Plan planOf( const Follower & follower ) const;
   Plan planOf( const LinkAddress & address, const Follower * follower ) const;
   Plan planOf( const Neighbour & neighbour, const Follower * follower ) const;
   Plan planOf( const Route & route );
   Plan planOf( const Route & route, RouteSet how ) const;
   const PresentRoutes & presentRoutes( const Route & like );
   bool isUp( const Leg & leg ) const;

   Surroundings around_;
   Wire::IntfId intf_;
   Vel::String device_;
   LostState state_;
   std::map< Vel::String, const Follower * > followers_; ///< by name
   double now_;
   double begun_;
   double carrierSince_; ///< infinity: it has none
   double retryTime_;
   Lowered lowered_;
   Done done_;
   Items next_;               ///< to be asked for in the next round
   std::size_t underWay_ = 0; ///< what this round still waits for
   std::size_t total_ = 0;
   std::size_t toLower_ = 0; ///< VLAN devices that are still to go down
   bool succeeded_ = false;  ///< something has in this round
   Stage stage_ = Stage::lowering;
   std::map< FamilyAndProtocol, PresentRoutes > present_; ///< as seen in this round
   /// Answers that come after this has gone find it expired.
   std::shared_ptr< const int > alive_ = std::make_shared< int >();
};

} // namespace DataPlane::Linux
