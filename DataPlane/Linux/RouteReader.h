#pragma once

#include "DataPlane/Linux/BehindBridge.h"
#include "DataPlane/Linux/Dump.h"
#include "DataPlane/Linux/LinkTable.h"
#include "DataPlane/Linux/RouteFold.h"
#include "DataPlane/Linux/VlanTable.h"
#include "DataPlane/Switch.h"
#include "Platform/Cog/EventLoop.h"

#include <limits>

/// Purpose: answers questions for the routes: reads next hops and routes of both versions of IP, a part in each turn, over a
/// channel of its own.
///
/// A dump of routes is no picture of one moment. The kernel does not say that some have changed meanwhile, so the reader
/// listens to that, and reads those of that version again, as long as time allows. What it says of version 4 is right for
/// every destination that has not changed; of version 6 it begins anew within the dump when any route changes, leaves out as
/// many as it has told, and so may miss some or tell them twice: that is told as a problem.
/// Owner: the switch, which says when time is over.
///
/// Order of one reading: next hops, the ways to the addresses that are asked for, routes, answers, for which
/// bridges are asked for the ports that lead to those addresses. Who asks while one goes on is answered by the next one, all
/// of them together.
///
/// Invariants:
/// 1. A turn takes no more than `datagramsPerTurn` datagrams.
/// 2. Whatever goes wrong, each question is answered once, `Switch::routePatience` seconds after its reading began at the
///    latest, with what is known by then and with what is missing.
namespace DataPlane::Linux {

class RouteReader {
 public:
   static constexpr int datagramsPerTurn = 16;
   static constexpr Vel::U64 mostRoutes = 2'000'000;
   /// How often the same is read in one reading, at most, and only in the first half of its time.
   static constexpr int mostReads = 3;
   /// News that are looked through for one that counts; with more, something has changed.
   static constexpr int mostNews = 16;
   /// Ways to one address that are followed to ports of bridges.
   static constexpr std::size_t mostFollowed = 16;

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
   enum class Step { idle, nextHops, routes4, routes6 };
   struct Asked {
      RouteQuestion question;
      RoutesAnswered answered;
      std::optional< IpAddress > address = {}; ///< that of the question; nothing: none, or it is none
      std::optional< RouteEntry > found = {};  ///< what the kernel would take
      Vel::String problem = {}, doubt = {};
      std::optional< IpAddress > source = {}; ///< from which it was asked for
   };
   /// The rules that choose between routing tables, for packets of the machine's own.
   struct Rules {
      RuleBasis basis = RuleBasis::nothing; ///< by how much they choose
      int suppressed = -1;                  ///< they may leave out prefixes up to this length
   };

   void begin();
   void dump();
   void read();
   bool take( const Channel::Received & received );
   void dumpIsOver( int code );
   /// The dump is over; if not all of it came, something is missing already.
   void next( bool whole );
   void startStep( Step step );
   bool hasChanged();
   void lookUp( Asked & asked );
   const std::optional< Rules > & rulesOf( Vel::U8 family );
   Vel::String doubtOf( const IpAddress & address, bool sourceKnown );
   bool isOnLinkItself( const RouteEntry & route ) const;
   void finish();
   void close();
   void later( std::function< void() > act );
   void missing( const Vel::String & problem );
   AddressWay wayOf( const Asked & asked );
   void addLessSpecific( const Asked & asked, AddressWay & to );
   void follow( const RouteWays & ways, const IpAddress & address, AddressWay & to );

   Cog::EventLoop & loop_;
   Kernel & kernel_;
   Dumps lookUps_;
   const LinkTable & links_;
   const VlanTable & vlans_;
   BehindBridge behindBridge_{ lookUps_, links_, vlans_ };
   Step step_ = Step::idle;
   std::unique_ptr< Channel > channel_;
   Vel::U32 sequence_ = 0;
   std::unique_ptr< Channel > news_;      ///< of what changes while routes are dumped; null: cannot be heard
   bool interrupted_ = false;             ///< the dump, as the kernel itself says
   int reads_ = 0;                        ///< of this step
   std::vector< Asked > asked_, waiting_; ///< of this reading; for the next one
   RouteFold fold_{ nullptr }, foldBefore_{ nullptr }; ///< by now; at the beginning of this step
   Vel::String problem_;                               ///< the first thing that is missing; empty: nothing
   std::map< Vel::U8, std::optional< Rules > > rules_; ///< by version of IP; nothing: they cannot be read
   double dueTime_ = std::numeric_limits< double >::infinity();
   std::shared_ptr< const int > reading_; ///< posted tasks of an earlier reading find it expired
};

/// The links and what they stand on. Pure.
std::vector< RoutedLink > routedLinks( const LinkTable & links, const VlanTable & vlans );

} // namespace DataPlane::Linux
