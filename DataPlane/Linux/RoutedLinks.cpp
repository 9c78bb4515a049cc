#include "DataPlane/Linux/BehindBridge.h"
#include "DataPlane/Linux/RouteReader.h"

#include <linux/if_bonding.h>

/// Which links stand on which others.
namespace DataPlane::Linux {

namespace {

/// What such a device sends out is routed once more; a VRF stands for a routing table.
bool isTunnel( const LinkMessage & link ) {
   for ( const char * kind : { "wireguard", "vxlan",     "geneve",    "bareudp", "gre", "gretap", "erspan",
                               "ip6gre",    "ip6gretap", "ip6erspan", "ipip",    "sit", "ip6tnl", "vti",
                               "vti6",      "xfrm",      "ppp",       "gtp",     "amt", "vrf" } )
      if ( link.kind == kind )
         return true;
   // A machine behind a tap is one on a cable.
   return link.kind == "tun" && link.pointToPoint;
}

/// How a team uses its members is not told with its link.
Sharing sharingOf( const LinkMessage & link ) {
   if ( !link.bondMode )
      return Sharing::unknown;
   return *link.bondMode == BOND_MODE_ACTIVEBACKUP ? Sharing::oneAtATime
          : *link.bondMode == BOND_MODE_BROADCAST  ? Sharing::copied
                                                   : Sharing::together;
}

bool isBondOrTeam( const LinkMessage & link ) { return link.kind == "bond" || link.kind == "team"; }

} // namespace

std::vector< RoutedLink > routedLinks( const LinkTable & links, const VlanTable & vlans ) {
   std::map< Vel::U32, LinkMessage > all;
   std::map< Vel::U32, std::set< Vel::U32 > > slaves;
   links.forEach( [&]( const LinkMessage & link, const Wire::IntfId & ) {
      all.emplace( link.ifIndex, link );
      if ( link.slaveKind == "bond" || link.slaveKind == "team" || link.slaveKind == "bridge" )
         slaves[link.master].insert( link.ifIndex );
   } );
   std::vector< RoutedLink > result;
   for ( const auto & [ifIndex, link] : all ) {
      RoutedLink routed;
      routed.name = link.name;
      routed.up = link.adminUp && link.lowerUp;
      routed.aggregate = isBondOrTeam( link );
      if ( routed.aggregate )
         routed.sharing = sharingOf( link );
      routed.standby = link.standby;
      routed.tunnel = isTunnel( link );
      const auto need = [&]( const std::set< Vel::U32 > & below, std::optional< Vel::U16 > vlanId = {} ) {
         std::vector< std::string > names;
         for ( const Vel::U32 each : below )
            if ( !vlanId || vlans.vlans( each ).test( *vlanId ) )
               names.push_back( all.at( each ).name );
         if ( !names.empty() && ( routed.needs.empty() || routed.needs.back() != names ) )
            routed.needs.push_back( std::move( names ) );
      };
      const auto lower =
         link.kind == "bridge" ? all.find( ifIndex ) : all.find( standsOnLower( link ) ? link.lower : 0 );
      if ( routed.aggregate ) {
         need( slaves[ifIndex] );
      } else if ( lower != all.end() && lower->second.kind == "bridge" ) {
         // Up with any of its ports; what is sent leaves through those of one VLAN.
         need( slaves[lower->first] );
         if ( lower->second.vlanFiltering )
            need( slaves[lower->first], bridgeBelow( links, vlans, ifIndex ).vlanId );
      } else if ( lower != all.end() ) {
         need( { link.lower } );
         routed.setDownWithBelow = link.kind == "vlan" && !link.looseBinding;
      }
      result.push_back( std::move( routed ) );
   }
   return result;
}

} // namespace DataPlane::Linux
