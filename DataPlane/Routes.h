#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// Purpose: the routes of a switch and what they lead over, as far as somebody has to know who takes links away: which
/// ways there are to how many destinations, and which links stand on which others. Plain values.
///
/// A switch may have a million routes and a handful of different ways: destinations that are reached alike are one class.
namespace DataPlane {

/// One way out.
struct NextHop {
   std::string link;         ///< through which it leaves; empty: not known
   std::uint32_t weight = 1; ///< its part of the traffic among those of equal preference, at least 1
   bool usable = true;       ///< the switch itself takes it for usable
   /// Of the way to one address over a bridge: which one of its AddressWay::behind, from 1 on; 0: over none.
   std::uint16_t behind = 0;

   friend bool operator==( const NextHop &, const NextHop & ) = default;
};

/// Ways of equal preference, among which traffic is shared. None: it is refused here, and what follows is not looked at.
using EqualHops = std::vector< NextHop >;
/// The most preferred ones first.
using Choices = std::vector< EqualHops >;

/// Destinations that are reached in the same ways. What is connected, and the switch's own addresses, are none.
struct RouteClass {
   Choices choices;
   std::uint64_t destinations = 0;
   std::vector< std::string > examples; ///< the first few of them: "10.0.0.0/8", "10.0.0.0/8 table 100"

   friend bool operator==( const RouteClass &, const RouteClass & ) = default;
};

/// How a port-channel uses its members that are up.
enum class Sharing {
   together,   ///< it carries as much as all of them that are not on standby
   oneAtATime, ///< the others wait for the one in use to fail
   copied,     ///< each carries all of it
   unknown
};

/// A link, and what it stands on.
struct RoutedLink {
   std::string name;
   bool up = false;
   bool aggregate = false; ///< a port-channel
   /// Of each of these lists one link at least must be up for this one to be up. Those of the last carry its traffic.
   std::vector< std::vector< std::string > > needs;
   Sharing sharing = Sharing::together; ///< of a port-channel
   bool standby = false; ///< a member of a port-channel that is up, and carries nothing as long as others do
   bool tunnel = false;  ///< what it carries is sent out by routes again, over links that nobody can tell
   /// It is set down with the link that it stands on. Others are left set up, and routes over them, and stop to work.
   bool setDownWithBelow = false;

   friend bool operator==( const RoutedLink &, const RoutedLink & ) = default;
};

/// Where whoever is reached over a bridge, or over a link that stands on one, is on that bridge. It goes on without the
/// port, and so do routes over it, but what is sent to him does not arrive.
struct BehindPort {
   std::string port;   ///< of the bridge; empty: not known
   std::string unseen; ///< why not

   friend bool operator==( const BehindPort &, const BehindPort & ) = default;
};

/// A route to a shorter prefix that an address is in as well.
struct LessSpecificRoute {
   std::string destination;
   std::size_t first = 0; ///< in AddressWay::choices, of its own, which go on to the next one's or to the end

   friend bool operator==( const LessSpecificRoute &, const LessSpecificRoute & ) = default;
};

/// The way to one address.
struct AddressWay {
   std::string problem;     ///< why it is not known; empty: it is
   bool local = false;      ///< the switch's own address
   std::string destination; ///< of the route that is taken: "10.0.0.0/8"; or the address with its link
   /// Of that destination. Behind them those of less specific ones, which are taken when none of its own works.
   Choices choices;
   std::string doubt =
      {}; ///< why packets may take another way all the same; empty: nothing is known of that kind
   std::vector< BehindPort > behind = {};
   /// The longest prefixes first. None if whoever has the address is on the link itself: then another way is none to him.
   std::vector< LessSpecificRoute > lessSpecific = {};

   friend bool operator==( const AddressWay &, const AddressWay & ) = default;
};

struct RouteTable {
   std::string problem; ///< why routes may be missing; empty: these are all
   std::vector< RouteClass > classes;
   std::vector< RoutedLink > links; ///< all that there are

   friend bool operator==( const RouteTable &, const RouteTable & ) = default;
};

struct RouteAnswer {
   std::shared_ptr< const RouteTable > table; ///< not null; who asks at the same time has the same
   std::optional< AddressWay > way;           ///< to the address that was asked for
};

/// What is asked of a switch.
struct RouteQuestion {
   std::string address;     ///< whose way is wanted, of either version of IP; empty: none
   std::string source = {}; ///< from which of the switch's own addresses; empty: not known
   std::string link = {};   ///< of an address of one link only: over which; empty: as routes say
};

/// Called once.
using RoutesAnswered = std::function< void( const RouteAnswer & answer ) >;

} // namespace DataPlane
