#pragma once

#include "DataPlane/Routes.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

/// Purpose: which links work when some are taken away, and what stands below a link. Pure: the same links give the same
/// answers.
///
/// A link works if it is up, is not taken away, and of each list that it needs one works. A link that nobody has described
/// does not: a switch describes all that it has. Links that need only each other, in a circle, do not work.
namespace Agent {

class Topology {
 public:
   /// The links outlive it.
   Topology( const std::vector< DataPlane::RoutedLink > & links, std::set< std::string > removed );

   bool works( const std::string & link ) const { return works_.count( link ) > 0; }
   bool removed( const std::string & link ) const { return removed_.count( link ) > 0; }
   /// Whether it is taken away, or is set down with what is: routes over it are gone then. A link may be left set up, and
   /// routes over it, that does not work any more: a port-channel or a bridge without its ports.
   bool isSetDown( const std::string & link ) const;
   /// Null if nobody has described it.
   const DataPlane::RoutedLink * find( const std::string & link ) const;
   /// Those that were taken away among a link and all that it stands on.
   std::set< std::string > removedBelow( const std::string & link ) const;
   /// The link and all links below it over which its traffic goes, down to what carries it, whether they work or not.
   std::set< std::string > chain( const std::string & link ) const;
   /// The ports and port-channels that work and on which a link stands, or that it is: where its traffic is counted.
   std::set< std::string > carriers( const std::string & link ) const;
   /// The members of a port-channel that work.
   std::vector< std::string > members( const DataPlane::RoutedLink & portChannel ) const;
   /// Of ports, bits per second. One that is not in it is not known.
   using Speeds = std::map< std::string, double >;
   /// Bits per second that a carrier has, of a port-channel as it uses those of its members that work; nothing if one is
   /// not known.
   std::optional< double > speed( const std::string & carrier, const Speeds & speeds ) const;
   /// The ports of which that must be known: the carrier itself, or the members of a port-channel that work.
   std::set< std::string > portsOf( const std::string & carrier ) const;

   /// The ways that are taken of these: the first choice of which one works; null if all is refused or none works.
   const DataPlane::EqualHops * taken( const DataPlane::Choices & choices ) const;
   bool works( const DataPlane::NextHop & hop ) const { return hop.usable && works( hop.link ); }

 private:
   bool hasWhatItNeeds( const DataPlane::RoutedLink & link ) const;

   std::unordered_map< std::string, const DataPlane::RoutedLink * > links_;
   std::set< std::string > removed_;
   std::unordered_set< std::string > works_;
};

} // namespace Agent
