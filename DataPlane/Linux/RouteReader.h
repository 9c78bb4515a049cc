#pragma once

#include "DataPlane/Linux/Dump.h"
#include "DataPlane/Linux/LinkTable.h"
#include "DataPlane/Linux/RouteFold.h"
#include "DataPlane/Linux/VlanTable.h"
#include "DataPlane/Switch.h"
#include "Platform/Cog/EventLoop.h"

#include <limits>

/// Purpose: answers questions for the routes: reads next hops, routes of both versions of IP and the speeds of ports, a
/// part in each turn, over a channel of its own.
/// Owner: the switch, which says when time is over.
///
/// Order of one reading: next hops, the ways to the addresses that are asked for, routes, speeds, answers. Who asks while
/// one goes on is answered by the next one, all of them together.
///
/// Invariants:
/// 1. A turn takes no more than `datagramsPerTurn` datagrams, and asks for speeds no longer than `speedQuantum`.
/// 2. Whatever goes wrong, each question is answered once, `Switch::routePatience` seconds after its reading began at the
///    latest, with what is known by then and with what is missing.
namespace DataPlane::Linux {

class RouteReader {
 public:
   static constexpr int datagramsPerTurn = 16;
   static constexpr double speedQuantum = 0.002; ///< seconds
   static constexpr Vel::U64 mostRoutes = 2'000'000;

   /// All outlive it.
   RouteReader( Cog::EventLoop & loop, Kernel & kernel, const LinkTable & links, const VlanTable & vlans )
      : loop_( loop ), kernel_( kernel ), lookUps_( kernel ), links_( links ), vlans_( vlans ) {}
   ~RouteReader() { stop(); }

   void ask( const RouteQuestion & question, RoutesAnswered answered );
   /// Nobody is answered any more.
   void stop();

   /// When what goes on has to be over; infinity: nothing goes on.
   double dueTime() const { return dueTime_; }
   /// It is over; to be called when what happened outside is brought in.
   void timeIsOver();

 private:
   enum class Step { idle, nextHops, routes4, routes6, speeds };
   struct Asked {
      RouteQuestion question;
      RoutesAnswered answered;
      std::optional< RouteEntry > found; ///< what the kernel would take
      Vel::String problem = {}, doubt = {};
   };

   void begin();
   void dump( Bytes request );
   void read();
   bool take( const Channel::Received & received );
   void dumpIsOver( int code );
   /// The dump is over; if not all of it came, something is missing already.
   void next( bool whole );
   void lookUp( Asked & asked );
   Vel::String doubtOf( const IpAddress & address, bool sourceKnown );
   void readSpeeds();
   void finish();
   void close();
   void later( std::function< void() > act );
   void missing( const Vel::String & problem );
   AddressWay wayOf( const Asked & asked ) const;

   Cog::EventLoop & loop_;
   Kernel & kernel_;
   Dumps lookUps_;
   const LinkTable & links_;
   const VlanTable & vlans_;
   Step step_ = Step::idle;
   std::unique_ptr< Channel > channel_;
   Vel::U32 sequence_ = 0;
   bool interrupted_ = false;
   std::vector< Asked > asked_, waiting_; ///< of this reading; for the next one
   RouteFold fold_{ nullptr };
   Vel::String problem_; ///< the first thing that is missing; empty: nothing
   std::vector< Vel::U32 > speedless_;
   std::map< Vel::U32, double > speeds_;
   /// By version of IP, by how much rules choose; nothing: they cannot be read.
   std::map< Vel::U8, std::optional< RuleBasis > > rules_;
   double dueTime_ = std::numeric_limits< double >::infinity();
   std::shared_ptr< const int > reading_; ///< posted tasks of an earlier reading find it expired
};

/// The links and what they stand on, without speeds. Pure.
std::vector< RoutedLink > routedLinks( const LinkTable & links, const VlanTable & vlans );

} // namespace DataPlane::Linux
